// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/cone_box.h"

#include <algorithm>
#include <cmath>

namespace NMBUtils {

namespace {

double dotProduct(const double a[3], const double b[3]) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// The corners of a box are numbered by three bits, set where the corner is on the high side; the
/// edges join corners that differ in one bit.
constexpr int kEdges[12][2] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {0, 2}, {1, 3},
                               {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

bool segmentTouches(const double from[3], const double to[3], const double low[3],
                    const double high[3]) {
    double enter = 0;
    double leave = 1;
    for (int k = 0; k < 3; ++k) {
        const double step = to[k] - from[k];
        if (step == 0) {
            if (from[k] < low[k] || from[k] > high[k])
                return false;
            continue;
        }
        const double atLow = (low[k] - from[k]) / step;
        const double atHigh = (high[k] - from[k]) / step;
        enter = std::max(enter, std::min(atLow, atHigh));
        leave = std::min(leave, std::max(atLow, atHigh));
    }
    return enter <= leave;
}

}  // namespace

ConeBoxTest::ConeBoxTest(const KDRay& ray)
    : startRadius_(ray.startRadius), slope_(ray.radiusSlope) {
    for (int k = 0; k < 3; ++k) {
        origin_[k] = ray.origin[k];
        direction_[k] = ray.direction[k];
    }
    rcpLengthSq_ = 1 / dotProduct(direction_, direction_);
}

ConeBoxTest::Corner ConeBoxTest::see(const double corner[3]) const {
    double offset[3];
    for (int k = 0; k < 3; ++k)
        offset[k] = corner[k] - origin_[k];
    Corner result;
    result.t = dotProduct(offset, direction_) * rcpLengthSq_;
    for (int k = 0; k < 3; ++k)
        result.across.at[k] = offset[k] - direction_[k] * result.t;
    return result;
}

/// If the two meet at all, then either an edge of the box meets the cone, or one of them reaches
/// through the other's surface between the edges; bodyTouches tells the latter.
bool ConeBoxTest::touches(const float min[3], const float max[3], float tMin, float tMax) const {
    constexpr double kMargin = 1e-6;
    double low[3];
    double high[3];
    for (int k = 0; k < 3; ++k) {
        const double scale =
            std::max({std::fabs(double(min[k])), std::fabs(double(max[k])), std::fabs(origin_[k])});
        low[k] = min[k] - kMargin * scale;
        high[k] = max[k] + kMargin * scale;
    }
    Corner corners[8];
    double tLow = INFINITY;
    double tHigh = -INFINITY;
    for (int i = 0; i < 8; ++i) {
        const double corner[3] = {i & 1 ? high[0] : low[0], i & 2 ? high[1] : low[1],
                                  i & 4 ? high[2] : low[2]};
        corners[i] = see(corner);
        tLow = std::min(tLow, corners[i].t);
        tHigh = std::max(tHigh, corners[i].t);
    }
    tLow = std::max(tLow, double(tMin));
    tHigh = std::min(tHigh, double(tMax));
    if (tLow > tHigh)
        return false;
    for (const Corner& corner : corners) {
        const double radius = radiusAt(corner.t);
        if (corner.t >= tLow && corner.t <= tHigh &&
            dotProduct(corner.across.at, corner.across.at) <= radius * radius)
            return true;
    }
    for (const auto& edge : kEdges) {
        if (edgeTouches(corners[edge[0]], corners[edge[1]], tLow, tHigh))
            return true;
    }
    return bodyTouches(low, high, tLow, tHigh);
}

/// With s from 0 to 1 along the edge, the squared distance from the axis less the squared radius
/// is a quadratic in s: is it anywhere below 0 where t is within the limits? Its least value lies
/// at an end, or at its vertex where it opens upwards.
bool ConeBoxTest::edgeTouches(const Corner& from, const Corner& to, double tLow,
                              double tHigh) const {
    const double tStep = to.t - from.t;
    double begin = 0;
    double end = 1;
    if (tStep != 0) {
        const double atLow = (tLow - from.t) / tStep;
        const double atHigh = (tHigh - from.t) / tStep;
        begin = std::max(begin, std::min(atLow, atHigh));
        end = std::min(end, std::max(atLow, atHigh));
    } else if (from.t < tLow || from.t > tHigh) {
        return false;
    }
    if (begin > end)
        return false;
    double step[3];
    for (int k = 0; k < 3; ++k)
        step[k] = to.across.at[k] - from.across.at[k];
    const double radius = radiusAt(from.t);
    const double radiusStep = tStep * slope_;
    const auto excess = [&](double s) {
        double distanceSq = 0;
        for (int k = 0; k < 3; ++k) {
            const double value = from.across.at[k] + s * step[k];
            distanceSq += value * value;
        }
        const double reach = radius + s * radiusStep;
        return distanceSq - reach * reach;
    };
    if (excess(begin) <= 0 || excess(end) <= 0)
        return true;
    const double leading = dotProduct(step, step) - radiusStep * radiusStep;
    if (!(leading > 0))
        return false;
    const double linear = dotProduct(from.across.at, step) - radius * radiusStep;
    const double vertex = -linear / leading;
    return vertex > begin && vertex < end && excess(vertex) <= 0;
}

/// Where no edge meets the cone, a face that does is met in its middle, or not at all. So one point
/// of the cone in each face's plane decides; the line between the cone's outermost points along an
/// axis has such points for the two faces across that axis. If the whole cone lies in the box, so
/// do these lines.
bool ConeBoxTest::bodyTouches(const double low[3], const double high[3], double tLow,
                              double tHigh) const {
    // Where the radius changes sign the cone is two, tip to tip.
    double cuts[3] = {tLow, tHigh, tHigh};
    int pieces = 1;
    if (radiusAt(tLow) * radiusAt(tHigh) < 0) {
        cuts[1] = std::clamp(-startRadius_ / slope_, tLow, tHigh);
        pieces = 2;
    }
    for (int piece = 0; piece < pieces; ++piece) {
        for (int axis = 0; axis < 3; ++axis) {
            Point ends[2];
            findOutermost(axis, cuts[piece], cuts[piece + 1], ends);
            if (segmentTouches(ends[0].at, ends[1].at, low, high))
                return true;
        }
    }
    return false;
}

/// The lowest and the highest point along a world axis that the cone has from `tLow` to `tHigh`.
void ConeBoxTest::findOutermost(int axis, double tLow, double tHigh, Point ends[2]) const {
    // The direction across the ray that goes farthest along the axis.
    double outwards[3];
    for (int k = 0; k < 3; ++k)
        outwards[k] = (k == axis) - direction_[axis] * rcpLengthSq_ * direction_[k];
    const double length = std::sqrt(dotProduct(outwards, outwards));
    for (int side = 0; side < 2; ++side) {
        const double sign = side == 0 ? -1 : 1;
        double farthest = -INFINITY;
        for (const double t : {tLow, tHigh}) {
            const double scale = length > 0 ? sign * std::fabs(radiusAt(t)) / length : 0;
            Point point;
            for (int k = 0; k < 3; ++k)
                point.at[k] = origin_[k] + direction_[k] * t + outwards[k] * scale;
            if (!(sign * point.at[axis] <= farthest)) {
                farthest = sign * point.at[axis];
                ends[side] = point;
            }
        }
    }
}

}  // namespace NMBUtils
