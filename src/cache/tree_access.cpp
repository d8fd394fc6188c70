// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A cursor remembers the eight leaves of a 2 x 2 x 2 block by the parity of their coordinates, so
// that samples along a ray, which cross leaf borders back and forth, find all they need there. A
// leaf that the tree doesn't have (a tile or the background) is remembered by its one value.

#include "cache/tree_access.h"

#include <openvdb/openvdb.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <mutex>
#include <new>
#include <type_traits>

#include "cache/thread_slot.h"

namespace nimbra {

struct VdbGridHolder {
    std::shared_ptr<void> grid;
    std::int32_t kind = 0;
    std::int32_t origin[3] = {0, 0, 0};
    std::int64_t nx = 1, ny = 1, nxy = 1;
    std::int32_t component = 1;
    float scale = 1;
    ThreadSlot tlsSlot;
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
    using Number = N;
    static constexpr int kStride = S;
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

/// One thread's way into one tree.
template <class K>
class Cursor final : public ThreadLocalObject {
public:
    using Number = typename K::Number;

    /// A leaf, or a cube of the same size that has one value all over.
    struct Window {
        std::uint64_t keyXY = 0;
        std::int32_t keyZ = kNoKey;
        /// All ones in a leaf; 0 in a constant cube, where every offset means the one value.
        std::uint32_t offsetMask = 0;
        const Number* data = nullptr;
        Number tile = 0;

        Number at(std::uint32_t offset) const { return data[offset & offsetMask]; }
    };

    explicit Cursor(const VdbGridHolder& holder)
        : accessor_(gridOf<K>(holder).tree()), component_(holder.component) {}

    /// The window of the leaf with these coordinates (voxel coordinates / 8, rounded down). It
    /// holds until another leaf of the same parity is asked for.
    const Window& leafAt(std::int32_t x, std::int32_t y, std::int32_t z) {
        Window& w = windows_[(x & 1) | (y & 1) << 1 | (z & 1) << 2];
        const std::uint64_t key = keyOf(x, y);
        if (w.keyXY != key || w.keyZ != z) [[unlikely]]
            fill(w, x, y, z);
        return w;
    }

    float valueAt(std::int32_t x, std::int32_t y, std::int32_t z) {
        const Window& w = leafAt(x >> 3, y >> 3, z >> 3);
        return static_cast<float>(w.at(offsetOf(x, y, z)));
    }

    void forgetIfOlderThan(std::uint32_t topology) {
        if (topology_ == topology) [[likely]]
            return;
        topology_ = topology;
        for (Window& w : windows_)
            w.keyZ = kNoKey;
    }

    auto& accessor() { return accessor_; }

    static std::uint32_t offsetOf(std::int32_t x, std::int32_t y, std::int32_t z) {
        return static_cast<std::uint32_t>((x & 7) << 6 | (y & 7) << 3 | (z & 7)) * K::kStride;
    }

private:
    /// No leaf lies there: coordinates of leaves have 29 bits.
    static constexpr std::int32_t kNoKey = std::numeric_limits<std::int32_t>::min();

    static std::uint64_t keyOf(std::int32_t x, std::int32_t y) {
        return static_cast<std::uint64_t>(static_cast<std::uint32_t>(x)) << 32 |
               static_cast<std::uint32_t>(y);
    }

    [[gnu::noinline]] void fill(Window& w, std::int32_t x, std::int32_t y, std::int32_t z) {
        const openvdb::Coord corner(x * 8, y * 8, z * 8);
        w.keyXY = keyOf(x, y);
        w.keyZ = z;
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
    std::uint32_t topology_ = 0;
    // Not registered with the tree: nodes are only ever added while holders live.
    openvdb::tree::ValueAccessor<typename K::Tree, false> accessor_;
    std::int32_t component_;
};

template <class K>
[[gnu::noinline]] Cursor<K>* firstTouch(const VdbGridHolder& holder) {
    try {
        auto made = std::make_unique<Cursor<K>>(holder);
        Cursor<K>* const cursor = made.get();
        holder.tlsSlot.set(std::move(made));
        return cursor;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// The calling thread's cursor; null only when there is no memory for it.
template <class K>
inline Cursor<K>* cursorOf(const VdbGridHolder& holder) {
    auto* cursor = static_cast<Cursor<K>*>(holder.tlsSlot.get());
    if (!cursor) [[unlikely]] {
        cursor = firstTouch<K>(holder);
        if (!cursor)
            return nullptr;
    }
    cursor->forgetIfOlderThan(holder.topology.load(std::memory_order_relaxed));
    return cursor;
}

/// N x N x N cells from the voxel (x, y, z) up, all in one leaf.
template <class K, int N>
inline void copyBlock(const typename Cursor<K>::Window& w, std::uint32_t offset, float scale,
                      float* out) {
    if (w.offsetMask == 0) {
        const float value = static_cast<float>(w.tile) * scale;
        for (int c = 0; c < N * N * N; ++c)
            out[c] = value;
        return;
    }
    const typename K::Number* const first = w.data + offset;
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            for (int k = 0; k < N; ++k)
                out[(i * N + j) * N + k] =
                    static_cast<float>(first[(i * 64 + j * 8 + k) * K::kStride]) * scale;
}

/// The same when the cells lie in up to two leaves along each axis.
template <class K, int N>
[[gnu::noinline]] void copyAcrossLeaves(Cursor<K>& cursor, const std::int32_t low[3], float scale,
                                        float* out) {
    // Which of the two leaves, and where in it, for each cell along each axis.
    std::uint32_t side[3][N], offset[3][N];
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < N; ++c) {
            const std::int32_t v = low[a] + c;
            side[a][c] = static_cast<std::uint32_t>((v >> 3) - (low[a] >> 3)) << (2 - a);
            offset[a][c] = static_cast<std::uint32_t>(v & 7) << (6 - 3 * a);
        }
    // Neighbouring leaves differ in parity, so that all windows hold at the same time.
    const typename Cursor<K>::Window* windows[8];
    for (std::uint32_t i = 0; i <= side[0][N - 1]; i += 4)
        for (std::uint32_t j = 0; j <= side[1][N - 1]; j += 2)
            for (std::uint32_t k = 0; k <= side[2][N - 1]; ++k)
                windows[i | j | k] = &cursor.leafAt((low[0] >> 3) + static_cast<int>(i >> 2),
                                                    (low[1] >> 3) + static_cast<int>(j >> 1),
                                                    (low[2] >> 3) + static_cast<int>(k));
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            for (int k = 0; k < N; ++k) {
                const auto& w = *windows[side[0][i] | side[1][j] | side[2][k]];
                const std::uint32_t at = (offset[0][i] | offset[1][j] | offset[2][k]) * K::kStride;
                out[(i * N + j) * N + k] = static_cast<float>(w.at(at)) * scale;
            }
}

template <class K, int N>
inline void fetchBlock(const VdbGridHolder& holder, int x, int y, int z, float* out) {
    Cursor<K>* const cursor = cursorOf<K>(holder);
    if (!cursor) {
        std::fill_n(out, N * N * N, 0.0f);
        return;
    }
    const std::int32_t low[3] = {x + holder.origin[0], y + holder.origin[1], z + holder.origin[2]};
    const bool oneLeaf = (low[0] & 7) <= 8 - N && (low[1] & 7) <= 8 - N && (low[2] & 7) <= 8 - N;
    if (oneLeaf)
        copyBlock<K, N>(cursor->leafAt(low[0] >> 3, low[1] >> 3, low[2] >> 3),
                        Cursor<K>::offsetOf(low[0], low[1], low[2]), holder.scale, out);
    else
        copyAcrossLeaves<K, N>(*cursor, low, holder.scale, out);
}

template <int N>
inline void fetchBlockOfAnyKind(const VdbGridHolder& holder, int x, int y, int z, float* out) {
    // Nearly all grids are of the first kind.
    if (holder.kind == kFloatTree) [[likely]]
        return fetchBlock<Kind<openvdb::FloatGrid, float, 1>, N>(holder, x, y, z, out);
    dispatch(holder.kind, 0, [&](auto kind) {
        fetchBlock<decltype(kind), N>(holder, x, y, z, out);
        return 0;
    });
}

struct Voxel {
    std::int32_t x, y, z;
};

Voxel voxelOf(const VdbGridHolder& h, std::int64_t index) {
    return {static_cast<std::int32_t>(index % h.nx + h.origin[0]),
            static_cast<std::int32_t>(index / h.nx % h.ny + h.origin[1]),
            static_cast<std::int32_t>(index / h.nxy + h.origin[2])};
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
void writeVoxel(VdbGridHolder& holder, const Voxel& v, float value) {
    Cursor<K>* const cursor = cursorOf<K>(holder);
    if (!cursor)
        return;
    const openvdb::Coord at(v.x, v.y, v.z);
    const float unscaled = holder.scale != 0.0f ? value / holder.scale : value;
    typename K::Value stored = cursor->accessor().getValue(at);
    reinterpret_cast<typename K::Number*>(&stored)[K::kStride == 1 ? 0 : holder.component - 1] =
        toNumber<typename K::Number>(unscaled);
    if (cursor->leafAt(v.x >> 3, v.y >> 3, v.z >> 3).offsetMask != 0) {
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
    for (int a = 0; a < 3; ++a) {
        const std::int64_t end = std::int64_t(source.origin[a]) + source.size[a];
        if (source.size[a] < 0 || end > std::numeric_limits<std::int32_t>::max() - 8)
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
        std::copy_n(source.origin, 3, holder->origin);
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
        if (treeKind != holder->kind)
            return 0.0f;
        Cursor<decltype(kind)>* const cursor = cursorOf<decltype(kind)>(*holder);
        const Voxel v = voxelOf(*holder, index);
        return cursor ? cursor->valueAt(v.x, v.y, v.z) * holder->scale : 0.0f;
    });
}

void writeTree(VdbGridHolder* holder, std::int32_t treeKind, std::int64_t index, float value) {
    dispatch(treeKind, 0, [&](auto kind) {
        if (treeKind == holder->kind)
            writeVoxel<decltype(kind)>(*holder, voxelOf(*holder, index), value);
        return 0;
    });
}

void fetchTree2(const VdbGridHolder* holder, int x, int y, int z, float out[8]) {
    fetchBlockOfAnyKind<2>(*holder, x, y, z, out);
}

void fetchTree3(const VdbGridHolder* holder, int x, int y, int z, float out[27]) {
    fetchBlockOfAnyKind<3>(*holder, x, y, z, out);
}

void fetchTreeCells(const VdbGridHolder* holder, const int n[3], const int x[], const int y[],
                    const int z[], float out[]) {
    dispatch(holder->kind, 0, [&](auto kind) {
        Cursor<decltype(kind)>* const cursor = cursorOf<decltype(kind)>(*holder);
        const std::int32_t* const o = holder->origin;
        for (int i = 0; i < n[0]; ++i)
            for (int j = 0; j < n[1]; ++j)
                for (int k = 0; k < n[2]; ++k)
                    *out++ = cursor ? cursor->valueAt(x[i] + o[0], y[j] + o[1], z[k] + o[2]) *
                                          holder->scale
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
