// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A chain of cubic Bezier segments read as a function y of x.
#pragma once

namespace NMBUtils {

/// Control points come in threes, one group a knot: in-handle, knot, out-handle. Segment k runs
/// from knot k to knot k + 1. Knots must rise in x; where the handles make x fold back, one of the
/// solutions is taken.
class Bezier {
public:
    struct Point {
        float x, y;
    };
    /// What findSegment answers in place of a segment's number.
    enum { kBelow = -1, kAbove = -2, kNoSolution = -3 };

    /// y at x. Outside of the knots the line of the end tangent; 0 if there is no solution.
    static float eval(const Point* controlPoints, int pointCount, float x);
    /// The segment that holds x, with its local parameter in u.
    static int findSegment(const Point* controlPoints, int pointCount, float x, float& u);
};

}  // namespace NMBUtils
