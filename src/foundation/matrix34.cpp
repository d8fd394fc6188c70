// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Products and inverses of affine matrices, computed in double precision.
#include "foundation/matrix34.h"

namespace NMBUtils {

using TessUtils::TracePoint;
using TessUtils::Vector;

namespace {

TracePoint crossProduct(const Vector& a, const Vector& b) {
    return {double(a.y) * b.z - double(a.z) * b.y, double(a.z) * b.x - double(a.x) * b.z,
            double(a.x) * b.y - double(a.y) * b.x};
}

double dotProduct(const Vector& a, const TracePoint& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// The rows of the inverse of the linear part; false if there is none.
bool inverseRows(const Matrix34& m, TracePoint rows[3]) {
    for (int i = 0; i < 3; ++i)
        rows[i] = crossProduct(m.axis[(i + 1) % 3], m.axis[(i + 2) % 3]);
    const double determinant = dotProduct(m.axis[0], rows[0]);
    const double scale = 1.0 / determinant;
    if (determinant == 0.0 || !std::isfinite(determinant) || !std::isfinite(scale))
        return false;
    for (int i = 0; i < 3; ++i)
        rows[i] = rows[i] * scale;
    return true;
}

}  // namespace

Matrix34 compose(const Matrix34& second, const Matrix34& first) {
    Matrix34 r;
    for (int i = 0; i < 3; ++i)
        r.axis[i] = toVector(second.applyVector(TessUtils::toPoint(first.axis[i])));
    r.offset = toVector(second.applyPoint(TessUtils::toPoint(first.offset)));
    return r;
}

Matrix34 inverse(const Matrix34& m) {
    TracePoint rows[3];
    if (!inverseRows(m, rows))
        return {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {0, 0, 0}};
    Matrix34 r;
    for (int i = 0; i < 3; ++i) {
        for (int axis = 0; axis < 3; ++axis)
            r.axis[axis][i] = static_cast<float>(rows[i][axis]);
        r.offset[i] = static_cast<float>(-dotProduct(m.offset, rows[i]));
    }
    return r;
}

Matrix34 normalMatrix(const Matrix34& m) {
    TracePoint rows[3];
    if (!inverseRows(m, rows))
        return {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {0, 0, 0}};
    return {{toVector(rows[0]), toVector(rows[1]), toVector(rows[2])}, {0, 0, 0}};
}

Matrix34 mix(const Matrix34& a, const Matrix34& b, float t) {
    const float s = 1.0f - t;
    Matrix34 r;
    for (int i = 0; i < 3; ++i)
        r.axis[i] = a.axis[i] * s + b.axis[i] * t;
    r.offset = a.offset * s + b.offset * t;
    return r;
}

}  // namespace NMBUtils
