// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frames around a direction, and maps from the unit square to directions.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tessra/math.h"

namespace nimbra::host {

inline constexpr float kPi = std::numbers::pi_v<float>;

/// Two unit vectors that form a right-handed frame with a unit vector.
struct Basis {
    TessUtils::Vector tangent, bitangent, normal;

    /// Duff et al., "Building an Orthonormal Basis, Revisited" (2017).
    explicit Basis(const TessUtils::Vector& n) : normal(n) {
        const float sign = std::copysign(1.0f, n.z);
        const float a = -1.0f / (sign + n.z);
        const float b = n.x * n.y * a;
        tangent = {1.0f + sign * n.x * n.x * a, sign * b, -sign * n.x};
        bitangent = {b, sign + n.y * n.y * a, -n.y};
    }
    TessUtils::Vector toWorld(const TessUtils::Vector& v) const {
        return tangent * v.x + bitangent * v.y + normal * v.z;
    }
};

/// A point of the unit disc, uniform (Shirley and Chiu, "A Low Distortion Map Between Disk and
/// Square", 1997).
inline void sampleDisc(const float u[2], float& x, float& y) {
    const float a = 2 * u[0] - 1, b = 2 * u[1] - 1;
    x = y = 0;
    if (a == 0 && b == 0)
        return;
    const bool wide = std::fabs(a) > std::fabs(b);
    const float radius = wide ? a : b;
    const float angle = wide ? kPi / 4 * (b / a) : kPi / 2 - kPi / 4 * (a / b);
    x = radius * std::cos(angle);
    y = radius * std::sin(angle);
}

/// A direction around +z with density cos(angle) / pi.
inline TessUtils::Vector sampleCosineHemisphere(const float u[2]) {
    TessUtils::Vector v;
    sampleDisc(u, v.x, v.y);
    v.z = std::sqrt(std::max(0.0f, 1 - v.x * v.x - v.y * v.y));
    return v;
}

/// A direction around +z, uniform over those within the angle whose cosine is given; 1 gives +z, -1
/// the whole sphere.
inline TessUtils::Vector sampleCone(const float u[2], float cosAngle) {
    const float z = 1 - u[0] * (1 - cosAngle);
    const float r = std::sqrt(std::max(0.0f, 1 - z * z));
    const float angle = 2 * kPi * u[1];
    return {r * std::cos(angle), r * std::sin(angle), z};
}

}  // namespace nimbra::host
