// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/kd_ray.h"

#include <algorithm>
#include <cmath>

namespace NMBUtils {

KDRay::KDRay(const TessUtils::Vector& from, const TessUtils::Vector& along, float near, float far)
    : origin(from), tMin(near), tMax(far) {
    setDirection(along);
}

void KDRay::setDirection(const TessUtils::Vector& along) {
    // Finite where the direction has a zero, so that no limit becomes 0 * infinity.
    constexpr float kLargest = 1e18f;
    direction = along;
    signMask = 0;
    for (int k = 0; k < 3; ++k) {
        reciprocal[k] = std::clamp(1.0f / along[k], -kLargest, kLargest);
        if (std::signbit(reciprocal[k]))
            signMask |= 1u << k;
    }
    rcpLengthSq = 1.0f / TessUtils::dot(along, along);
}

}  // namespace NMBUtils
