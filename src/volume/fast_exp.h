// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The cheap exponential that turns optical depths into transmittances.
#pragma once

#include <bit>
#include <cstdint>

namespace nimbra {

/// exp(x) with a relative error below 1e-4 for x in [-87, 88]. The exponent and a rational
/// approximation of 2^f - 1 over the fraction f are put together as the bits of a float
/// (P. Mineiro's fastpow2, after N. Schraudolph, Neural Computation 11(4), 1999).
/// Below 2^-126 it stays there; above the range of a float it answers the last finite value; a NaN
/// gives 2^-126.
inline float fastExp(float x) {
    const float power = x * 1.442695f;
    const float bounded = power > -126.0f ? (power < 127.99f ? power : 127.99f) : -126.0f;
    const float whole = static_cast<float>(static_cast<int>(bounded));
    const float fraction = bounded - whole + (power < 0.0f ? 1.0f : 0.0f);
    const float exponent =
        bounded + 121.274055f + 27.728024f / (4.8425255f - fraction) - 1.4901291f * fraction;
    return std::bit_cast<float>(static_cast<std::int32_t>(exponent * 8388608.0f));
}

}  // namespace nimbra
