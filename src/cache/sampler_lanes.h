// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Four-lane arithmetic of the samplers: x, y, z in the lanes 0 to 2, and weighted sums over blocks
// of 2 x 2 x 2 and 3 x 3 x 3 cells.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace nimbra {

inline __m128 load3(const float* p) {
    const __m128 xy = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
    return _mm_movelh_ps(xy, _mm_load_ss(p + 2));
}

inline __m128i loadLanes(const std::int32_t v[4]) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(v));
}

template <int Lane>
inline __m128 splat(__m128 v) {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(Lane, Lane, Lane, Lane));
}

inline float sumLanes(__m128 v) {
    const __m128 pairs = _mm_add_ps(v, _mm_movehl_ps(v, v));
    return _mm_cvtss_f32(_mm_add_ss(pairs, splat<1>(pairs)));
}

/// sumLanes of four vectors.
inline __m128 sumLanesEach(__m128 a, __m128 b, __m128 c, __m128 d) {
    const __m128 ab = _mm_add_ps(_mm_movelh_ps(a, b), _mm_movehl_ps(b, a));
    const __m128 cd = _mm_add_ps(_mm_movelh_ps(c, d), _mm_movehl_ps(d, c));
    return _mm_add_ps(_mm_shuffle_ps(ab, cd, _MM_SHUFFLE(2, 0, 2, 0)),
                      _mm_shuffle_ps(ab, cd, _MM_SHUFFLE(3, 1, 3, 1)));
}

/// Of the lanes 0 to 2.
inline float sumThreeLanes(__m128 v) {
    return _mm_cvtss_f32(_mm_add_ss(_mm_add_ss(v, splat<1>(v)), _mm_movehl_ps(v, v)));
}

/// sumThreeLanes of four vectors.
inline __m128 sumThreeLanesEach(__m128 a, __m128 b, __m128 c, __m128 d) {
    const __m128 ab = _mm_unpacklo_ps(a, b), cd = _mm_unpacklo_ps(c, d);
    const __m128 third = _mm_movelh_ps(_mm_unpackhi_ps(a, b), _mm_unpackhi_ps(c, d));
    return _mm_add_ps(_mm_add_ps(_mm_movelh_ps(ab, cd), _mm_movehl_ps(cd, ab)), third);
}

/// Bits 0 to 2: the lane of a is below that of b.
inline int lanesBelow(__m128i a, __m128i b) {
    return _mm_movemask_ps(_mm_castsi128_ps(_mm_cmplt_epi32(a, b))) & 7;
}

/// Weights of eight corners: lanes 0 and 1 are the neighbours along axis Inner (0 or 2), lane pairs
/// those along y, the two vectors those along the third axis.
template <int Inner>
struct EightWeights {
    __m128 near, far;

    /// Products of 1 - t and t, t being the distances from the lower corner.
    [[gnu::always_inline]] explicit EightWeights(__m128 t) {
        const __m128 rest = _mm_sub_ps(_mm_set1_ps(1.0f), t);
        const __m128 xy = _mm_unpacklo_ps(rest, t);  // 1-tx tx 1-ty ty
        const __m128 z = _mm_unpackhi_ps(rest, t);   // 1-tz tz
        const __m128 inner = Inner == 0 ? xy : z, outer = Inner == 0 ? z : xy;
        const __m128 y = _mm_shuffle_ps(xy, xy, _MM_SHUFFLE(3, 3, 2, 2));
        const __m128 plane = _mm_mul_ps(_mm_movelh_ps(inner, inner), y);
        near = _mm_mul_ps(plane, splat<0>(outer));
        far = _mm_mul_ps(plane, splat<1>(outer));
    }

    /// row(k, j) holds two values along Inner in its lower lanes; j goes along y, k along the third
    /// axis. The sum over the lanes is that of all products.
    template <class Row>
    [[gnu::always_inline]] __m128 products(const Row& row) const {
        const __m128 first = _mm_movelh_ps(row(0, 0), row(0, 1));
        const __m128 second = _mm_movelh_ps(row(1, 0), row(1, 1));
        return _mm_add_ps(_mm_mul_ps(first, near), _mm_mul_ps(second, far));
    }
    template <class Row>
    float sum(const Row& row) const {
        return sumLanes(products(row));
    }
};

/// Weights of the lower, the nearest and the upper cell; lanes are the axes.
struct SplineWeights {
    __m128 low, middle, high;
};

/// The same as products for nine rows of three values along axis Inner (0 or 2).
template <int Inner>
class NineRows {
public:
    [[gnu::always_inline]] explicit NineRows(const SplineWeights& w)
        : y_{splat<1>(w.low), splat<1>(w.middle), splat<1>(w.high)},
          outer_{splat<kOuter>(w.low), splat<kOuter>(w.middle), splat<kOuter>(w.high)},
          inner_(_mm_movelh_ps(_mm_unpacklo_ps(splat<Inner>(w.low), splat<Inner>(w.middle)),
                               splat<Inner>(w.high))) {}

    /// row(k, j): j goes along y, k along the third axis. The fourth lane is ignored, whatever it
    /// holds. The sum over the lanes 0 to 2 is that of all products.
    template <class Row>
    [[gnu::always_inline]] __m128 products(const Row& row) const {
        const __m128 near = _mm_mul_ps(plane(row, 0), outer_[0]);
        const __m128 middle = _mm_mul_ps(plane(row, 1), outer_[1]);
        const __m128 far = _mm_mul_ps(plane(row, 2), outer_[2]);
        return _mm_mul_ps(_mm_add_ps(_mm_add_ps(near, middle), far), inner_);
    }
    template <class Row>
    float sum(const Row& row) const {
        return sumThreeLanes(products(row));
    }

private:
    template <class Row>
    [[gnu::always_inline]] __m128 plane(const Row& row, int k) const {
        const __m128 a = _mm_mul_ps(row(k, 0), y_[0]);
        const __m128 b = _mm_mul_ps(row(k, 1), y_[1]);
        const __m128 c = _mm_mul_ps(row(k, 2), y_[2]);
        return _mm_add_ps(_mm_add_ps(a, b), c);
    }

    static constexpr int kOuter = 2 - Inner;
    __m128 y_[3], outer_[3], inner_;
};

}  // namespace nimbra
