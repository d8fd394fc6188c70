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
/// Particles are worked on in groups of this many, whatever the instruction set, so that sums come
/// out the same.
inline constexpr int kGroup = 8;

/// Eight lists of offsets from a voxel to the particles near it.
class OffsetLists {
public:
    struct List {
        NMBUtils::NmbArray<float, long long> store;  // all x, then all y, then all z
        std::int64_t room = 0;                       // of each of the three
        std::int64_t count = 0;
        const float* axis(int a) const { return store.data + a * room; }
    };

    OffsetLists();
    void clear();

    /// Adds particles to the lists of all voxels not farther away than 1. positions[a]: one
    /// coordinate of all of them, in voxels, readable for kGroup - 1 more. `corner`: the half cell;
    /// `shift` is added to all positions. Where a list can't grow it goes without them.
    void add(const float* const positions[3], std::int64_t particles, const float corner[3],
             const float shift[3]);

    const List& list(int voxel) const { return lists_[voxel]; }
    /// Room for one group more at the end of a list, and for reading a group behind that; false
    /// without memory.
    bool makeRoom(int voxel) {
        const List& l = lists_[voxel];
        return l.count + kSpare <= l.room || grow(voxel, l.count + l.count / 4 + kSpare);
    }
    /// For the code that fills the room.
    List& listToFill(int voxel) { return lists_[voxel]; }

private:
    static constexpr std::int64_t kSpare = 2 * kGroup;

    bool grow(int voxel, std::int64_t room);

    List lists_[kVoxels];
};

/// The eight values: 0 for a voxel without particles, a linear fall-off from a single one, and
/// otherwise by the place of a plane across the list's direction, found by re-weighted means: close
/// particles count most, with 0.0625 as the limit of the weight's rise. At most 1.
void surfaceValues(const OffsetLists& lists, float values[kVoxels]);

}  // namespace ParticlesToGrid
