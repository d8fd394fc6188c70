// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Whether a cone between two planes across its axis touches a box.
#pragma once

#include "foundation/kd_tree/kd_ray.h"

namespace NMBUtils {

/// At t along the ray the cone reaches |startRadius + t * radiusSlope| away from it, for t from
/// tMin to tMax. Exact, in double precision, but for a margin that makes up for a caller who looks
/// at points in single precision.
class ConeBoxTest {
public:
    explicit ConeBoxTest(const KDRay& ray);
    bool touches(const float min[3], const float max[3], float tMin, float tMax) const;

private:
    struct Point {
        double at[3];
    };
    /// A corner of the box as the cone sees it.
    struct Corner {
        double t;
        Point across;  // from the axis to the corner
    };

    Corner see(const double corner[3]) const;
    double radiusAt(double t) const { return startRadius_ + t * slope_; }
    bool edgeTouches(const Corner& from, const Corner& to, double tLow, double tHigh) const;
    bool bodyTouches(const double low[3], const double high[3], double tLow, double tHigh) const;
    void findOutermost(int axis, double tLow, double tHigh, Point ends[2]) const;

    double origin_[3];
    double direction_[3];
    double rcpLengthSq_;
    double startRadius_;
    double slope_;
};

}  // namespace NMBUtils
