// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Natural cubic interpolation, see e.g. Press et al., "Numerical Recipes", section 3.3, with unit
// distances between the knots.
#include "foundation/nmb_spline.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace NMBUtils {
namespace {

// Second derivatives M of the natural cubic through y at unit distances: M_0 = M_(n-1) = 0 and
// M_(i-1) + 4 M_i + M_(i+1) = 6 (y_(i-1) - 2 y_i + y_(i+1)), by elimination and back substitution.
std::vector<double> naturalSecondDerivatives(const float* y, int n) {
    std::vector<double> m(n, 0.0), upper(n, 0.0);
    for (int i = 1; i + 1 < n; ++i) {
        const double right = 6.0 * ((double(y[i - 1]) - y[i]) + (double(y[i + 1]) - y[i]));
        const double pivot = 4.0 - upper[i - 1];
        upper[i] = 1.0 / pivot;
        m[i] = (right - m[i - 1]) / pivot;
    }
    for (int i = n - 2; i > 0; --i)
        m[i] -= upper[i] * m[i + 1];
    return m;
}

}  // namespace

bool NmbSpline::setValues(const float* values, int valueCount) {
    count = 0;
    if (valueCount <= 0 || !knots.SetSize(valueCount, nullptr, true))
        return valueCount <= 0;
    const std::vector<double> m = naturalSecondDerivatives(values, valueCount);
    for (int i = 0; i + 1 < valueCount; ++i) {
        const double rise = double(values[i + 1]) - values[i];
        knots[i] = {static_cast<float>((m[i + 1] - m[i]) / 6.0), static_cast<float>(m[i] / 2.0),
                    static_cast<float>(rise - (2.0 * m[i] + m[i + 1]) / 6.0), values[i]};
    }
    knots[valueCount - 1] = {0, 0, 0, values[valueCount - 1]};
    count = valueCount;
    return true;
}

bool NmbSpline::setKnots(const Knot* source, int knotCount) {
    count = 0;
    if (knotCount <= 0 || !knots.SetSize(knotCount, nullptr, true))
        return knotCount <= 0;
    std::copy(source, source + knotCount, knots.data);
    count = knotCount;
    return true;
}

float NmbSpline::endSlope() const {
    if (count < 2)
        return 0;
    const Knot& k = knots[count - 2];
    return 3.0f * k.a + 2.0f * k.b + k.c;
}

float NmbSpline::eval(float u) const {
    if (count <= 0)
        return 0;
    const float last = static_cast<float>(count - 1);
    if ((mode & kClosed) && count > 1) {
        u = std::fmod(u, last);
        if (u < 0)
            u += last;
    }
    if (!(u >= 0))
        return mode & kClamp ? knots[0].d : knots[0].d + knots[0].c * u;
    if (u >= last)
        return mode & kClamp ? knots[count - 1].d : knots[count - 1].d + endSlope() * (u - last);
    const int i = static_cast<int>(u);
    const Knot& k = knots[i];
    const float t = u - static_cast<float>(i);
    return ((k.a * t + k.b) * t + k.c) * t + k.d;
}

// The value between the first and the last knot in double precision, so that the bisection ends at
// the parameter's own accuracy and not at that of the value.
double NmbSpline::evalSegments(double u) const {
    const int i = std::min(static_cast<int>(u), count - 1);
    const Knot& k = knots[i];
    const double t = u - i;
    return ((k.a * t + k.b) * t + k.c) * t + k.d;
}

float NmbSpline::solve(float value) const {
    if (count <= 0)
        return 0;
    const float first = knots[0].d, last = knots[count - 1].d;
    const bool rising = first <= last;
    const float end = static_cast<float>(count - 1);
    const auto beyond = [&](float slope, float start, float startValue) {
        const bool extrapolate = (mode & kExtrapolateSolve) && slope != 0;
        return extrapolate ? start + (value - startValue) / slope : start;
    };
    if (rising ? value < first : value > first)
        return beyond(knots[0].c, 0, first);
    if (rising ? value > last : value < last)
        return beyond(endSlope(), end, last);

    // 60 halvings leave less than the spacing of floats for any count.
    double low = 0, high = end;
    for (int round = 0; round < 60; ++round) {
        const double middle = 0.5 * (low + high);
        const double there = evalSegments(middle);
        if (rising ? there < value : there > value)
            low = middle;
        else
            high = middle;
    }
    return static_cast<float>(high);
}

}  // namespace NMBUtils
