// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One thread's way into one sparse tree of leaves of 8 x 8 x 8 cells. A cursor remembers the eight
// leaves of a 2 x 2 x 2 block by the parity of their coordinates, so that samples along a ray,
// which cross leaf borders back and forth, find all they need there. A leaf that the tree doesn't
// have (a tile or the background) is remembered by its one value.
//
// The tree library is known here by template parameters alone; K names
//     Number, kStride    what leaves hold, and how many of these make a voxel
//     Tree, Accessor, Coord, Value
//     pick(value, component)
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "cache/sampler_lanes.h"
#include "cache/thread_slot.h"

namespace nimbra {

/// Where a tree's cells lie in the tree: leaf coordinates count from `firstLeaf`, cells from its
/// corner.
struct TreePlace {
    std::int32_t firstLeaf[3] = {0, 0, 0};
    /// Place of cell 0 in the first leaf, 0 to 7.
    std::int32_t shift[3] = {0, 0, 0};
    /// The keys of windows are not unique: too many leaves.
    bool huge = false;
};

/// A cell by its distance from the corner of the first leaf.
struct TreeCell {
    std::int32_t x, y, z;
};

template <class K>
class TreeCursor final : public ThreadLocalObject {
public:
    using Number = typename K::Number;

    /// A leaf, or a cube of the same size that has one value all over.
    struct Window {
        std::uint64_t key = kNoKey;
        const Number* data = nullptr;
        /// All ones in a leaf; 0 in a constant cube, where every offset means the one value.
        std::uint32_t offsetMask = 0;
        Number tile = 0;

        float at(std::uint32_t offset) const {
            return static_cast<float>(data[offset & offsetMask]);
        }
    };

    TreeCursor(typename K::Tree& tree, const TreePlace& place, std::int32_t component)
        : accessor_(tree), place_(place), component_(component) {}

    TreeCell cellAt(std::int32_t x, std::int32_t y, std::int32_t z) const {
        return {x + place_.shift[0], y + place_.shift[1], z + place_.shift[2]};
    }
    typename K::Coord coordOf(const TreeCell& c) const {
        return typename K::Coord(place_.firstLeaf[0] * 8 + c.x, place_.firstLeaf[1] * 8 + c.y,
                                 place_.firstLeaf[2] * 8 + c.z);
    }
    static std::uint32_t offsetOf(const TreeCell& c) {
        return static_cast<std::uint32_t>((c.x & 7) << 6 | (c.y & 7) << 3 | (c.z & 7)) * K::kStride;
    }

    /// The window of a cell's leaf. It holds until a leaf of the same parity but not next to it is
    /// asked for.
    const Window& leafOf(const TreeCell& c) {
        const std::int32_t x = c.x >> 3, y = c.y >> 3, z = c.z >> 3;
        Window& w = windows_[placeOf<0>(x) | placeOf<1>(y) | placeOf<2>(z)];
        if (w.key != keyOf<0>(x) + keyOf<1>(y) + keyOf<2>(z)) [[unlikely]]
            fill(w, x, y, z);
        return w;
    }

    float valueAt(const TreeCell& c) { return leafOf(c).at(offsetOf(c)); }

    /// `topology` is new when the tree has grown since.
    void forgetIfOlderThan(std::uint32_t topology) {
        if (topology_ != topology) [[unlikely]]
            forget(topology);
    }

    typename K::Accessor& accessor() { return accessor_; }

private:
    template <class, int>
    friend class LeavesOfBlock;
    template <int>
    friend struct LeafPair;

    static constexpr std::uint64_t kNoKey = ~std::uint64_t(0);

    template <int Axis>
    static std::uint64_t keyOf(std::int32_t leaf) {
        return static_cast<std::uint64_t>(leaf) << (21 * Axis);
    }
    template <int Axis>
    static std::uint32_t placeOf(std::int32_t leaf) {
        return (static_cast<std::uint32_t>(leaf) & 1) << Axis;
    }

    [[gnu::noinline]] void forget(std::uint32_t topology) {
        topology_ = place_.huge ? topology - 1 : topology;
        for (Window& w : windows_)
            w.key = kNoKey;
    }

    [[gnu::noinline]] void fill(Window& w, std::int32_t x, std::int32_t y, std::int32_t z) {
        const typename K::Coord corner = coordOf({x * 8, y * 8, z * 8});
        w.key = keyOf<0>(x) + keyOf<1>(y) + keyOf<2>(z);
        if (const auto* leaf = accessor_.probeConstLeaf(corner)) {
            w.data = reinterpret_cast<const Number*>(leaf->buffer().data());
            if constexpr (K::kStride > 1)
                w.data += component_ - 1;
            w.offsetMask = ~0u;
        } else {
            w.tile = K::pick(accessor_.getValue(corner), component_);
            w.data = &w.tile;
            w.offsetMask = 0;
        }
    }

    Window windows_[8];
    std::uint32_t topology_ = ~0u;
    typename K::Accessor accessor_;
    TreePlace place_;
    std::int32_t component_;
};

/// Largest leaf coordinate for which the keys of windows are unique.
inline constexpr std::int32_t kMostLeavesOnAxis = (1 << 21) - 2;

/// Rows of N values along z from a block that lies in one leaf: row (i, j) starts at cell (i, j, 0)
/// of the block. Lanes from N on hold anything.
template <class K, int N>
class RowsInLeaf {
public:
    explicit RowsInLeaf(const typename K::Number* first) : first_(first) {}

    __m128 operator()(int i, int j) const {
        const typename K::Number* const row = first_ + (i * 64 + j * 8) * K::kStride;
        if constexpr (sizeof(*row) == sizeof(float) && K::kIsFloat && K::kStride == 1)
            return N == 2 ? _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(row))
                          : load3(row);
        return _mm_setr_ps(static_cast<float>(row[0]), static_cast<float>(row[K::kStride]),
                           N == 2 ? 0.0f : static_cast<float>(row[(N - 1) * K::kStride]), 0.0f);
    }

private:
    const typename K::Number* first_;
};

/// The two leaves that a block may reach along one axis: leaf `near` up to a cell, leaf `far`
/// behind it; both the same when the block doesn't cross a border there.
template <int Axis>
struct LeafPair {
    std::uint64_t nearKey, farKey;
    std::uint32_t nearPlace, farPlace;
    /// Offsets of the block's cells in their leaves. Shift of an axis: x 6, y 3, z 0.
    std::uint32_t offset[3];
    /// Cells of the block in front of the border; more than it has without a border in it.
    std::int32_t border;

    /// Whether cell c of a block of N lies in the far leaf; the last one may always be taken to.
    template <int N>
    bool isFar(int c) const {
        return c == N - 1 || (c != 0 && c >= border);
    }

    template <class Cursor>
    [[gnu::always_inline]] LeafPair(const Cursor&, std::int32_t low, std::int32_t cells) {
        const std::int32_t near = low >> 3, far = (low + cells - 1) >> 3;
        nearKey = Cursor::template keyOf<Axis>(near);
        farKey = Cursor::template keyOf<Axis>(far);
        nearPlace = Cursor::template placeOf<Axis>(near);
        farPlace = Cursor::template placeOf<Axis>(far);
        border = 8 - (low & 7);
        for (std::int32_t c = 0; c < 3; ++c)
            offset[c] = static_cast<std::uint32_t>((low + c) & 7) << (6 - 3 * Axis);
    }
};

/// The windows of the up to eight leaves that a block of N x N x N cells reaches. Neighbouring
/// leaves differ in parity, so that all windows hold at the same time.
template <class K, int N>
class LeavesOfBlock {
public:
    using Window = typename TreeCursor<K>::Window;

    LeavesOfBlock(TreeCursor<K>& cursor, const TreeCell& low)
        : x_(cursor, low.x, N), y_(cursor, low.y, N), z_(cursor, low.z, N) {
        if (find(cursor)) [[likely]]
            return;
        for (int b = 0; b < 8; ++b)
            cursor.leafOf({low.x + (b & 4 ? N - 1 : 0), low.y + (b & 2 ? N - 1 : 0),
                           low.z + (b & 1 ? N - 1 : 0)});
    }

    /// Whether rows cross a border. Telling rows of two from each other costs more than it saves.
    bool crossesZ() const { return N == 2 || z_.border < N; }

    /// Value of cell (i, j, k) of the block.
    float at(int i, int j, int k) const {
        return window(i, j, k >= z_.border)
            .at((x_.offset[i] | y_.offset[j] | z_.offset[k]) * K::kStride);
    }
    /// First value of row (i, j) and its window; the row doesn't cross a border along z.
    std::uint32_t rowOffset(int i, int j) const {
        return (x_.offset[i] | y_.offset[j] | z_.offset[0]) * K::kStride;
    }
    const Window& window(int i, int j, bool farZ) const {
        return *windows_[(x_.template isFar<N>(i) ? 4 : 0) | (y_.template isFar<N>(j) ? 2 : 0) |
                         (farZ ? 1 : 0)];
    }

private:
    [[gnu::always_inline]] bool find(TreeCursor<K>& cursor) {
        std::uint64_t missing = 0;
        const auto look = [&](int b, std::uint64_t key, std::uint32_t place) {
            windows_[b] = &cursor.windows_[place];
            missing |= cursor.windows_[place].key ^ key;
        };
        const std::uint64_t nn = x_.nearKey + y_.nearKey, nf = x_.nearKey + y_.farKey,
                            fn = x_.farKey + y_.nearKey, ff = x_.farKey + y_.farKey;
        const std::uint32_t pnn = x_.nearPlace | y_.nearPlace, pnf = x_.nearPlace | y_.farPlace,
                            pfn = x_.farPlace | y_.nearPlace, pff = x_.farPlace | y_.farPlace;
        look(0, nn + z_.nearKey, pnn | z_.nearPlace);
        look(1, nn + z_.farKey, pnn | z_.farPlace);
        look(2, nf + z_.nearKey, pnf | z_.nearPlace);
        look(3, nf + z_.farKey, pnf | z_.farPlace);
        look(4, fn + z_.nearKey, pfn | z_.nearPlace);
        look(5, fn + z_.farKey, pfn | z_.farPlace);
        look(6, ff + z_.nearKey, pff | z_.nearPlace);
        look(7, ff + z_.farKey, pff | z_.farPlace);
        return missing == 0;
    }

    LeafPair<0> x_;
    LeafPair<1> y_;
    LeafPair<2> z_;
    const Window* windows_[8];
};

/// Rows of a block in several leaves, cell by cell.
template <class K, int N>
class RowsAcrossLeaves {
public:
    explicit RowsAcrossLeaves(const LeavesOfBlock<K, N>& leaves) : leaves_(leaves) {}
    __m128 operator()(int i, int j) const {
        return _mm_setr_ps(leaves_.at(i, j, 0), leaves_.at(i, j, 1),
                           N == 2 ? 0.0f : leaves_.at(i, j, N - 1), 0.0f);
    }

private:
    const LeavesOfBlock<K, N>& leaves_;
};

/// The same when no row crosses a border.
template <class K, int N>
class RowsWithinLeaves {
public:
    explicit RowsWithinLeaves(const LeavesOfBlock<K, N>& leaves) : leaves_(leaves) {}
    __m128 operator()(int i, int j) const {
        const auto& w = leaves_.window(i, j, false);
        if (w.offsetMask == 0) [[unlikely]]
            return _mm_set1_ps(static_cast<float>(w.tile));
        return RowsInLeaf<K, N>(w.data + leaves_.rowOffset(i, j))(0, 0);
    }

private:
    const LeavesOfBlock<K, N>& leaves_;
};

}  // namespace nimbra
