// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Which cells a filter reads along one axis, and with which weights: the plain rules, for any
// position. The samplers have a shorter way for positions away from the borders.
#pragma once

#include <cmath>
#include <cstdint>

#include "cache/grid_channel.h"

namespace nimbra {

/// Cells along one axis and their weights.
struct AxisTaps {
    int count;
    std::int32_t cell[3];
    float weight[3];
};

/// p limited to 0 to `last`; NaN becomes 0.
inline float clampToAxis(float p, float last) {
    p = p > 0.0f ? p : 0.0f;
    return p < last ? p : last;
}

/// p brought into [0, n) by whole periods of n cells, n > 0; what isn't finite becomes 0.
inline float wrapToAxis(float p, std::int32_t n, float last) {
    const float period = static_cast<float>(n);
    if (!(std::fabs(p) < period))
        p = std::fmod(p, period);
    if (p < 0.0f)
        p += period;
    // A tiny negative p rounds up to the period itself, which is its start again.
    if (!(p >= 0.0f && p < period))
        p = 0.0f;
    // Beyond 2^24 cells the period itself may be rounded up.
    constexpr std::int32_t kExactFloats = 1 << 24;
    return n > kExactFloats && p > last ? last : p;
}

/// Two neighbours by their distances. The position has been clamped or wrapped.
inline AxisTaps linearTaps(float p, std::int32_t n, bool wrap) {
    const auto low = static_cast<std::int32_t>(p);
    const float t = p - static_cast<float>(low);
    const std::int32_t high = low + 1 < n ? low + 1 : wrap ? 0 : n - 1;
    return {2, {low, high, 0}, {1.0f - t, t, 0.0f}};
}

/// The quadratic B-spline over the cell nearest to p and its neighbours; at a border that isn't
/// wrapped, linear between the two outermost cells; on fewer than 3 cells, cell 0 alone. A wrapped
/// position has been wrapped, any other is taken as it is.
inline AxisTaps sphericalTaps(float p, std::int32_t n, float last, bool wrap) {
    if (n < 3)
        return {1, {0, 0, 0}, {1.0f, 0.0f, 0.0f}};
    const float nearest = std::floor(clampToAxis(p + 0.5f, last + 1.0f));
    const auto c = static_cast<std::int64_t>(nearest);
    if (!wrap && c < 1) {
        const float t = p > 0.0f ? p : 0.0f;
        return {2, {0, 1, 0}, {1.0f - t, t, 0.0f}};
    }
    if (!wrap && c > n - 2) {
        const float d = p - static_cast<float>(n - 2);
        const float t = d < 1.0f ? d : 1.0f;
        return {2, {n - 2, n - 1, 0}, {1.0f - t, t, 0.0f}};
    }
    const float t = p - (nearest - 0.5f);
    const float half = t * t / 2.0f;
    const auto wrapped = [n](std::int64_t cell) {
        return static_cast<std::int32_t>(cell < 0 ? cell + n : cell < n ? cell : cell - n);
    };
    return {
        3, {wrapped(c - 1), wrapped(c), wrapped(c + 1)}, {half - t + 0.5f, t - t * t + 0.5f, half}};
}

}  // namespace nimbra
