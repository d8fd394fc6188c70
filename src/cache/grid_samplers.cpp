// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Each kernel finds its cells and weights once for a position and then applies them to all wanted
// entries. Positions whose cells are neighbours in memory (nearly all) take four-lane code, the
// others the plain rules of sampler_taps.h.

#include "cache/grid_samplers.h"

#include <emmintrin.h>

#include <bit>

#include "cache/sampler_taps.h"
#include "cache/tree_access.h"

namespace nimbra {
namespace {

using Proxy = GridChannelProxy<float>;

// ---- Four lanes: x, y, z and one that is ignored ------------------------------------------------

inline __m128 load3(const float* p) {
    const __m128 xy = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
    return _mm_movelh_ps(xy, _mm_load_ss(p + 2));
}

template <int Lane>
inline __m128 splat(__m128 v) {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(Lane, Lane, Lane, Lane));
}

inline float sumLanes(__m128 v) {
    const __m128 pairs = _mm_add_ps(v, _mm_movehl_ps(v, v));
    return _mm_cvtss_f32(_mm_add_ss(pairs, splat<1>(pairs)));
}

struct Cell {
    std::int32_t x, y, z;
};

inline Cell toCell(__m128i lanes) {
    const __m128i high = _mm_unpackhi_epi64(lanes, lanes);
    return {_mm_cvtsi128_si32(lanes), _mm_cvtsi128_si32(_mm_srli_epi64(lanes, 32)),
            _mm_cvtsi128_si32(high)};
}

/// Bits 0 to 2: the lane of a is below that of b.
inline int lanesBelow(__m128i a, __m128i b) {
    return _mm_movemask_ps(_mm_castsi128_ps(_mm_cmplt_epi32(a, b))) & 7;
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

struct BoxFilter {
    Cell cell;
    std::int64_t index;

    BoxFilter(const GridStorage& s, const float position[3]) {
        const __m128 last = _mm_loadu_ps(s.lastCellFloat);
        __m128 p = _mm_add_ps(load3(position), _mm_set1_ps(0.5f));
        // The order of the operands sends NaN to 0.
        p = _mm_min_ps(_mm_max_ps(p, _mm_setzero_ps()), last);
        cell = toCell(_mm_cvttps_epi32(p));
        index = indexOf(s, cell);
    }

    float operator()(const GridStorage& s) const {
        return s.kind == 0 ? s.voxels[index] : readTree(s.grid, s.treeKind, index);
    }
};

// ---- Trilinear ----------------------------------------------------------------------------------

/// Weights of eight corners: lanes 0 and 1 are the neighbours along one axis, lane pairs those
/// along a second, the two vectors those along the third.
struct EightWeights {
    __m128 near, far;
};

template <int Wrap>
class LinearFilter {
public:
    LinearFilter(const GridStorage& s, const float position[3]) {
        __m128 p = load3(position);
        if constexpr (Wrap != 0)
            p = wrapAxes(s, position);
        __m128 high = _mm_loadu_ps(s.lastCellFloat);
        if constexpr (Wrap != 0)
            high = _mm_or_ps(_mm_and_ps(wrappedLanes(), _mm_set1_ps(3e9f)),
                             _mm_andnot_ps(wrappedLanes(), high));
        p = _mm_min_ps(_mm_max_ps(p, _mm_setzero_ps()), high);
        const __m128i low = _mm_cvttps_epi32(p);
        t_ = _mm_sub_ps(p, _mm_cvtepi32_ps(low));
        inside_ =
            lanesBelow(low, _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.lastCell))) == 7;
        if (inside_) [[likely]] {
            cell_ = toCell(low);
            index_ = indexOf(s, cell_);
            denseWeights_ = weights<0, 2>();
        } else {
            setTaps(s, p);
        }
    }

    float operator()(const GridStorage& s) const {
        if (!inside_) [[unlikely]]
            return weigh(s, taps_);
        return s.kind == 0 ? dense(s) : tree(s);
    }

private:
    static __m128 wrappedLanes() {
        return _mm_castsi128_ps(_mm_set_epi32(0, Wrap & kWrapZ ? -1 : 0, Wrap & kWrapY ? -1 : 0,
                                              Wrap & kWrapX ? -1 : 0));
    }

    static __m128 wrapAxes(const GridStorage& s, const float position[3]) {
        float p[4] = {position[0], position[1], position[2], 0.0f};
        for (int a = 0; a < 3; ++a)
            if (Wrap >> a & 1)
                p[a] = wrapToAxis(p[a], s.size[a], s.lastCellFloat[a]);
        return _mm_loadu_ps(p);
    }

    [[gnu::noinline]] void setTaps(const GridStorage& s, __m128 p) {
        float q[4];
        _mm_storeu_ps(q, p);
        for (int a = 0; a < 3; ++a)
            taps_.axis[a] = linearTaps(q[a], s.size[a], Wrap >> a & 1);
    }

    /// Products of (1 - t) and t: lanes along axis Inner, then y; the two vectors along Outer.
    template <int Inner, int Outer>
    EightWeights weights() const {
        const __m128 rest = _mm_sub_ps(_mm_set1_ps(1.0f), t_);
        const __m128 xy = _mm_unpacklo_ps(rest, t_);  // 1-tx tx 1-ty ty
        const __m128 z = _mm_unpackhi_ps(rest, t_);   // 1-tz tz
        const __m128 inner = Inner == 0 ? _mm_movelh_ps(xy, xy) : _mm_movelh_ps(z, z);
        const __m128 y = _mm_shuffle_ps(xy, xy, _MM_SHUFFLE(3, 3, 2, 2));
        const __m128 plane = _mm_mul_ps(inner, y);
        const __m128 outer = Outer == 2 ? z : xy;
        return {_mm_mul_ps(plane, splat<0>(outer)), _mm_mul_ps(plane, splat<1>(outer))};
    }

    float dense(const GridStorage& s) const {
        const float* const v = s.voxels.data + index_;
        const auto pairs = [&s](const float* at) {
            const __m128 first = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(at));
            return _mm_loadh_pi(first, reinterpret_cast<const __m64*>(at + s.strideY));
        };
        return sumLanes(_mm_add_ps(_mm_mul_ps(pairs(v), denseWeights_.near),
                                   _mm_mul_ps(pairs(v + s.strideZ), denseWeights_.far)));
    }

    float tree(const GridStorage& s) const {
        alignas(16) float v[8];
        fetchTree2(s.grid, cell_.x, cell_.y, cell_.z, v);
        const EightWeights w = weights<2, 0>();
        return sumLanes(
            _mm_add_ps(_mm_mul_ps(_mm_load_ps(v), w.near), _mm_mul_ps(_mm_load_ps(v + 4), w.far)));
    }

    __m128 t_;
    EightWeights denseWeights_;
    std::int64_t index_;
    Cell cell_;
    bool inside_;
    Taps taps_;
};

// ---- Quadratic B-spline -------------------------------------------------------------------------

template <int Wrap>
class SphericalFilter {
public:
    SphericalFilter(const GridStorage& s, const float position[3]) {
        float p[4] = {position[0], position[1], position[2], 0.0f};
        if constexpr (Wrap != 0)
            for (int a = 0; a < 3; ++a)
                if (Wrap >> a & 1)
                    p[a] = wrapToAxis(p[a], s.size[a], s.lastCellFloat[a]);
        const __m128 pos = Wrap != 0 ? _mm_loadu_ps(p) : load3(position);
        const __m128 half = _mm_set1_ps(0.5f);
        const __m128 limited = _mm_min_ps(_mm_max_ps(_mm_add_ps(pos, half), _mm_setzero_ps()),
                                          _mm_loadu_ps(s.lastCellFloat));
        const __m128i c = _mm_cvttps_epi32(limited);
        const __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.lastCell));
        inside_ = (lanesBelow(_mm_setzero_si128(), c) & lanesBelow(c, last)) == 7;
        if (!inside_) [[unlikely]] {
            setTaps(s, p, position);
            return;
        }
        const __m128 t = _mm_sub_ps(pos, _mm_sub_ps(_mm_cvtepi32_ps(c), half));
        const __m128 square = _mm_mul_ps(t, t);
        high_ = _mm_mul_ps(square, half);
        low_ = _mm_add_ps(_mm_sub_ps(high_, t), half);
        middle_ = _mm_add_ps(_mm_sub_ps(t, square), half);
        corner_ = toCell(_mm_sub_epi32(c, _mm_set1_epi32(1)));
        index_ = indexOf(s, corner_);
    }

    float operator()(const GridStorage& s) const {
        if (!inside_) [[unlikely]]
            return weigh(s, taps_);
        return s.kind == 0 ? dense(s) : tree(s);
    }

private:
    [[gnu::noinline]] void setTaps(const GridStorage& s, const float wrapped[3],
                                   const float position[3]) {
        for (int a = 0; a < 3; ++a) {
            const bool wrap = Wrap >> a & 1;
            taps_.axis[a] =
                sphericalTaps(wrap ? wrapped[a] : position[a], s.size[a], s.lastCellFloat[a], wrap);
        }
    }

    /// Weights along one axis: row(k, j) are three values along axis Inner, j goes along y and k
    /// along Outer. The fourth lane of a row is ignored.
    template <int Inner, int Outer, class Row>
    float weighRows(Row row) const {
        const __m128 yLow = splat<1>(low_), yMiddle = splat<1>(middle_), yHigh = splat<1>(high_);
        const auto plane = [&](int k) {
            const __m128 a = _mm_mul_ps(row(k, 0), yLow);
            const __m128 b = _mm_mul_ps(row(k, 1), yMiddle);
            const __m128 c = _mm_mul_ps(row(k, 2), yHigh);
            return _mm_add_ps(_mm_add_ps(a, b), c);
        };
        const __m128 sum = _mm_add_ps(_mm_add_ps(_mm_mul_ps(plane(0), splat<Outer>(low_)),
                                                 _mm_mul_ps(plane(1), splat<Outer>(middle_))),
                                      _mm_mul_ps(plane(2), splat<Outer>(high_)));
        // low, middle, high weight along Inner. The lanes are masked after the product, so that
        // whatever lies in the fourth can't spread.
        const __m128 pair = _mm_unpacklo_ps(splat<Inner>(low_), splat<Inner>(middle_));
        const __m128 inner = _mm_movelh_ps(pair, splat<Inner>(high_));
        const __m128 three = _mm_castsi128_ps(_mm_set_epi32(0, -1, -1, -1));
        return sumLanes(_mm_and_ps(_mm_mul_ps(sum, inner), three));
    }

    float dense(const GridStorage& s) const {
        const float* const v = s.voxels.data + index_;
        // The last of the nine rows may end with the array.
        const std::int64_t end = index_ + 2 * s.strideZ + 2 * s.strideY + 4;
        if (end <= s.voxels.size) [[likely]]
            return weighRows<0, 2>(
                [&](int k, int j) { return _mm_loadu_ps(v + k * s.strideZ + j * s.strideY); });
        return weighRows<0, 2>(
            [&](int k, int j) { return load3(v + k * s.strideZ + j * s.strideY); });
    }

    float tree(const GridStorage& s) const {
        float v[28];
        fetchTree3(s.grid, corner_.x, corner_.y, corner_.z, v);
        v[27] = 0.0f;
        return weighRows<2, 0>([&](int k, int j) { return _mm_loadu_ps(v + k * 9 + j * 3); });
    }

    __m128 low_, middle_, high_;
    std::int64_t index_;
    Cell corner_;
    bool inside_;
    Taps taps_;
};

// ---- Kernels ------------------------------------------------------------------------------------

inline bool isLoaded(const Proxy& p) {
    return p.loaded && p.storage;
}

/// Entries share a grid; one that holds fewer cells can't be indexed like the first.
inline bool fits(const GridStorage& s, const GridStorage& first) {
    return s.cells >= first.cells;
}

/// One wanted entry, by far the most frequent call (a shadow ray reads one channel).
template <class Filter>
inline void sampleOne(const Proxy& proxy, const float position[3], float* out) {
    if (!isLoaded(proxy) || proxy.storage->cells < 1)
        return;
    const Filter filter(*proxy.storage, position);
    *out = filter(*proxy.storage);
}

template <class Filter>
void sampleMany(const Proxy* proxies, const float position[3], float* out, int count,
                std::uint32_t mask) {
    int i = 0;
    while (i < count && !isLoaded(proxies[i]))
        ++i;
    if (i >= count || proxies[i].storage->cells < 1)
        return;
    const GridStorage& first = *proxies[i].storage;
    const Filter filter(first, position);
    std::uint32_t bit = std::rotl(1u, i);
    // Several entries are often one and the same channel.
    const GridStorage* known = nullptr;
    float value = 0.0f;
    for (; i < count; ++i, bit = std::rotl(bit, 1)) {
        if (!(mask & bit) || !isLoaded(proxies[i]))
            continue;
        const GridStorage& s = *proxies[i].storage;
        if (&s != known) {
            if (!fits(s, first))
                continue;
            value = filter(s);
            known = &s;
        }
        out[i] = value;
    }
}

template <class Filter>
void sample(const Proxy* proxies, const float position[3], float* out, int count,
            std::uint32_t scalarMask, std::uint32_t vectorMask) {
    const std::uint32_t mask = scalarMask | vectorMask;
    if (mask != 0 && (mask & (mask - 1)) == 0 && count <= 32) [[likely]] {
        const int i = std::countr_zero(mask);
        if (i < count)
            sampleOne<Filter>(proxies[i], position, out + i);
        return;
    }
    if (mask != 0)
        sampleMany<Filter>(proxies, position, out, count, mask);
}

template <int Wrap>
void sampleVector(const Proxy* proxies, const float position[3], float* out, int count,
                  std::uint32_t, std::uint32_t vectorMask) {
    out[0] = out[1] = out[2] = 0.0f;
    Proxy const* wanted[3] = {};
    const GridStorage* first = nullptr;
    for (int k = 0; k < 3 && vectorMask != 0; ++k, vectorMask &= vectorMask - 1) {
        const int i = std::countr_zero(vectorMask);
        if (i >= count || !isLoaded(proxies[i]))
            continue;
        wanted[k] = &proxies[i];
        if (!first)
            first = proxies[i].storage;
    }
    if (!first || first->cells < 1)
        return;
    const SphericalFilter<Wrap> filter(*first, position);
    for (int k = 0; k < 3; ++k)
        if (wanted[k] && fits(*wanted[k]->storage, *first))
            out[k] = filter(*wanted[k]->storage);
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

const SampleKernel kVectorKernels[8] = {
    sampleVector<0>, sampleVector<1>, sampleVector<2>, sampleVector<3>,
    sampleVector<4>, sampleVector<5>, sampleVector<6>, sampleVector<7>,
};

}  // namespace nimbra
