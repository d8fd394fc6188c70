// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The values of the eight voxels of a half cell, each by a plane that is fitted to the particles
// near it. Lengths are in half cells: neighbouring voxels lie 0.5 apart.
#pragma once

#include <cstdint>

#include "foundation/array.h"

namespace ParticlesToGrid {

/// Voxels of a half cell. Bits of an index: 0 for x + 1, 1 for y + 1, 2 for z + 1.
inline constexpr int kVoxels = 8;

/// One entry of each of the eight lists, from the voxel to a particle.
struct OffsetRow {
    float x[kVoxels], y[kVoxels], z[kVoxels];
};

/// Eight lists of offsets, side by side, and their sums.
class OffsetLists {
public:
    OffsetLists() { grow(kFirstRoom); }
    void clear();
    /// Adds a particle at r from the half cell's low corner to the lists of all voxels not farther
    /// away than 1. A list without memory goes without it.
    void add(const float r[3]);

    const OffsetRow* rows() const { return rows_.data; }
    std::int32_t count(int voxel) const { return count_[voxel]; }
    const std::int32_t* counts() const { return count_; }
    /// The negative sum of a list: from the particles towards the voxel.
    const float* sum(int axis) const { return sum_[axis]; }

private:
    static constexpr std::int32_t kFirstRoom = 200;
    bool grow(std::int64_t room);

    NMBUtils::NmbArray<OffsetRow, long long> rows_;
    std::int32_t count_[kVoxels] = {};
    float sum_[3][kVoxels] = {};
};

/// The eight values: 0 for a voxel without particles, a linear fall-off from a single one, and
/// otherwise by the place of a plane across the list's direction, found by re-weighted means: close
/// particles count most, with 0.0625 as the limit of the weight's rise. At most 1.
void surfaceValues(const OffsetLists& lists, float values[kVoxels]);

}  // namespace ParticlesToGrid
