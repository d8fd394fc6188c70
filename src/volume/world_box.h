// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Boxes in the world, and a first test of rays against them.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <limits>

#include "tessra/math.h"

namespace nimbra {

/// Empty (low above high) until something is included.
struct WorldBox {
    static constexpr double kFar = std::numeric_limits<double>::max();
    TessUtils::TracePoint low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};

    bool isEmpty() const { return !(low.x <= high.x); }
    void include(const WorldBox& other) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], other.low[axis]);
            high[axis] = std::max(high[axis], other.high[axis]);
        }
    }
};

/// A ray within [mint, maxt] of its unit direction, ready to be tested against many boxes.
class BoxRay {
public:
    BoxRay(const TessUtils::TracePoint& origin, const TessUtils::Vector& dir, float mint,
           float maxt)
        : xy_(_mm_loadu_pd(&origin.x)), z_(_mm_load_sd(&origin.z)), mint_(mint), maxt_(maxt) {
        const __m128 limit = _mm_set1_ps(1e18f), least = _mm_set1_ps(-1e18f);
        const __m128 inverse = _mm_div_ps(_mm_set1_ps(1), _mm_setr_ps(dir.x, dir.y, dir.z, 1));
        inverse_ = _mm_max_ps(least, _mm_min_ps(limit, inverse));
    }

    /// Slab test with a margin, since a volume's own test in its grid rounds differently: false
    /// only for rays that pass by. Not for empty boxes.
    bool mayMeet(const WorldBox& box) const {
        const __m128 a = _mm_mul_ps(wayTo(box.low), inverse_);
        const __m128 b = _mm_mul_ps(wayTo(box.high), inverse_);
        const __m128 entries = _mm_min_ps(a, b), exits = _mm_max_ps(a, b);
        const float entry = std::max({mint_, entries[0], entries[1], entries[2]});
        const float exit = std::min({maxt_, exits[0], exits[1], exits[2]});
        return !(entry > exit + 1e-4f * (1 + std::fabs(entry)));
    }

private:
    __m128 wayTo(const TessUtils::TracePoint& p) const {
        const __m128d xy = _mm_sub_pd(_mm_loadu_pd(&p.x), xy_);
        const __m128d z = _mm_sub_sd(_mm_load_sd(&p.z), z_);
        return _mm_movelh_ps(_mm_cvtpd_ps(xy), _mm_cvtpd_ps(z));
    }

    __m128d xy_, z_;
    __m128 inverse_;
    float mint_, maxt_;
};

}  // namespace nimbra
