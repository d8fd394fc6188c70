// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/tree_access.h"

#include <openvdb/openvdb.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <mutex>
#include <new>
#include <type_traits>

#include "cache/sampler_lanes.h"
#include "cache/thread_slot.h"
#include "cache/tree_cursor.h"

namespace nimbra {

struct VdbGridHolder {
    std::shared_ptr<void> grid;
    std::int32_t kind = 0;
    std::int32_t origin[3] = {0, 0, 0};
    std::int64_t nx = 1, ny = 1, nxy = 1;
    std::int32_t component = 1;
    float scale = 1;
    ThreadSlot tlsSlot;
    TreePlace place;
    /// Counts the leaves that writes have made: a cursor of an older count has to look again.
    std::atomic<std::uint32_t> topology{0};
    /// Held while a write makes a leaf.
    std::mutex growLock;

    VdbGridHolder();
    ~VdbGridHolder();
};

namespace {

std::atomic<std::int64_t> liveHolders{0};

/// What the six kinds differ in: the grid class, the number type in its leaves, and how many of
/// these make a voxel.
template <class G, class N, int S>
struct Kind {
    using Grid = G;
    using Tree = typename G::TreeType;
    using Value = typename Tree::ValueType;
    // Not registered with the tree: nodes are only ever added while holders live.
    using Accessor = openvdb::tree::ValueAccessor<Tree, false>;
    using Coord = openvdb::Coord;
    using Number = N;
    static constexpr int kStride = S;
    static constexpr bool kIsFloat = std::is_same_v<N, float>;
    static_assert(sizeof(Value) == sizeof(Number) * S);
    static_assert(Tree::LeafNodeType::LOG2DIM == 3, "offsets below assume leaves of 8 cells");

    static Number pick(const Value& v, int component) {
        return reinterpret_cast<const Number*>(&v)[S == 1 ? 0 : component - 1];
    }
};

/// Calls f with the Kind of a tree kind; `otherwise` for a number that is none.
template <class F, class R>
R dispatch(std::int32_t kind, R otherwise, F&& f) {
    switch (kind) {
        case kFloatTree:
            return f(Kind<openvdb::FloatGrid, float, 1>());
        case kDoubleTree:
            return f(Kind<openvdb::DoubleGrid, double, 1>());
        case kInt32Tree:
            return f(Kind<openvdb::Int32Grid, std::int32_t, 1>());
        case kInt64Tree:
            return f(Kind<openvdb::Int64Grid, std::int64_t, 1>());
        case kVec3fTree:
            return f(Kind<openvdb::Vec3SGrid, float, 3>());
        case kVec3dTree:
            return f(Kind<openvdb::Vec3DGrid, double, 3>());
        default:
            return otherwise;
    }
}

template <class K>
typename K::Grid& gridOf(const VdbGridHolder& holder) {
    return *static_cast<typename K::Grid*>(holder.grid.get());
}

template <class K>
[[gnu::noinline]] TreeCursor<K>* firstTouch(const VdbGridHolder& holder) {
    try {
        auto made = std::make_unique<TreeCursor<K>>(gridOf<K>(holder).tree(), holder.place,
                                                    holder.component);
        TreeCursor<K>* const cursor = made.get();
        holder.tlsSlot.set(std::move(made));
        return cursor;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// The calling thread's cursor; null only when there is no memory for it.
template <class K>
inline TreeCursor<K>* cursorOf(const VdbGridHolder& holder) {
    auto* cursor = static_cast<TreeCursor<K>*>(holder.tlsSlot.get());
    if (!cursor) [[unlikely]] {
        cursor = firstTouch<K>(holder);
        if (!cursor)
            return nullptr;
    }
    cursor->forgetIfOlderThan(holder.topology.load(std::memory_order_relaxed));
    return cursor;
}

/// Sums a block of N x N x N cells by `weights`, which takes rows along z.
template <class K, int N, class Weights>
[[gnu::noinline]] float weighAcrossLeaves(TreeCursor<K>& cursor, const TreeCell& low,
                                          const Weights& weights) {
    const LeavesOfBlock<K, N> leaves(cursor, low);
    if (leaves.crossesZ())
        return weights.sum(RowsAcrossLeaves<K, N>(leaves));
    return weights.sum(RowsWithinLeaves<K, N>(leaves));
}

template <class K, int N, class Weights>
inline float weighBlock(const VdbGridHolder& holder, int x, int y, int z, const Weights& weights) {
    TreeCursor<K>* const cursor = cursorOf<K>(holder);
    if (!cursor)
        return 0.0f;
    const TreeCell low = cursor->cellAt(x, y, z);
    const bool oneLeaf = (low.x & 7) <= 8 - N && (low.y & 7) <= 8 - N && (low.z & 7) <= 8 - N;
    if (!oneLeaf)
        return weighAcrossLeaves<K, N>(*cursor, low, weights) * holder.scale;
    const auto& leaf = cursor->leafOf(low);
    if (leaf.offsetMask == 0)
        return static_cast<float>(leaf.tile) * holder.scale;
    return weights.sum(RowsInLeaf<K, N>(leaf.data + cursor->offsetOf(low))) * holder.scale;
}

template <int N, class Weights>
inline float weighBlockOfAnyKind(const VdbGridHolder& holder, int x, int y, int z,
                                 const Weights& weights) {
    // Nearly all grids are of the first kind.
    if (holder.kind == kFloatTree) [[likely]]
        return weighBlock<Kind<openvdb::FloatGrid, float, 1>, N>(holder, x, y, z, weights);
    return dispatch(holder.kind, 0.0f, [&](auto kind) {
        return weighBlock<decltype(kind), N>(holder, x, y, z, weights);
    });
}

/// The cell with that linear index in the holder's own sizes.
template <class K>
TreeCell cellOf(const VdbGridHolder& h, const TreeCursor<K>& cursor, std::int64_t index) {
    return cursor.cellAt(static_cast<std::int32_t>(index % h.nx),
                         static_cast<std::int32_t>(index / h.nx % h.ny),
                         static_cast<std::int32_t>(index / h.nxy));
}

/// Reads `count` cells of one row from a cell on.
template <class K>
void readRow(TreeCursor<K>& cursor, float scale, TreeCell cell, std::int64_t count, float* out) {
    for (std::int64_t done = 0; done < count;) {
        const auto& leaf = cursor.leafOf(cell);
        const std::int64_t n = std::min<std::int64_t>(8 - (cell.x & 7), count - done);
        const std::uint32_t first = cursor.offsetOf(cell);
        constexpr std::uint32_t kStep = 64 * K::kStride;
        for (std::int64_t i = 0; i < n; ++i)
            out[done + i] = leaf.at(first + static_cast<std::uint32_t>(i) * kStep) * scale;
        cell.x += static_cast<std::int32_t>(n);
        done += n;
    }
}

/// A float as the nearest number that the tree can hold.
template <class Number>
Number toNumber(float value) {
    if constexpr (std::is_floating_point_v<Number>) {
        return static_cast<Number>(value);
    } else {
        constexpr double kLow = static_cast<double>(std::numeric_limits<Number>::min());
        const double v = std::nearbyint(static_cast<double>(value));
        if (!(v >= kLow))
            return v < kLow ? std::numeric_limits<Number>::min() : Number(0);
        return v >= -kLow ? std::numeric_limits<Number>::max() : static_cast<Number>(v);
    }
}

template <class K>
void writeCell(VdbGridHolder& holder, std::int64_t index, float value) {
    TreeCursor<K>* const cursor = cursorOf<K>(holder);
    if (!cursor)
        return;
    const TreeCell cell = cellOf(holder, *cursor, index);
    const openvdb::Coord at = cursor->coordOf(cell);
    const float unscaled = holder.scale != 0.0f ? value / holder.scale : value;
    typename K::Value stored = cursor->accessor().getValue(at);
    reinterpret_cast<typename K::Number*>(&stored)[K::kStride == 1 ? 0 : holder.component - 1] =
        toNumber<typename K::Number>(unscaled);
    if (cursor->leafOf(cell).offsetMask != 0) {
        cursor->accessor().setValue(at, stored);
        return;
    }
    const std::lock_guard guard(holder.growLock);
    cursor->accessor().setValue(at, stored);
    holder.topology.fetch_add(1, std::memory_order_relaxed);
}

/// Folds values into a range as they come.
struct RangeOf {
    bool any = false;
    double low = 0, high = 0;

    void add(double v) {
        if (!any) {
            low = high = v;
            any = true;
            return;
        }
        low = v < low ? v : low;
        high = v > high ? v : high;
    }
};

template <class K>
RangeOf activeRange(const VdbGridHolder& holder) {
    RangeOf range;
    const auto& tree = gridOf<K>(holder).constTree();
    for (auto leaf = tree.cbeginLeaf(); leaf; ++leaf) {
        const typename K::Value* const values = leaf->buffer().data();
        for (auto on = leaf->getValueMask().beginOn(); on; ++on)
            range.add(static_cast<double>(K::pick(values[on.pos()], holder.component)));
    }
    auto tile = tree.cbeginValueOn();
    tile.setMaxDepth(decltype(tile)::LEAF_DEPTH - 1);
    for (; tile; ++tile)
        range.add(static_cast<double>(K::pick(*tile, holder.component)));
    return range;
}

bool fitsTree(const TreeSource& source) {
    constexpr std::int64_t kEnd = std::numeric_limits<std::int32_t>::max() - 8;
    for (int a = 0; a < 3; ++a) {
        const std::int64_t size = source.size[a];
        if (size < 0 || size > kEnd || source.origin[a] + size > kEnd)
            return false;
    }
    return true;
}

}  // namespace

VdbGridHolder::VdbGridHolder() {
    liveHolders.fetch_add(1, std::memory_order_relaxed);
}

VdbGridHolder::~VdbGridHolder() {
    liveHolders.fetch_sub(1, std::memory_order_relaxed);
}

VdbGridHolder* newTreeHolder(const TreeSource& source) {
    if (!source.grid || source.kind < kFloatTree || source.kind > kVec3dTree || !fitsTree(source))
        return nullptr;
    try {
        auto holder = std::make_unique<VdbGridHolder>();
        holder->grid = source.grid;
        holder->kind = source.kind;
        for (int a = 0; a < 3; ++a) {
            holder->origin[a] = source.origin[a];
            holder->place.firstLeaf[a] = source.origin[a] >> 3;
            holder->place.shift[a] = source.origin[a] & 7;
            if ((source.size[a] + 7) >> 3 > kMostLeavesOnAxis)
                holder->place.huge = true;
        }
        holder->nx = std::max(source.size[0], 1);
        holder->ny = std::max(source.size[1], 1);
        holder->nxy = holder->nx * holder->ny;
        holder->component = std::clamp(source.component, 1, 3);
        holder->scale = source.scale;
        return holder.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void deleteTreeHolder(VdbGridHolder* holder) {
    delete holder;
}

std::int32_t treeKindOf(const VdbGridHolder* holder) {
    return holder->kind;
}

float readTree(const VdbGridHolder* holder, std::int32_t treeKind, std::int64_t index) {
    return dispatch(treeKind, 0.0f, [&](auto kind) -> float {
        using K = decltype(kind);
        TreeCursor<K>* const cursor = treeKind == holder->kind ? cursorOf<K>(*holder) : nullptr;
        return cursor ? cursor->valueAt(cellOf(*holder, *cursor, index)) * holder->scale : 0.0f;
    });
}

void writeTree(VdbGridHolder* holder, std::int32_t treeKind, std::int64_t index, float value) {
    dispatch(treeKind, 0, [&](auto kind) {
        if (treeKind == holder->kind)
            writeCell<decltype(kind)>(*holder, index, value);
        return 0;
    });
}

void readTreeRun(const VdbGridHolder* holder, std::int64_t first, std::int64_t count, float* out) {
    dispatch(holder->kind, 0, [&](auto kind) {
        using K = decltype(kind);
        TreeCursor<K>* const cursor = cursorOf<K>(*holder);
        if (!cursor)
            std::fill_n(out, count, 0.0f);
        while (cursor && count > 0) {
            const std::int64_t n = std::min(count, holder->nx - first % holder->nx);
            readRow(*cursor, holder->scale, cellOf(*holder, *cursor, first), n, out);
            first += n;
            count -= n;
            out += n;
        }
        return 0;
    });
}

float readTreeCell(const VdbGridHolder* holder, int x, int y, int z) {
    return dispatch(holder->kind, 0.0f, [&](auto kind) -> float {
        auto* const cursor = cursorOf<decltype(kind)>(*holder);
        return cursor ? cursor->valueAt(cursor->cellAt(x, y, z)) * holder->scale : 0.0f;
    });
}

float weighTree2(const VdbGridHolder* holder, int x, int y, int z, const EightWeights<2>& weights) {
    return weighBlockOfAnyKind<2>(*holder, x, y, z, weights);
}

float weighTree3(const VdbGridHolder* holder, int x, int y, int z, const NineRows<2>& weights) {
    return weighBlockOfAnyKind<3>(*holder, x, y, z, weights);
}

void fetchTreeCells(const VdbGridHolder* holder, const int n[3], const int x[], const int y[],
                    const int z[], float out[]) {
    dispatch(holder->kind, 0, [&](auto kind) {
        auto* const cursor = cursorOf<decltype(kind)>(*holder);
        for (int i = 0; i < n[0]; ++i)
            for (int j = 0; j < n[1]; ++j)
                for (int k = 0; k < n[2]; ++k)
                    *out++ = cursor
                                 ? cursor->valueAt(cursor->cellAt(x[i], y[j], z[k])) * holder->scale
                                 : 0.0f;
        return 0;
    });
}

void treeRange(const VdbGridHolder* holder, float& min, float& max) {
    const RangeOf range = dispatch(holder->kind, RangeOf(),
                                   [&](auto kind) { return activeRange<decltype(kind)>(*holder); });
    const float a = static_cast<float>(range.low) * holder->scale;
    const float b = static_cast<float>(range.high) * holder->scale;
    min = b < a ? b : a;
    max = b < a ? a : b;
}

std::int64_t liveTreeHolders() {
    return liveHolders.load(std::memory_order_relaxed);
}

}  // namespace nimbra
