// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Writes small OpenVDB files for tests, by the library of that name, behind plain values.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace nimbra::test {

struct VoxelSpec {
    std::array<int, 3> at;
    std::array<double, 3> value{};  // the first element alone for scalars
};

/// A cube of one value, from a multiple of its edge on.
struct TileSpec {
    std::array<int, 3> low;
    int level;  // 1: 8 cells, 2: 128, 3: 4096
    double value;
};

/// Points of a grid of type "points", in its index space. Every point gets a "Velocity" of twice
/// its position, a "Size" (float) of its x + 1, an "Age" (double) of 2.5 and a "Tag" (int32); "Age"
/// is stored once for all.
struct PointsSpec {
    std::vector<std::array<double, 3>> at{};
    /// "null", "trnc" or "fxpt16": of positions and velocities (these: "trnc" for "fxpt16").
    std::string codec = "null";
};

enum class MapSpec { Scale, Rotated, Frustum };

struct GridSpec {
    std::string name = "density";
    /// "float", "double", "int32", "int64", "vec3s", "vec3d", "bool", "vec3i" or "points".
    std::string type = "float";
    std::vector<VoxelSpec> voxels{};
    std::vector<TileSpec> tiles{};
    PointsSpec points{};  // beside those at the middles of `voxels`
    double background = 0;
    std::array<double, 3> scale{1, 1, 1}, origin{0, 0, 0};
    MapSpec map = MapSpec::Scale;
    bool half = false;
    bool levelSet = false;
    /// Index of the grid in the file whose tree this one shares; -1: none.
    int sharesTreeOf = -1;
    std::vector<std::pair<std::string, std::string>> texts{};  // metadata
};

struct VdbSpec {
    std::vector<GridSpec> grids{};
    std::uint32_t compression = 0;                       // 1 zip, 2 active values only, 4 Blosc
    std::vector<std::pair<std::string, int>> numbers{};  // metadata of the file
    std::vector<std::pair<std::string, std::array<int, 3>>> triples{};
    bool asStream = false;  // without positions
};

void writeVdb(const std::filesystem::path& path, const VdbSpec& spec);

/// A ball of values that differ from cell to cell, all exact in half floats.
std::vector<VoxelSpec> ballOfVoxels(std::array<int, 3> centre, int radius);

}  // namespace nimbra::test
