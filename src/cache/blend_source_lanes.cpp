// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Each lane goes the way of one cell, in the order of operations of the plain search, so that every
// instruction set gives the same bits. This source is compiled once for each instruction set.
#include "cache/blend_source_lanes.h"

#include <algorithm>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "cache/blend_source_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace nimbra::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using DI = hn::RebindToSigned<D>;
using Floats = hn::Vec<D>;
using Ints = hn::Vec<DI>;
using Mask = hn::Mask<D>;
constexpr D d;
constexpr DI di;

HWY_INLINE Floats all(float v) {
    return hn::Set(d, v);
}
HWY_INLINE Ints all(std::int32_t v) {
    return hn::Set(di, v);
}

HWY_INLINE Ints countFrom(std::int32_t first) {
    return hn::Add(all(first), hn::Iota(di, 0));
}

struct Vectors {
    Floats x, y, z;
};

HWY_INLINE Vectors add(const Vectors& a, const Vectors& b) {
    return {hn::Add(a.x, b.x), hn::Add(a.y, b.y), hn::Add(a.z, b.z)};
}
HWY_INLINE Vectors subtract(const Vectors& a, const Vectors& b) {
    return {hn::Sub(a.x, b.x), hn::Sub(a.y, b.y), hn::Sub(a.z, b.z)};
}
HWY_INLINE Vectors scale(const Vectors& a, Floats s) {
    return {hn::Mul(a.x, s), hn::Mul(a.y, s), hn::Mul(a.z, s)};
}
HWY_INLINE Vectors choose(Mask m, const Vectors& a, const Vectors& b) {
    return {hn::IfThenElse(m, a.x, b.x), hn::IfThenElse(m, a.y, b.y), hn::IfThenElse(m, a.z, b.z)};
}
HWY_INLINE Floats squareOf(const Vectors& a) {
    return hn::Add(hn::Add(hn::Mul(a.x, a.x), hn::Mul(a.y, a.y)), hn::Mul(a.z, a.z));
}
HWY_INLINE Mask areEqual(const Vectors& a, const Vectors& b) {
    return hn::And(hn::And(hn::Eq(a.x, b.x), hn::Eq(a.y, b.y)), hn::Eq(a.z, b.z));
}
HWY_INLINE Floats inverseRoot(Floats v) {
    return hn::Div(all(1.0f), hn::Sqrt(v));
}

/// Pairs of neighbours along x, one of each pair in a vector.
template <class DN>
struct Pairs {
    hn::Vec<DN> first, second;
};

/// Where in the grid each lane reads: 0 in lanes that aren't active.
struct Indices {
    HWY_ALIGN std::int32_t lanes[hn::MaxLanes(d)];
    /// Lanes read side by side, as they do where nothing moves.
    bool inRow;

    HWY_INLINE Indices(Ints index, Mask active) {
        const auto follows = hn::Eq(index, countFrom(hn::GetLane(index)));
        inRow = hn::AllTrue(d, hn::And(active, hn::RebindMask(d, follows)));
        hn::Store(hn::IfThenElseZero(hn::RebindMask(di, active), index), di, lanes);
    }
};

/// Reads them pair by pair, which is several times faster than gathers.
template <class DN>
HWY_INLINE Pairs<DN> readPairs(DN dn, const float* from, const std::int32_t* index) {
#if HWY_TARGET == HWY_SCALAR
    return {hn::Set(dn, from[*index]), hn::Set(dn, from[*index + 1])};
#else
    constexpr std::size_t kLanes = hn::MaxLanes(dn);
    if constexpr (kLanes > 4) {
        const hn::Half<DN> half;
        const auto low = readPairs(half, from, index);
        const auto high = readPairs(half, from, index + kLanes / 2);
        return {hn::Combine(dn, high.first, low.first), hn::Combine(dn, high.second, low.second)};
    } else {
        const hn::Half<DN> pair;
        const auto read = [&](int i) HWY_ATTR { return hn::LoadU(pair, from + index[i]); };
        const auto low = hn::Combine(dn, read(1), read(0));
        const auto high = hn::Combine(dn, read(3), read(2));
        return {hn::ConcatEven(dn, high, low), hn::ConcatOdd(dn, high, low)};
    }
#endif
}

class SearchedGrid {
public:
    explicit SearchedGrid(const GridStorage& s)
        : s_(s),
          strideY_(static_cast<std::int32_t>(s.strideY)),
          strideZ_(static_cast<std::int32_t>(s.strideZ)) {}

    /// Trilinear, beyond the border the border's values; anything in lanes that aren't active;
    /// one at least is.
    HWY_INLINE Floats sample(const Vectors& p, Mask active) const {
        const Neighbours x(p.x, s_, 0), y(p.y, s_, 1), z(p.z, s_, 2);
        const Mask inside = hn::And(hn::And(x.inside, y.inside), z.inside);
        if (hn::AllFalse(d, hn::AndNot(inside, active))) [[likely]] {
            const Indices index(indexOf(x.low, y.low, z.low), active);
            const Pairs<D> v[2][2] = {{read(index, 0), read(index, strideY_)},
                                      {read(index, strideZ_), read(index, strideZ_ + strideY_)}};
            return insideSum(v, x, y, z);
        }
        const Ints start = pairStart(x.low);
        const auto read = [&](Ints cellZ, Ints cellY) HWY_ATTR {
            const Indices index(indexOf(start, cellY, cellZ), active);
            return lastTwice(x.inside, this->read(index, 0));
        };
        const Pairs<D> v[2][2] = {{read(z.low, y.low), read(z.low, y.high)},
                                  {read(z.high, y.low), read(z.high, y.high)}};
        return hn::IfThenElse(inside, insideSum(v, x, y, z), borderSum(v, x, y, z));
    }

    /// The differences to the next cells around the cells nearest to p; what is outside is taken
    /// out of `active`.
    HWY_INLINE Vectors slopeAt(const Vectors& p, Mask& active) const {
        const Ints x = nearest(p.x, 0, active), y = nearest(p.y, 1, active),
                   z = nearest(p.z, 2, active);
        const Mask nextX = hasNext(x, 0), nextY = hasNext(y, 1), nextZ = hasNext(z, 2);
        // Without any lane in the grid there may be no next layer to read from.
        if (hn::AllFalse(d, active))
            return {hn::Zero(d), hn::Zero(d), hn::Zero(d)};
        if (hn::AllFalse(d, hn::AndNot(hn::And(hn::And(nextX, nextY), nextZ), active))) [[likely]] {
            const Indices stored(indexOf(x, y, z), active);
            const Pairs<D> here = read(stored, 0);
            return {hn::Sub(here.second, here.first),
                    hn::Sub(read(stored, strideY_).first, here.first),
                    hn::Sub(read(stored, strideZ_).first, here.first)};
        }
        const Ints first = indexOf(pairStart(x), y, z);
        const auto readBehind = [&](Mask next, std::int32_t stride) HWY_ATTR {
            const Ints step = hn::IfThenElseZero(hn::RebindMask(di, next), all(stride));
            return lastTwice(nextX, read(Indices(hn::Add(first, step), active), 0));
        };
        const Pairs<D> here = lastTwice(nextX, read(Indices(first, active), 0));
        return {hn::IfThenElseZero(nextX, hn::Sub(here.second, here.first)),
                hn::IfThenElseZero(nextY, hn::Sub(readBehind(nextY, strideY_).first, here.first)),
                hn::IfThenElseZero(nextZ, hn::Sub(readBehind(nextZ, strideZ_).first, here.first))};
    }

private:
    /// Two neighbours along an axis, or one twice at the border.
    struct Neighbours {
        Ints low, high;
        Floats t, rest;
        Mask inside;

        HWY_INLINE Neighbours(Floats p, const GridStorage& s, int axis) {
            const Floats zero = hn::Zero(d), end = all(s.lastCellFloat[axis]);
            // The order of the operands sends NaN to 0.
            p = hn::IfThenElse(hn::Gt(p, zero), p, zero);
            p = hn::IfThenElse(hn::Lt(p, end), p, end);
            const Ints last = all(s.lastCell[axis]);
            low = hn::ConvertTo(di, p);
            high = hn::Min(hn::Add(low, all(1)), last);
            t = hn::Sub(p, hn::ConvertTo(d, low));
            rest = hn::Sub(all(1.0f), t);
            inside = hn::RebindMask(d, hn::Lt(low, last));
        }
    };

    HWY_INLINE Ints indexOf(Ints x, Ints y, Ints z) const {
        return hn::Add(hn::Add(x, hn::Mul(y, all(strideY_))), hn::Mul(z, all(strideZ_)));
    }
    HWY_INLINE Pairs<D> read(const Indices& index, std::int32_t offset) const {
        const float* const from = s_.voxels.data + offset;
        if (index.inRow) {
            const float* const first = from + index.lanes[0];
            return {hn::LoadU(d, first), hn::LoadU(d, first + 1)};
        }
        return readPairs(d, from, index.lanes);
    }
    /// A pair that ends at the last cell takes the place of one that would begin there; lastTwice()
    /// makes it the last cell twice.
    HWY_INLINE Ints pairStart(Ints x) const { return hn::Min(x, all(s_.lastCell[0] - 1)); }
    static HWY_INLINE Pairs<D> lastTwice(Mask inside, const Pairs<D>& p) {
        return {hn::IfThenElse(inside, p.first, p.second), p.second};
    }
    HWY_INLINE Mask hasNext(Ints cell, int axis) const {
        return hn::RebindMask(d, hn::Lt(cell, all(s_.lastCell[axis])));
    }
    HWY_INLINE Ints nearest(Floats p, int axis, Mask& active) const {
        const Floats cell = hn::Add(p, all(0.5f));
        const auto isCell = hn::And(hn::Ge(cell, hn::Zero(d)),
                                    hn::Lt(cell, all(static_cast<float>(s_.size[axis]))));
        active = hn::And(active, isCell);
        return hn::Min(hn::ConvertTo(di, hn::IfThenElseZero(isCell, cell)), all(s_.lastCell[axis]));
    }

    /// The sum of EightWeights, where both neighbours are there on each axis.
    static HWY_INLINE Floats insideSum(const Pairs<D> (&v)[2][2], const Neighbours& x,
                                       const Neighbours& y, const Neighbours& z) {
        const auto column = [&](Floats near, Floats far, Floats plane) HWY_ATTR {
            return hn::Add(hn::Mul(near, hn::Mul(plane, z.rest)),
                           hn::Mul(far, hn::Mul(plane, z.t)));
        };
        return hn::Add(hn::Add(column(v[0][0].first, v[1][0].first, hn::Mul(x.rest, y.rest)),
                               column(v[0][1].first, v[1][1].first, hn::Mul(x.rest, y.t))),
                       hn::Add(column(v[0][0].second, v[1][0].second, hn::Mul(x.t, y.rest)),
                               column(v[0][1].second, v[1][1].second, hn::Mul(x.t, y.t))));
    }

    /// The sum of the samplers at a border.
    static HWY_INLINE Floats borderSum(const Pairs<D> (&v)[2][2], const Neighbours& x,
                                       const Neighbours& y, const Neighbours& z) {
        Floats sum = hn::Zero(d);
        const auto addRow = [&](const Pairs<D>& row, Floats wz, Floats wy) HWY_ATTR {
            const Floats line =
                hn::Add(hn::Add(hn::Zero(d), hn::Mul(x.rest, row.first)), hn::Mul(x.t, row.second));
            sum = hn::Add(sum, hn::Mul(hn::Mul(wz, wy), line));
        };
        addRow(v[0][0], z.rest, y.rest);
        addRow(v[0][1], z.rest, y.t);
        addRow(v[1][0], z.t, y.rest);
        addRow(v[1][1], z.t, y.t);
        return sum;
    }

    const GridStorage& s_;
    const std::int32_t strideY_, strideZ_;
};

/// What is known of a cell on its way, a number or the first of three to a name.
enum Column {
    kPlace = 0,      // where the search is
    kBest = 3,       // the place with the least error so far
    kStart = 6,      // the first place
    kDirection = 9,  // the way over flat cells, of length 1
    kTarget = 12,    // the value that is searched
    kLeast = 13,     // the error at kBest
    kFarthest = 14,  // the square of the length of the way over flat cells
    kColumns = 15,
};

/// Cells that are searched together, round by round. Those that have arrived make room, so that few
/// lanes idle, and the next lanes don't wait for the results of those before them.
class Batch {
public:
    static constexpr int kMostCells = 256;

    void begin(const SearchedCells& cells, int first, int count) {
        count_ = count;
        for (int i = 0; i < 3; ++i)
            copy(cells.velocity[i] + first, kDirection + i);
        copy(cells.target + first, kTarget);
        const Floats y = all(static_cast<float>(cells.y)), z = all(static_cast<float>(cells.z));
        for (int i = 0; i < count; i += kLanes) {
            const Vectors cell = {hn::ConvertTo(d, countFrom(cells.x + first + i)), y, z};
            const Vectors back = scale(vectors(kDirection, i), all(-cells.timeStep));
            const Vectors start = add(cell, scale(back, all(0.5f)));
            const Floats farthest = squareOf(back);
            put(scale(back, inverseRoot(farthest)), kDirection, i);
            put(farthest, kFarthest, i);
            put(start, kStart, i);
            put(start, kPlace, i);
            put(start, kBest, i);
            put(all(std::numeric_limits<float>::infinity()), kLeast, i);
            hn::Store(countFrom(first + i), di, cell_ + i);
        }
        activate();
    }

    /// A round for all cells; the number of those that go on.
    int advance(const SearchedGrid& grid) {
        std::size_t left = 0;
        for (int i = 0; i < count_; i += kLanes) {
            Mask active = activeAt(i);
            if (hn::AllFalse(d, active))
                continue;
            step(grid, i, active);
            hn::Store(hn::VecFromMask(di, hn::RebindMask(di, active)), di, active_ + i);
            left += hn::CountTrue(d, active);
        }
        return static_cast<int>(left);
    }

    /// Writes the results of the cells that have arrived, and drops them.
    void retire(float* sources) {
        std::int32_t kept[kMostCells];
        int left = 0;
        for (int i = 0; i < count_; ++i) {
            // Those that go on are written once more at their end.
            float* const source = sources + cell_[i] * 3;
            for (int axis = 0; axis < 3; ++axis)
                source[axis] = column_[kBest + axis][i];
            kept[left] = i;
            left += active_[i] != 0;
        }
        count_ = left;
        for (float(&column)[kMostCells] : column_)
            for (int i = 0; i < left; ++i)
                column[i] = column[kept[i]];
        for (int i = 0; i < left; ++i)
            cell_[i] = cell_[kept[i]];
        activate();
    }
    /// All have arrived.
    void stop() { std::fill_n(active_, count_, 0); }
    int count() const { return count_; }

private:
    static constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));

    /// A round of the plain search in blend_velocity.cpp; who arrives is taken out of `active`.
    HWY_INLINE void step(const SearchedGrid& grid, int i, Mask& active) {
        const Floats one = all(1.0f);
        const Vectors p = vectors(kPlace, i);
        const Floats error = hn::Sub(grid.sample(p, active), floats(kTarget, i));
        const Floats size = hn::Abs(error), least = floats(kLeast, i);
        const Mask better = hn::And(active, hn::Lt(size, least));
        put(hn::IfThenElse(better, size, least), kLeast, i);
        put(choose(better, p, vectors(kBest, i)), kBest, i);

        const Vectors slope = grid.slopeAt(p, active);
        const Floats steepness = squareOf(slope);
        const Mask steep = hn::Ge(steepness, all(kFlatSteepness));
        const Floats way = squareOf(subtract(p, vectors(kStart, i)));
        const Mask atEnd = hn::AndNot(steep, hn::Ge(way, floats(kFarthest, i)));

        Vectors next = add(p, vectors(kDirection, i));
        if (!hn::AllFalse(d, hn::And(steep, active))) {
            Vectors down = scale(slope, hn::Mul(hn::Div(error, steepness), all(kStepShare)));
            const Floats length = squareOf(down);
            down = choose(hn::Gt(length, one), scale(down, inverseRoot(length)), down);
            next = choose(steep, subtract(p, down), next);
        }
        put(next, kPlace, i);
        // Whoever stands still does so for ever.
        active = hn::AndNot(hn::Or(atEnd, areEqual(next, p)), active);
    }

    /// Lanes behind the last cell hold 0.
    void copy(const float* values, int column) {
        float* const end = std::copy_n(values, count_, column_[column]);
        std::fill(end, column_[column] + hwy::RoundUpTo(static_cast<std::size_t>(count_), kLanes),
                  0.0f);
    }
    void activate() {
        for (int i = 0; i < count_; i += kLanes) {
            const auto cells = hn::FirstN(di, static_cast<std::size_t>(count_ - i));
            hn::Store(hn::VecFromMask(di, cells), di, active_ + i);
        }
    }
    HWY_INLINE Mask activeAt(int i) const {
        return hn::RebindMask(d, hn::MaskFromVec(hn::Load(di, active_ + i)));
    }
    HWY_INLINE Floats floats(int column, int i) const { return hn::Load(d, column_[column] + i); }
    HWY_INLINE Vectors vectors(int column, int i) const {
        return {floats(column, i), floats(column + 1, i), floats(column + 2, i)};
    }
    HWY_INLINE void put(Floats v, int column, int i) { hn::Store(v, d, column_[column] + i); }
    HWY_INLINE void put(const Vectors& v, int column, int i) {
        put(v.x, column, i);
        put(v.y, column + 1, i);
        put(v.z, column + 2, i);
    }

    HWY_ALIGN float column_[kColumns][kMostCells];
    HWY_ALIGN std::int32_t cell_[kMostCells];
    HWY_ALIGN std::int32_t active_[kMostCells];
    int count_ = 0;
};

void sourcesOf(const GridStorage& storage, const SearchedCells& cells, float* sources) {
    const SearchedGrid grid(storage);
    Batch batch;
    for (int first = 0; first < cells.count; first += Batch::kMostCells) {
        batch.begin(cells, first, std::min(cells.count - first, Batch::kMostCells));
        for (int round = 0; round < kSearchRounds && batch.count() > 0; ++round)
            if (batch.advance(grid) * 2 <= batch.count())
                batch.retire(sources);
        batch.stop();
        batch.retire(sources);
    }
}

void waysOf(const GridStorage& storage, const SourcedCells& cells, float* values) {
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    const SearchedGrid grid(storage);
    const Mask every = hn::FirstN(d, kLanes);
    const Floats weight = all(cells.weight), rest = all(1.0f - cells.weight);
    const Floats y = hn::Mul(all(static_cast<float>(cells.y)), rest);
    const Floats z = hn::Mul(all(static_cast<float>(cells.z)), rest);
    const auto sample = [&](const float* sources, int i) HWY_ATTR {
        Vectors source;
        hn::LoadInterleaved3(d, sources, source.x, source.y, source.z);
        const Vectors kept = {hn::Mul(hn::ConvertTo(d, countFrom(cells.x + i)), rest), y, z};
        return grid.sample(add(scale(source, weight), kept), every);
    };
    int i = 0;
    for (; i + kLanes <= cells.count; i += kLanes)
        hn::StoreU(sample(cells.sources + 3 * i, i), d, values + i);
    if (i == cells.count)
        return;
    // Lanes behind the last cell read where they may.
    float lastSources[3 * kLanes] = {}, last[kLanes];
    std::copy(cells.sources + 3 * i, cells.sources + 3 * cells.count, lastSources);
    hn::StoreU(sample(lastSources, i), d, last);
    std::copy_n(last, cells.count - i, values + i);
}

}  // namespace nimbra::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace nimbra {

HWY_EXPORT(sourcesOf);
HWY_EXPORT(waysOf);

bool suitsLanes(const GridStorage& grid) {
    return grid.kind == 0 && grid.size[0] >= 2 && grid.cells >= 1 &&
           grid.cells <= std::numeric_limits<std::int32_t>::max();
}

void findSources(const GridStorage& grid, const SearchedCells& cells, float* sources) {
    HWY_DYNAMIC_DISPATCH(sourcesOf)(grid, cells, sources);
}

void sampleWays(const GridStorage& grid, const SourcedCells& cells, float* values) {
    HWY_DYNAMIC_DISPATCH(waysOf)(grid, cells, values);
}

}  // namespace nimbra
#endif
