// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What an OpenVDB file holds, told in plain values: for listings, and for choosing what to show.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nimbra {

/// One grid of a file. Without `readable` all that follows `problem` may be missing.
struct VdbGridInfo {
    std::string name;       // as mappings name it; a second grid of one name is "name[1]"
    std::string treeType;   // "Tree_float_5_4_3"
    std::string valueType;  // "float", "double", "int32", "int64", "vec3s", "vec3d", or another
    std::string gridClass;  // "fog volume", "level set", "staggered" or "unknown"
    bool readable = false;  // whether its voxels can become a channel
    std::string problem;    // why not

    int components = 1;         // 3 for vectors
    bool halfFloats = false;    // stored as 16-bit floats
    std::string compression;    // "none", or of "zip", "blosc" and "active values", with "+"
    std::string transformType;  // "UniformScaleMap" and the like
    bool linear = true;         // false for a perspective transform
    /// Index to world: the three axis vectors, then the place of cell (0, 0, 0).
    std::array<std::array<double, 3>, 4> toWorld{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    std::array<double, 3> voxelSize{1, 1, 1};

    std::array<std::int32_t, 3> low{0, 0, 0}, high{-1, -1, -1};  // active box, inclusive
    std::int64_t activeVoxels = 0;                               // cells of active tiles included
    std::int64_t leafNodes = 0;
    std::uint64_t bytesOnDisk = 0;
    std::uint64_t bytesInMemory = 0;  // of the expanded tree

    bool hasValues = false;  // whether the following were asked for and found
    std::array<double, 3> background{};
    /// Of the finite active values, component by component; zeros when there are none.
    std::array<double, 3> min{}, max{}, mean{};
    std::int64_t nanCount = 0, infiniteCount = 0;  // active values with such a component

    /// Points of a points grid, -1 for other types; they become a particle group, not a channel.
    std::int64_t points = -1;
    std::vector<std::pair<std::string, std::string>> attributes;  // name, "vec3s trnc" and the like

    std::vector<std::pair<std::string, std::string>> metadata;
    bool empty() const { return activeVoxels == 0; }
};

/// One file. Without `readable`, `grids` holds those before the damage.
struct VdbFileInfo {
    std::string path;
    bool readable = false;
    std::string problem;
    std::uint64_t bytes = 0;
    int formatVersion = 0;
    int libraryVersion[2] = {0, 0};
    std::vector<std::pair<std::string, std::string>> metadata;
    std::vector<VdbGridInfo> grids;  // in file order
};

/// Looks into a file. Without `values` no voxels are read: the cost is that of the tree's
/// structure. Never throws, whatever the bytes.
VdbFileInfo readVdbInfo(const std::string& path, bool values = true);

}  // namespace nimbra
