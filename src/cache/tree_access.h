// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Sparse trees as channels: one holder for each channel, read by many threads without a lock.
// Each thread has a cursor of its own into each tree it touches, which remembers the leaves around
// its last reads. The tree library itself stays in the source file.
#pragma once

#include <cstdint>
#include <memory>

namespace nimbra {

template <int Inner>
struct EightWeights;
template <int Inner>
class NineRows;

/// Value types of trees.
enum TreeKind : std::int32_t {
    kDense = 0,
    kFloatTree = 1,
    kDoubleTree = 2,
    kInt32Tree = 3,
    kInt64Tree = 4,
    kVec3fTree = 5,
    kVec3dTree = 6,
};

struct VdbGridHolder;

/// What a holder is made of.
struct TreeSource {
    /// The grid object of the kind's grid class (openvdb::FloatGrid for kFloatTree, ...), turned
    /// into a pointer to void from exactly that class.
    std::shared_ptr<void> grid;
    std::int32_t kind = kFloatTree;
    /// The tree's coordinate of cell (0, 0, 0), in practice the lowest active coordinate.
    std::int32_t origin[3] = {0, 0, 0};
    /// Cells along x, y, z.
    std::int32_t size[3] = {1, 1, 1};
    /// 1 to 3: the element that a vector tree delivers.
    std::int32_t component = 1;
    /// Multiplied into every value.
    float scale = 1;
};

/// A holder, or null for an unknown kind, no grid, or no memory.
VdbGridHolder* newTreeHolder(const TreeSource& source);
/// Frees the holder with its cursors and its use of the grid. No thread may read it any more.
void deleteTreeHolder(VdbGridHolder* holder);

std::int32_t treeKindOf(const VdbGridHolder* holder);

/// The value of the cell with that linear index (x fastest), scaled; 0 for a kind outside 1 to 6.
/// `treeKind` must be the holder's own.
float readTree(const VdbGridHolder* holder, std::int32_t treeKind, std::int64_t index);
/// Stores a value that reads back as `value` (as far as the tree's type can hold it) and makes the
/// cell active. Not safe between threads that write, or write and read, near each other.
void writeTree(VdbGridHolder* holder, std::int32_t treeKind, std::int64_t index, float value);

/// The scaled values of `count` cells that follow each other, x fastest, from a linear index on;
/// all in the grid. Fit for whole channels: leaves are looked up once for each row of theirs.
void readTreeRun(const VdbGridHolder* holder, std::int64_t first, std::int64_t count, float* out);
/// The scaled value of cell (x, y, z).
float readTreeCell(const VdbGridHolder* holder, int x, int y, int z);
/// The weighted and scaled sum of the 2 x 2 x 2 cells from (x, y, z) up.
float weighTree2(const VdbGridHolder* holder, int x, int y, int z, const EightWeights<2>& weights);
/// The same of 3 x 3 x 3 cells.
float weighTree3(const VdbGridHolder* holder, int x, int y, int z, const NineRows<2>& weights);
/// Fetches the cells at all combinations of the given coordinates, n of them on each axis:
/// out[(i * n[1] + j) * n[2] + k] is the value of cell (x[i], y[j], z[k]).
void fetchTreeCells(const VdbGridHolder* holder, const int n[3], const int x[], const int y[],
                    const int z[], float out[]);

/// Smallest and greatest scaled value of the active cells, those of tiles included; 0 and 0 for a
/// tree without any.
void treeRange(const VdbGridHolder* holder, float& min, float& max);

/// Holders alive now, for tests and memory reports.
std::int64_t liveTreeHolders();

}  // namespace nimbra
