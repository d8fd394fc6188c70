// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A cubic spline over an integer parameter: the shape behind smooth curves and colour gradients.
#pragma once

#include <cstdint>

#include "foundation/array.h"

namespace NMBUtils {

/// Piecewise cubic. On the segment from knot i to knot i + 1, with u the way into it from 0 to 1,
/// the value is ((a*u + b)*u + c)*u + d of knot i, so d holds the knot's own value. Below parameter
/// 0 it goes on with slope c of the first knot, above the last knot with the last segment's end
/// slope 3a + 2b + c.
class NmbSpline {
public:
    struct Knot {
        float a, b, c, d;
    };
    enum Mode : std::uint32_t {
        kClosed = 1,            // the parameter wraps around at the last knot
        kClamp = 4,             // outside of the knots the nearest end's value holds
        kExtrapolateSolve = 8,  // solve answers a parameter outside of the knots where it must
    };

    explicit NmbSpline(std::uint32_t modeBits = 0) : mode(modeBits) {}

    /// The natural cubic (no curvature at both ends) through `values` at the parameters 0, 1, 2,
    /// ... False without memory: the spline is then empty.
    bool setValues(const float* values, int valueCount);
    bool setKnots(const Knot* source, int knotCount);

    /// The value at parameter u; 0 without knots.
    float eval(float u) const;
    /// The parameter at which the spline takes `value`, found by bisection between the first and
    /// the last knot, whichever of them is higher. A value outside of theirs gives the nearest end,
    /// or with kExtrapolateSolve the parameter on the straight line beyond that end.
    float solve(float value) const;

    NmbArray<Knot, int, 0> knots;
    int count = 0;
    std::uint32_t mode;

private:
    double evalSegments(double u) const;
    float endSlope() const;
};

}  // namespace NMBUtils
