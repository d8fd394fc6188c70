// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The one way to the voxels of a channel: a small handle over shared storage, which is either a
// dense array or a sparse tree that is never expanded.
#pragma once

#include <atomic>
#include <cstdint>

#include "cache/tree_access.h"
#include "foundation/array.h"

namespace nimbra {

/// Range of a channel that nobody has looked at: minimum > maximum. The second value is minus the
/// smallest normal float.
inline constexpr float kUnknownMin = 3.4028235e38f;    // 0x7F7FFFFF
inline constexpr float kUnknownMax = -1.1754944e-38f;  // 0x80800000

/// Voxels of a grid of these sizes; -1 for a negative size or more than 2^40 voxels.
std::int64_t voxelCount(const int size[3]);

/// Voxels of one channel, shared by the handles on it.
struct GridStorage {
    /// 0: dense. 1 to 6: a tree, TreeKind.
    std::int32_t kind = 0;
    /// Handles on this storage.
    std::atomic<std::int32_t> useCount{1};
    /// Dense data, x fastest: index = (z * ny + y) * nx + x. At least `cells` long; what is behind
    /// them are spare floats.
    NMBUtils::NmbArray<float, long long, 1, 1> voxels;
    /// Tree data where kind is not 0, owned.
    VdbGridHolder* grid = nullptr;
    /// The tree's type, numbered as kind.
    std::int32_t treeKind = 0;
    /// Cells along x, y, z.
    std::int32_t size[3] = {0, 0, 0};

    // Derived from size, for the samplers.
    /// Distance of neighbours along y and along z in `voxels`.
    std::int64_t strideY = 0, strideZ = 0;
    /// Cells of the grid.
    std::int64_t cells = 0;
    /// Index of the last cell on each axis, and the greatest float not above it.
    std::int32_t lastCell[4] = {0, 0, 0, 0};
    float lastCellFloat[4] = {0, 0, 0, 0};

    GridStorage() = default;
    GridStorage(const GridStorage&) = delete;
    GridStorage& operator=(const GridStorage&) = delete;
    ~GridStorage();

    /// Sets size and what follows from it; false (and all zero) for sizes that voxelCount refuses.
    bool setSize(const int newSize[3]);
};

template <typename T>
class GridChannelProxy;

/// A handle on one channel. Copies share the storage and carry the range.
/// Handles may be copied and dropped on any thread; one handle must not be changed by one thread
/// while another uses it.
template <>
class GridChannelProxy<float> {
public:
    /// Shared storage, counted; null when empty.
    GridStorage* storage = nullptr;
    /// Whether the channel has data.
    std::uint8_t loaded = 0;
    /// Range of the values as far as it is known: unknown while minValue > maxValue.
    float minValue = kUnknownMin, maxValue = kUnknownMax;

    GridChannelProxy() = default;
    GridChannelProxy(const GridChannelProxy& other) { *this = other; }
    GridChannelProxy(GridChannelProxy&& other) noexcept;
    GridChannelProxy& operator=(const GridChannelProxy& other);
    GridChannelProxy& operator=(GridChannelProxy&& other) noexcept;
    ~GridChannelProxy() { free(); }

    /// New dense storage of x * y * z + `spare` floats, all zero, in place of what was there.
    /// False (and empty) when there is no memory for it or the sizes make no grid.
    bool allocate(const int size[3], int spare = 0);
    /// A tree in place of what was there; takes the holder over. False (the holder is gone and the
    /// handle empty) for a null holder, without memory, or for sizes that make no grid.
    bool attach(VdbGridHolder* holder, const int size[3]);
    /// Drops the use of the storage. The range stays: see resetRange.
    void free();
    /// Takes the storage of another handle in place of what was there, with one use more.
    void share(const GridChannelProxy& other);
    /// Makes the range unknown.
    void resetRange() {
        minValue = kUnknownMin;
        maxValue = kUnknownMax;
    }
    bool rangeKnown() const { return !(minValue > maxValue); }

    /// The value of a cell by its linear index in the grid, 0 <= index < cells. The handle must be
    /// loaded.
    float read(std::int64_t index) const {
        const GridStorage& s = *storage;
        return s.kind == 0 ? s.voxels[index] : readTree(s.grid, s.treeKind, index);
    }
    /// The values of `count` cells that follow each other in memory order; all in the grid. The
    /// handle must be loaded.
    void readRun(std::int64_t first, std::int64_t count, float* out) const;
    /// Stores the value of a cell. In a tree this isn't safe between threads that write near each
    /// other.
    void write(std::int64_t index, float value) {
        GridStorage& s = *storage;
        if (s.kind == 0)
            s.voxels[index] = value;
        else
            writeTree(s.grid, s.treeKind, index, value);
    }

    /// Smallest and greatest value. Dense: of all cells, spare floats left out; comparisons with
    /// NaN count as false. Tree: of the active cells. False for an empty handle or an empty grid.
    bool scanRange(float& min, float& max) const;
    /// Dense voxels, null for a tree or an empty handle.
    float* denseVoxels() const {
        return storage && loaded && storage->kind == 0 ? storage->voxels.data : nullptr;
    }
};

}  // namespace nimbra
