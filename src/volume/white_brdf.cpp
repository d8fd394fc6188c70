// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/white_brdf.h"

#include <algorithm>
#include <cmath>

namespace nimbra {

using TessUtils::Color;
using TessUtils::TraceRay;
using TessUtils::Vector;

namespace {

constexpr float kTwoPi = 6.2831855f;
constexpr double kUnlimited = 1e18;

/// Half a scene unit: closer lights don't grow brighter.
float nearLightFade(float distance) {
    const float squared = distance * distance;
    return std::isinf(squared) ? 1 : squared / (squared + 0.25f);
}

}  // namespace

Color MyWhiteBRDF::eval(const TraceRay& ray, const Vector& lightDir, Color& lightColor,
                        Color& rawColor, float distance) {
    Color result;
    const bool behind = !(ray.flags & TessUtils::kRayVolume) && dot(lightDir, normal) < 0;
    if (!behind) {
        float weight = giMode ? scatterMul : 1.0f;
        if (distance >= 0)
            weight *= nearLightFade(distance);
        const Color arriving = lightColor * weight;
        result = arriving * diffuse;
        if (recordElements) {
            (giMode ? rawGI : raw) += arriving;
            if (!giMode)
                illumination += rawColor * weight - arriving;
        }
    }
    lightColor = rawColor = {};
    return result;
}

Vector MyWhiteBRDF::sampleDirection(const TraceRay&, const float u[2], float& weight) {
    const float z = 2.0f * (u[0] - 0.5f);
    const float r = std::sqrt(std::max(1.0f - z * z, 0.0f));
    const float angle = kTwoPi * u[1];
    weight = 0.5f;
    rayLength = rayLimit > 0 ? rayLimit : kUnlimited;
    return {r * std::cos(angle), r * std::sin(angle), z};
}

}  // namespace nimbra
