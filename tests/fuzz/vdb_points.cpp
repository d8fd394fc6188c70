// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: the points grids of an OpenVDB file of any bytes are walked, and all their
// attributes read.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cache/vdb_file.h"
#include "cache/vdb_points.h"
#include "support/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace nimbra;
    const test::MemoryFile bytes(data, size);
    VdbFile file;
    file.open(bytes.path());
    for (const VdbDescriptor& grid : file.grids()) {
        VdbGridBytes gridBytes;
        VdbPoints points;
        std::string problem;
        if (!isPointsType(grid.treeType) || !file.readPoints(grid, gridBytes, points, problem))
            continue;
        std::vector<std::array<std::int32_t, 3>> voxels;
        readPointVoxels(gridBytes.span(), points, voxels, problem);
        for (int a = 0; a < static_cast<int>(points.attributes.size()); ++a)
            for (const int components : {1, 3}) {
                std::vector<float> values;
                readPointValues(gridBytes.span(), points, a, components, values, problem);
            }
    }
    return 0;
}
