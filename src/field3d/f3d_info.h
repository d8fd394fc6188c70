// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a Field3D file holds, told in plain values: for listings, and for choosing what to show.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nimbra {

/// One layer. Without `readable` what follows `problem` may be missing.
struct F3dLayerInfo {
    std::string partition;  // as in the file: "smoke.0"
    std::string name;
    std::string className;  // "DenseField", "SparseField", "MACField", "MIPField" or another
    bool readable = false;
    /// Readable, placed by a mapping that a grid can have, and the first of its name.
    bool mappable = false;
    std::string problem;  // why it isn't readable or mappable

    std::string valueType;  // "half", "float" or "double"
    int components = 1;
    std::string mappingType;
    int timeSamples = 0;
    std::array<std::int64_t, 3> extentsLow{}, extentsHigh{}, windowLow{},
        windowHigh{};  // inclusive
    /// Index to world: the three axis vectors, then the place of the centre of voxel (0, 0, 0).
    std::array<std::array<double, 3>, 4> toWorld{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    std::array<double, 3> voxelSize{1, 1, 1};
    int blockEdge = 0;  // of sparse storage, else 0
    std::uint64_t blocks = 0, occupiedBlocks = 0;
    std::uint64_t voxels = 0;         // in the data window
    std::uint64_t bytesUnpacked = 0;  // of the voxels, as the file's type has them
    std::uint64_t bytesInMemory = 0;  // as channels

    bool hasValues = false;  // whether the following were asked for and found
    /// Of the finite values in the window, component by component; zeros when there are none.
    std::array<double, 3> min{}, max{}, mean{};
    std::int64_t nanCount = 0, infiniteCount = 0;  // values, not voxels
    /// Voxels of which some component isn't 0, the box around them and the mean of their finite
    /// values.
    std::int64_t nonzeroVoxels = 0;
    std::array<std::int64_t, 3> nonzeroLow{}, nonzeroHigh{-1, -1, -1};
    std::array<double, 3> nonzeroMean{};

    std::vector<std::pair<std::string, std::string>> metadata;
};

struct F3dFileInfo {
    std::string path;
    bool readable = false;
    std::string problem;
    std::uint64_t bytes = 0;
    std::string container;     // "Ogawa" or "HDF5"
    std::vector<int> version;  // of the writer
    std::vector<std::pair<std::string, std::string>> metadata;
    std::vector<F3dLayerInfo> layers;  // in file order
};

/// Looks into a file. Without `values` no voxels are read. Never throws, whatever the bytes.
F3dFileInfo readF3dInfo(const std::string& path, bool values = true);

}  // namespace nimbra
