// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Channels made of a function of the cell, dense or as any kind of tree.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "cache/grid_channel.h"
#include "cache/tree_access.h"

namespace nimbra::test {

using Proxy = GridChannelProxy<float>;
using Cell3 = std::array<int, 3>;
/// Value of a cell.
using CellField = std::function<float(int x, int y, int z)>;
/// The same in all cells.
inline CellField everywhere(float value) {
    return [value](int, int, int) { return value; };
}

/// Calls body(x, y, z) for each cell, x fastest.
template <class Body>
void forEachCell(const Cell3& size, const Body& body) {
    for (int z = 0; z < size[2]; ++z)
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x)
                body(x, y, z);
}

Proxy denseChannel(const Cell3& size, const CellField& field, int spare = 0);

struct TreeOptions {
    Cell3 origin = {0, 0, 0};
    int component = 1;
    float scale = 1;
    /// Cells of this value aren't stored; cubes of one value become tiles.
    float background = 0;
    bool prune = true;
};
/// A tree whose voxels, before the scale, are the field's values. The other components of a vector
/// hold 1000 and more.
Proxy treeChannel(std::int32_t kind, const Cell3& size, const CellField& field,
                  const TreeOptions& options = {});

/// All cells, x fastest.
std::vector<float> valuesOf(const Proxy& channel);

/// A whole number in [-low, low] that looks random, a pure function of cell and seed.
float noiseAt(int x, int y, int z, int seed, int low = 20);
/// Noise in some cubes of 16 cells, 0 or one other value all over in others, so that a tree of it
/// has leaves, tiles and gaps.
float patchyNoise(int x, int y, int z);

}  // namespace nimbra::test
