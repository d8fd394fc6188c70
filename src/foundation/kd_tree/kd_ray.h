// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A ray or a cone on its way through a spatial index.
#pragma once

#include <cstdint>

#include "tessra/math.h"

namespace NMBUtils {

/// Points are origin + t * direction with t from tMin to tMax; the direction may have any length.
/// A trace shortens tMax to what it finds, so that each trace needs a ray of its own.
struct KDRay {
    TessUtils::Vector origin;
    TessUtils::Vector direction;
    TessUtils::Vector reciprocal;  // of the direction, each within +-1e18
    std::uint32_t signMask = 0;    // bit k: the reciprocal is negative along axis k
    float tMin = 0;
    float tMax = 1e18f;
    // A cone: at t it reaches startRadius + t * radiusSlope away from the ray.
    float startRadius = 0;
    float radiusSlope = 0;
    float rcpLengthSq = 0;  // 1 / squared length of the direction

    KDRay() = default;
    KDRay(const TessUtils::Vector& from, const TessUtils::Vector& along, float near = 0,
          float far = 1e18f);
    /// Sets the direction and all that follows from it.
    void setDirection(const TessUtils::Vector& along);
    TessUtils::Vector at(float t) const { return origin + direction * t; }
};

}  // namespace NMBUtils
