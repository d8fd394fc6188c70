// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Each kernel finds its cells and weights once for a position and then applies them to all wanted
// entries. Positions whose cells are neighbours in memory (nearly all) take four-lane code, the
// others the plain rules of sampler_taps.h.

#include "cache/grid_samplers.h"

#include <emmintrin.h>

#include <bit>

#include "cache/sampler_lanes.h"
#include "cache/sampler_taps.h"
#include "cache/tree_access.h"

namespace nimbra {
namespace {

using Proxy = GridChannelProxy<float>;

struct Cell {
    std::int32_t x, y, z;
};

inline Cell toCell(__m128i lanes) {
    const __m128i high = _mm_unpackhi_epi64(lanes, lanes);
    return {_mm_cvtsi128_si32(lanes), _mm_cvtsi128_si32(_mm_srli_epi64(lanes, 32)),
            _mm_cvtsi128_si32(high)};
}

inline std::int64_t indexOf(const GridStorage& s, const Cell& c) {
    return c.x + c.y * s.strideY + c.z * s.strideZ;
}

// ---- Plain sum over any cells -------------------------------------------------------------------

struct Taps {
    AxisTaps axis[3];
};

float weighDense(const GridStorage& s, const Taps& taps) {
    const auto& [x, y, z] = taps.axis;
    float sum = 0.0f;
    for (int k = 0; k < z.count; ++k)
        for (int j = 0; j < y.count; ++j) {
            const float* const row = s.voxels.data + y.cell[j] * s.strideY + z.cell[k] * s.strideZ;
            float line = 0.0f;
            for (int i = 0; i < x.count; ++i)
                line += x.weight[i] * row[x.cell[i]];
            sum += z.weight[k] * y.weight[j] * line;
        }
    return sum;
}

float weighTree(const GridStorage& s, const Taps& taps) {
    const auto& [x, y, z] = taps.axis;
    const int count[3] = {x.count, y.count, z.count};
    float values[27];
    fetchTreeCells(s.grid, count, x.cell, y.cell, z.cell, values);
    const float* v = values;
    float sum = 0.0f;
    for (int i = 0; i < x.count; ++i)
        for (int j = 0; j < y.count; ++j) {
            float line = 0.0f;
            for (int k = 0; k < z.count; ++k)
                line += z.weight[k] * *v++;
            sum += x.weight[i] * y.weight[j] * line;
        }
    return sum;
}

[[gnu::noinline]] float weigh(const GridStorage& s, const Taps& taps) {
    return s.kind == 0 ? weighDense(s, taps) : weighTree(s, taps);
}

// ---- Nearest cell -------------------------------------------------------------------------------

/// A filter finds the place and the weights of a position once, and is applied to any number of
/// channels. Away from the borders `inside` holds: then Dense, made of the filter, reads arrays,
/// and tree() reads trees. Elsewhere taps() tells which cells count.
/// Dense answers the parts of a value; sum() adds them up, sumEach() those of four values at once.
struct BoxFilter {
    static constexpr bool inside = true;
    __m128i cell;

    BoxFilter(const GridStorage& s, __m128 position) {
        const __m128 last = _mm_loadu_ps(s.lastCellFloat);
        __m128 p = _mm_add_ps(position, _mm_set1_ps(0.5f));
        // The order of the operands sends NaN to 0.
        p = _mm_min_ps(_mm_max_ps(p, _mm_setzero_ps()), last);
        cell = _mm_cvttps_epi32(p);
    }

    struct Dense {
        std::int64_t index;
        Dense(const BoxFilter& f, const GridStorage& s) : index(indexOf(s, toCell(f.cell))) {}
        __m128 parts(const GridStorage& s) const { return _mm_load_ss(s.voxels.data + index); }
        static float sum(__m128 parts) { return _mm_cvtss_f32(parts); }
        static __m128 sumEach(__m128 a, __m128 b, __m128 c, __m128 d) {
            return _mm_movelh_ps(_mm_unpacklo_ps(a, b), _mm_unpacklo_ps(c, d));
        }
    };
    float tree(const GridStorage& s) const {
        const Cell c = toCell(cell);
        return readTreeCell(s.grid, c.x, c.y, c.z);
    }
    static Taps taps(const GridStorage&, const float*) { return {}; }
};

// ---- Wrapped axes -------------------------------------------------------------------------------

/// All ones in the lanes of wrapped axes.
template <int Wrap>
inline __m128 wrappedLanes() {
    return _mm_castsi128_ps(
        _mm_set_epi32(0, Wrap & kWrapZ ? -1 : 0, Wrap & kWrapY ? -1 : 0, Wrap & kWrapX ? -1 : 0));
}

template <int Wrap, int Axis>
inline float onAxis(const GridStorage& s, __m128 position) {
    const float p = _mm_cvtss_f32(splat<Axis>(position));
    return Wrap >> Axis & 1 ? wrapToAxis(p, s.size[Axis], s.lastCellFloat[Axis]) : p;
}

/// The position with wrapped axes brought into the grid.
template <int Wrap>
inline __m128 wrapPosition(const GridStorage& s, __m128 position) {
    if constexpr (Wrap == 0)
        return position;
    return _mm_set_ps(0.0f, onAxis<Wrap, 2>(s, position), onAxis<Wrap, 1>(s, position),
                      onAxis<Wrap, 0>(s, position));
}

// ---- Trilinear ----------------------------------------------------------------------------------

[[gnu::noinline]] float linearTree(const GridStorage& s, __m128i cell, __m128 t) {
    const Cell c = toCell(cell);
    return weighTree2(s.grid, c.x, c.y, c.z, EightWeights<2>(t));
}

template <int Wrap>
struct LinearFilter {
    __m128i cell;
    __m128 t;
    bool inside;

    LinearFilter(const GridStorage& s, __m128 position) {
        __m128 p = wrapPosition<Wrap>(s, position);
        __m128 high = _mm_loadu_ps(s.lastCellFloat);
        if constexpr (Wrap != 0) {
            // A wrapped position may lie between the last cell and the first.
            const __m128 unlimited = _mm_and_ps(wrappedLanes<Wrap>(), _mm_set1_ps(3e9f));
            high = _mm_or_ps(unlimited, _mm_andnot_ps(wrappedLanes<Wrap>(), high));
        }
        p = _mm_min_ps(_mm_max_ps(p, _mm_setzero_ps()), high);
        cell = _mm_cvttps_epi32(p);
        t = _mm_sub_ps(p, _mm_cvtepi32_ps(cell));
        inside = lanesBelow(cell, loadLanes(s.lastCell)) == 7;
    }

    struct Dense {
        std::int64_t index;
        EightWeights<0> weights;

        [[gnu::always_inline]] Dense(const LinearFilter& f, const GridStorage& s)
            : index(indexOf(s, toCell(f.cell))), weights(f.t) {}
        [[gnu::always_inline]] __m128 parts(const GridStorage& s) const {
            const float* const v = s.voxels.data + index;
            return weights.products([&](int k, int j) {
                const float* const row = v + k * s.strideZ + j * s.strideY;
                return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(row));
            });
        }
        static float sum(__m128 parts) { return sumLanes(parts); }
        static __m128 sumEach(__m128 a, __m128 b, __m128 c, __m128 d) {
            return sumLanesEach(a, b, c, d);
        }
    };
    float tree(const GridStorage& s) const { return linearTree(s, cell, t); }

    static Taps taps(const GridStorage& s, const float* position) {
        Taps taps;
        for (int a = 0; a < 3; ++a) {
            const bool wrap = Wrap >> a & 1;
            const float last = s.lastCellFloat[a];
            const float p =
                wrap ? wrapToAxis(position[a], s.size[a], last) : clampToAxis(position[a], last);
            taps.axis[a] = linearTaps(p, s.size[a], wrap);
        }
        return taps;
    }
};

// ---- Quadratic B-spline -------------------------------------------------------------------------

[[gnu::noinline]] float sphericalTree(const GridStorage& s, __m128i corner,
                                      const SplineWeights& weights) {
    const Cell c = toCell(corner);
    return weighTree3(s.grid, c.x, c.y, c.z, NineRows<2>(weights));
}

template <int Wrap>
struct SphericalFilter {
    __m128i corner;
    SplineWeights weights;
    bool inside;

    [[gnu::always_inline]] SphericalFilter(const GridStorage& s, __m128 position) {
        const __m128 p = wrapPosition<Wrap>(s, position);
        const __m128 half = _mm_set1_ps(0.5f);
        const __m128 limited = _mm_min_ps(_mm_max_ps(_mm_add_ps(p, half), _mm_setzero_ps()),
                                          _mm_loadu_ps(s.lastCellFloat));
        const __m128i c = _mm_cvttps_epi32(limited);
        inside = (lanesBelow(_mm_setzero_si128(), c) & lanesBelow(c, loadLanes(s.lastCell))) == 7;
        const __m128 t = _mm_sub_ps(p, _mm_sub_ps(_mm_cvtepi32_ps(c), half));
        const __m128 square = _mm_mul_ps(t, t);
        weights.high = _mm_mul_ps(square, half);
        weights.low = _mm_add_ps(_mm_sub_ps(weights.high, t), half);
        weights.middle = _mm_add_ps(_mm_sub_ps(t, square), half);
        corner = _mm_sub_epi32(c, _mm_set1_epi32(1));
    }

    struct Dense {
        std::int64_t index;
        NineRows<0> rows;

        [[gnu::always_inline]] Dense(const SphericalFilter& f, const GridStorage& s)
            : index(indexOf(s, toCell(f.corner))), rows(f.weights) {}
        [[gnu::always_inline]] __m128 parts(const GridStorage& s) const {
            const float* const v = s.voxels.data + index;
            if (index + 2 * s.strideZ + 2 * s.strideY + 4 > s.voxels.size) [[unlikely]]
                return partsAtEnd(rows, v, s);
            return rows.products(
                [&](int k, int j) { return _mm_loadu_ps(v + k * s.strideZ + j * s.strideY); });
        }
        /// At the very end of an array a row of four would go beyond it.
        [[gnu::noinline]] static __m128 partsAtEnd(NineRows<0> rows, const float* v,
                                                   const GridStorage& s) {
            return rows.products(
                [&](int k, int j) { return load3(v + k * s.strideZ + j * s.strideY); });
        }
        static float sum(__m128 parts) { return sumThreeLanes(parts); }
        static __m128 sumEach(__m128 a, __m128 b, __m128 c, __m128 d) {
            return sumThreeLanesEach(a, b, c, d);
        }
    };
    float tree(const GridStorage& s) const { return sphericalTree(s, corner, weights); }

    static Taps taps(const GridStorage& s, const float* position) {
        Taps taps;
        for (int a = 0; a < 3; ++a) {
            const bool wrap = Wrap >> a & 1;
            const float last = s.lastCellFloat[a];
            const float p = wrap ? wrapToAxis(position[a], s.size[a], last) : position[a];
            taps.axis[a] = sphericalTaps(p, s.size[a], last, wrap);
        }
        return taps;
    }
};

// ---- Kernels ------------------------------------------------------------------------------------

inline bool isLoaded(const Proxy& p) {
    return p.loaded && p.storage;
}

/// Entries share a grid; one with other rows or layers, or fewer of them, can't be indexed like the
/// first.
inline bool fits(const GridStorage& s, const GridStorage& first) {
    return s.strideY == first.strideY && s.strideZ == first.strideZ && s.cells >= first.cells;
}

/// A position at a border, for one channel.
template <class Filter>
[[gnu::noinline]] float sampleAtBorder(const GridStorage& s, __m128 position) {
    alignas(16) float p[4];
    _mm_store_ps(p, position);
    return weigh(s, Filter::taps(s, p));
}

/// At the place of a filter away from the borders.
template <class Filter>
inline float readDense(const typename Filter::Dense& dense, const GridStorage& s) {
    return Filter::Dense::sum(dense.parts(s));
}

template <class Filter>
inline float sampleChannel(const GridStorage& s, __m128 position) {
    const Filter filter(s, position);
    if (!filter.inside) [[unlikely]]
        return sampleAtBorder<Filter>(s, position);
    return s.kind != 0 ? filter.tree(s) : readDense<Filter>({filter, s}, s);
}

/// One wanted entry, by far the most frequent call.
template <class Filter>
inline void sampleOne(const Proxy& proxy, const float* position, float* out) {
    if (isLoaded(proxy) && proxy.storage->cells >= 1)
        *out = sampleChannel<Filter>(*proxy.storage, load3(position));
}

template <class Filter>
void sampleRun(const Proxy& proxy, const float positions[][4], int count, float* out) {
    if (!isLoaded(proxy) || proxy.storage->cells < 1)
        return;
    const GridStorage& s = *proxy.storage;
    for (int i = 0; i < count; ++i)
        out[i] = sampleChannel<Filter>(s, load3(positions[i]));
}

/// What sampleFour can't do side by side.
template <class Filter>
[[gnu::noinline]] __m128 sampleEach(const GridStorage& s, int count, __m128 a, __m128 b, __m128 c,
                                    __m128 d) {
    // Without arrays: a vector isn't read back before its single stores have left the pipeline.
    const float first = count > 0 ? sampleChannel<Filter>(s, a) : 0.0f;
    const float second = count > 1 ? sampleChannel<Filter>(s, b) : 0.0f;
    const float third = count > 2 ? sampleChannel<Filter>(s, c) : 0.0f;
    const float fourth = count > 3 ? sampleChannel<Filter>(s, d) : 0.0f;
    return _mm_setr_ps(first, second, third, fourth);
}

template <class Filter>
__m128 sampleFour(const Proxy& proxy, int count, __m128 a, __m128 b, __m128 c, __m128 d) {
    if (!isLoaded(proxy) || proxy.storage->cells < 1)
        return _mm_setzero_ps();
    const GridStorage& s = *proxy.storage;
    if (s.kind != 0 || count != 4)
        return sampleEach<Filter>(s, count, a, b, c, d);
    const Filter first(s, a), second(s, b), third(s, c), fourth(s, d);
    if (!(first.inside && second.inside && third.inside && fourth.inside)) [[unlikely]]
        return sampleEach<Filter>(s, 4, a, b, c, d);
    using Dense = typename Filter::Dense;
    return Dense::sumEach(Dense(first, s).parts(s), Dense(second, s).parts(s),
                          Dense(third, s).parts(s), Dense(fourth, s).parts(s));
}

/// Three channels that aren't all arrays, or at a border.
template <class Filter>
[[gnu::noinline]] __m128 sampleThreeByThree(const Proxy* proxies, __m128 position) {
    const auto value = [&](const Proxy& proxy) {
        const bool there = isLoaded(proxy) && proxy.storage->cells >= 1;
        return there ? sampleChannel<Filter>(*proxy.storage, position) : 0.0f;
    };
    return _mm_setr_ps(value(proxies[0]), value(proxies[1]), value(proxies[2]), 0.0f);
}

inline bool isArray(const Proxy& proxy) {
    return isLoaded(proxy) && proxy.storage->kind == 0 && proxy.storage->cells >= 1;
}

template <class Filter>
__m128 sampleThree(const Proxy* proxies, __m128 position) {
    if (!(isArray(proxies[0]) && isArray(proxies[1]) && isArray(proxies[2])))
        return sampleThreeByThree<Filter>(proxies, position);
    const GridStorage &a = *proxies[0].storage, &b = *proxies[1].storage, &c = *proxies[2].storage;
    const Filter filter(a, position);
    if (!filter.inside || !fits(b, a) || !fits(c, a)) [[unlikely]]
        return sampleThreeByThree<Filter>(proxies, position);
    using Dense = typename Filter::Dense;
    const Dense dense(filter, a);
    return Dense::sumEach(dense.parts(a), dense.parts(b), dense.parts(c), _mm_setzero_ps());
}

/// Applies `read` to the wanted entries from `first` on, which is loaded.
template <class Read>
inline void forWanted(const Proxy* proxies, int first, float* out, int count, std::uint32_t mask,
                      Read read) {
    const GridStorage& grid = *proxies[first].storage;
    // Several entries are often one and the same channel.
    const GridStorage* known = nullptr;
    float value = 0.0f;
    std::uint32_t bit = std::rotl(1u, first);
    for (int i = first; i < count; ++i, bit = std::rotl(bit, 1)) {
        if (!(mask & bit) || !isLoaded(proxies[i]))
            continue;
        const GridStorage& s = *proxies[i].storage;
        if (&s != known) {
            if (!fits(s, grid))
                continue;
            value = read(s);
            known = &s;
        }
        out[i] = value;
    }
}

template <class Filter>
[[gnu::noinline]] void sampleManyAtBorder(const Proxy* proxies, const float* position, int first,
                                          float* out, int count, std::uint32_t mask) {
    const Taps taps = Filter::taps(*proxies[first].storage, position);
    forWanted(proxies, first, out, count, mask,
              [&](const GridStorage& s) { return weigh(s, taps); });
}

template <class Filter>
[[gnu::noinline]] void sampleMany(const Proxy* proxies, const float* position, float* out,
                                  int count, std::uint32_t mask) {
    int first = 0;
    while (first < count && !isLoaded(proxies[first]))
        ++first;
    if (first >= count || proxies[first].storage->cells < 1)
        return;
    const Filter filter(*proxies[first].storage, load3(position));
    if (!filter.inside) [[unlikely]]
        return sampleManyAtBorder<Filter>(proxies, position, first, out, count, mask);
    const typename Filter::Dense dense(filter, *proxies[first].storage);
    forWanted(proxies, first, out, count, mask, [&](const GridStorage& s) {
        return s.kind == 0 ? readDense<Filter>(dense, s) : filter.tree(s);
    });
}

template <class Filter>
void sample(const Proxy* proxies, const float* position, float* out, int count,
            std::uint32_t scalarMask, std::uint32_t vectorMask) {
    const std::uint32_t mask = scalarMask | vectorMask;
    if (mask == 0)
        return;
    const bool singleBit = (mask & (mask - 1)) == 0;
    if (!singleBit || count > 32)
        return sampleMany<Filter>(proxies, position, out, count, mask);
    const int i = std::countr_zero(mask);
    if (i < count)
        sampleOne<Filter>(proxies[i], position, out + i);
}

template <int Wrap>
void sampleVector(const Proxy* proxies, const float* position, float* out, int count, std::uint32_t,
                  std::uint32_t vectorMask) {
    out[0] = out[1] = out[2] = 0.0f;
    const GridStorage* component[3] = {};
    const GridStorage* first = nullptr;
    for (int k = 0; k < 3 && vectorMask != 0; ++k, vectorMask &= vectorMask - 1) {
        const int i = std::countr_zero(vectorMask);
        if (i >= count || !isLoaded(proxies[i]))
            continue;
        component[k] = proxies[i].storage;
        first = first ? first : component[k];
    }
    if (!first || first->cells < 1)
        return;
    using Filter = SphericalFilter<Wrap>;
    const Filter filter(*first, load3(position));
    const typename Filter::Dense dense(filter, *first);
    for (int k = 0; k < 3; ++k) {
        if (!component[k] || !fits(*component[k], *first))
            continue;
        const GridStorage& s = *component[k];
        if (!filter.inside)
            out[k] = weigh(s, Filter::taps(*first, position));
        else
            out[k] = s.kind == 0 ? readDense<Filter>(dense, s) : filter.tree(s);
    }
}

}  // namespace

const SampleKernel kSampleKernels[24] = {
    sample<BoxFilter>,          sample<BoxFilter>,          sample<BoxFilter>,
    sample<BoxFilter>,          sample<BoxFilter>,          sample<BoxFilter>,
    sample<BoxFilter>,          sample<BoxFilter>,          sample<LinearFilter<0>>,
    sample<LinearFilter<1>>,    sample<LinearFilter<2>>,    sample<LinearFilter<3>>,
    sample<LinearFilter<4>>,    sample<LinearFilter<5>>,    sample<LinearFilter<6>>,
    sample<LinearFilter<7>>,    sample<SphericalFilter<0>>, sample<SphericalFilter<1>>,
    sample<SphericalFilter<2>>, sample<SphericalFilter<3>>, sample<SphericalFilter<4>>,
    sample<SphericalFilter<5>>, sample<SphericalFilter<6>>, sample<SphericalFilter<7>>,
};

const RunKernel kRunKernels[24] = {
    sampleRun<BoxFilter>,          sampleRun<BoxFilter>,          sampleRun<BoxFilter>,
    sampleRun<BoxFilter>,          sampleRun<BoxFilter>,          sampleRun<BoxFilter>,
    sampleRun<BoxFilter>,          sampleRun<BoxFilter>,          sampleRun<LinearFilter<0>>,
    sampleRun<LinearFilter<1>>,    sampleRun<LinearFilter<2>>,    sampleRun<LinearFilter<3>>,
    sampleRun<LinearFilter<4>>,    sampleRun<LinearFilter<5>>,    sampleRun<LinearFilter<6>>,
    sampleRun<LinearFilter<7>>,    sampleRun<SphericalFilter<0>>, sampleRun<SphericalFilter<1>>,
    sampleRun<SphericalFilter<2>>, sampleRun<SphericalFilter<3>>, sampleRun<SphericalFilter<4>>,
    sampleRun<SphericalFilter<5>>, sampleRun<SphericalFilter<6>>, sampleRun<SphericalFilter<7>>,
};

const FourKernel kFourKernels[24] = {
    sampleFour<BoxFilter>,          sampleFour<BoxFilter>,          sampleFour<BoxFilter>,
    sampleFour<BoxFilter>,          sampleFour<BoxFilter>,          sampleFour<BoxFilter>,
    sampleFour<BoxFilter>,          sampleFour<BoxFilter>,          sampleFour<LinearFilter<0>>,
    sampleFour<LinearFilter<1>>,    sampleFour<LinearFilter<2>>,    sampleFour<LinearFilter<3>>,
    sampleFour<LinearFilter<4>>,    sampleFour<LinearFilter<5>>,    sampleFour<LinearFilter<6>>,
    sampleFour<LinearFilter<7>>,    sampleFour<SphericalFilter<0>>, sampleFour<SphericalFilter<1>>,
    sampleFour<SphericalFilter<2>>, sampleFour<SphericalFilter<3>>, sampleFour<SphericalFilter<4>>,
    sampleFour<SphericalFilter<5>>, sampleFour<SphericalFilter<6>>, sampleFour<SphericalFilter<7>>,
};

const ThreeKernel kThreeKernels[24] = {
    sampleThree<BoxFilter>,          sampleThree<BoxFilter>,
    sampleThree<BoxFilter>,          sampleThree<BoxFilter>,
    sampleThree<BoxFilter>,          sampleThree<BoxFilter>,
    sampleThree<BoxFilter>,          sampleThree<BoxFilter>,
    sampleThree<LinearFilter<0>>,    sampleThree<LinearFilter<1>>,
    sampleThree<LinearFilter<2>>,    sampleThree<LinearFilter<3>>,
    sampleThree<LinearFilter<4>>,    sampleThree<LinearFilter<5>>,
    sampleThree<LinearFilter<6>>,    sampleThree<LinearFilter<7>>,
    sampleThree<SphericalFilter<0>>, sampleThree<SphericalFilter<1>>,
    sampleThree<SphericalFilter<2>>, sampleThree<SphericalFilter<3>>,
    sampleThree<SphericalFilter<4>>, sampleThree<SphericalFilter<5>>,
    sampleThree<SphericalFilter<6>>, sampleThree<SphericalFilter<7>>,
};

const SampleKernel kVectorKernels[8] = {
    sampleVector<0>, sampleVector<1>, sampleVector<2>, sampleVector<3>,
    sampleVector<4>, sampleVector<5>, sampleVector<6>, sampleVector<7>,
};

}  // namespace nimbra
