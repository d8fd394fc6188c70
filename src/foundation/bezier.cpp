// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/bezier.h"

namespace NMBUtils {
namespace {

double mix(double a, double b, double u) {
    return a + (b - a) * u;
}

// De Casteljau: repeated mixing of neighbours.
double cubic(double p0, double p1, double p2, double p3, double u) {
    const double a = mix(p0, p1, u), b = mix(p1, p2, u), c = mix(p2, p3, u);
    return mix(mix(a, b, u), mix(b, c, u), u);
}

// The line through the knot at `p[at]` along the tangent there: towards the next control point in
// direction `step` that isn't at the same place. Level where the tangent is upright.
float tangentLine(const Bezier::Point* p, int at, int step, float x) {
    for (int i = 1; i <= 3; ++i) {
        const float dx = p[at + i * step].x - p[at].x;
        if (dx != 0)
            return p[at].y + (p[at + i * step].y - p[at].y) / dx * (x - p[at].x);
        if (p[at + i * step].y != p[at].y)
            break;
    }
    return p[at].y;
}

}  // namespace

int Bezier::findSegment(const Point* controlPoints, int pointCount, float x, float& u) {
    const int knots = pointCount / 3;
    if (knots < 2 || x != x)
        return kNoSolution;
    if (x < controlPoints[1].x)
        return kBelow;
    if (x > controlPoints[3 * knots - 2].x)
        return kAbove;
    for (int k = 0; k + 1 < knots; ++k) {
        const Point* p = controlPoints + 3 * k + 1;
        if (!(x >= p[0].x && x <= p[3].x))
            continue;
        double low = 0, high = 1;
        for (int round = 0; round < 50; ++round) {
            const double middle = 0.5 * (low + high);
            if (cubic(p[0].x, p[1].x, p[2].x, p[3].x, middle) < x)
                low = middle;
            else
                high = middle;
        }
        u = static_cast<float>(0.5 * (low + high));
        return k;
    }
    return kNoSolution;
}

float Bezier::eval(const Point* controlPoints, int pointCount, float x) {
    float u = 0;
    const int segment = findSegment(controlPoints, pointCount, x, u);
    if (segment == kNoSolution)
        return 0;
    if (segment == kBelow)
        return tangentLine(controlPoints, 1, 1, x);
    if (segment == kAbove)
        return tangentLine(controlPoints, pointCount / 3 * 3 - 2, -1, x);
    const Point* p = controlPoints + 3 * segment + 1;
    return static_cast<float>(cubic(p[0].y, p[1].y, p[2].y, p[3].y, u));
}

}  // namespace NMBUtils
