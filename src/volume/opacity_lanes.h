// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The look-ups of four march steps at once: each lane gets the very bits that shading_lookup.h
// gives for it.
#pragma once

#include <emmintrin.h>

#include <cfloat>

#include "volume/lut_holder.h"
#include "volume/volume_shader.h"

namespace nimbra {

/// fastExp of each lane.
inline __m128 fastExp4(__m128 x) {
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f);
    const __m128 power = _mm_mul_ps(x, _mm_set1_ps(1.442695f));
    // The order of the operands sends NaN to the lower bound.
    const __m128 bounded =
        _mm_min_ps(_mm_max_ps(power, _mm_set1_ps(-126.0f)), _mm_set1_ps(127.99f));
    const __m128 whole = _mm_cvtepi32_ps(_mm_cvttps_epi32(bounded));
    const __m128 fraction =
        _mm_add_ps(_mm_sub_ps(bounded, whole), _mm_and_ps(_mm_cmplt_ps(power, zero), one));
    const __m128 curve =
        _mm_div_ps(_mm_set1_ps(27.728024f), _mm_sub_ps(_mm_set1_ps(4.8425255f), fraction));
    const __m128 exponent =
        _mm_sub_ps(_mm_add_ps(_mm_add_ps(bounded, _mm_set1_ps(121.274055f)), curve),
                   _mm_mul_ps(_mm_set1_ps(1.4901291f), fraction));
    return _mm_castsi128_ps(_mm_cvttps_epi32(_mm_mul_ps(exponent, _mm_set1_ps(8388608.0f))));
}

/// Entries of a table at the lutIndex of each lane.
inline __m128 lookUp4(const float* table, __m128 value) {
    const __m128 scaled = _mm_add_ps(_mm_mul_ps(value, _mm_set1_ps(8000.0f)), _mm_set1_ps(0.5f));
    const __m128 limited =
        _mm_min_ps(_mm_max_ps(scaled, _mm_setzero_ps()), _mm_set1_ps(kLutEntries - 0.5f));
    alignas(16) int index[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(index), _mm_cvttps_epi32(limited));
    return _mm_setr_ps(table[index[0]], table[index[1]], table[index[2]], table[index[3]]);
}

/// smokeOpacity of each lane.
inline __m128 smokeOpacity4(const VolumeShader& shader, __m128 t, float stepWorld) {
    const __m128 density = shader.opacityTable ? lookUp4(shader.opacityTable, t)
                                               : _mm_mul_ps(t, _mm_set1_ps(shader.smoketransp));
    const __m128 clear = _mm_cmpeq_ps(shader.opacityTable ? density : t, _mm_setzero_ps());
    const __m128 through = fastExp4(_mm_mul_ps(density, _mm_set1_ps(stepWorld)));
    return _mm_andnot_ps(clear, _mm_sub_ps(_mm_set1_ps(1.0f), through));
}

inline __m128 colorLanes(const TessUtils::Color& c) {
    return _mm_setr_ps(c.r, c.g, c.b, 0.0f);
}

inline TessUtils::Color colorOf(__m128 lanes) {
    alignas(16) float c[4];
    _mm_store_ps(c, lanes);
    return {c[0], c[1], c[2]};
}

/// finiteOrZero of each lane.
inline __m128 finiteOrZero4(__m128 value) {
    const __m128 size = _mm_andnot_ps(_mm_set1_ps(-0.0f), value);
    return _mm_and_ps(_mm_cmple_ps(size, _mm_set1_ps(FLT_MAX)), value);
}

/// Values as they stand in a grid, normalised; what isn't a number counts as nothing.
inline __m128 normalized4(const VolumeShader& shader, int slot, __m128 value) {
    const __m128 finite = finiteOrZero4(value);
    return _mm_add_ps(_mm_mul_ps(finite, _mm_set1_ps(shader.inputScale[slot])),
                      _mm_set1_ps(shader.inputOffset[slot]));
}

}  // namespace nimbra
