// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// An affine 3 x 4 matrix in single precision: three axis vectors and an offset.
#pragma once

#include "tessra/math.h"

namespace NMBUtils {

/// p' = p.x * axis[0] + p.y * axis[1] + p.z * axis[2] + offset.
struct Matrix34 {
    TessUtils::Vector axis[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    TessUtils::Vector offset;

    bool operator==(const Matrix34&) const = default;

    /// From the 12 floats of a cache frame: x, y and z axis, then the offset.
    static Matrix34 fromFloats(const float m[12]) {
        return {{{m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]}}, {m[9], m[10], m[11]}};
    }
    static Matrix34 fromTransform(const TessUtils::Transform& t) {
        return {{t.f[0], t.f[1], t.f[2]}, TessUtils::toVector(t.offs)};
    }

    TessUtils::Vector applyVector(const TessUtils::Vector& v) const {
        return axis[0] * v.x + axis[1] * v.y + axis[2] * v.z;
    }
    TessUtils::Vector applyPoint(const TessUtils::Vector& p) const {
        return applyVector(p) + offset;
    }
    /// The image of a point or direction of the world, summed in double precision.
    TessUtils::TracePoint applyPoint(const TessUtils::TracePoint& p) const {
        return applyVector(p) + TessUtils::toPoint(offset);
    }
    TessUtils::TracePoint applyVector(const TessUtils::TracePoint& v) const {
        TessUtils::TracePoint r;
        for (int a = 0; a < 3; ++a)
            r[a] = double(axis[0][a]) * v.x + double(axis[1][a]) * v.y + double(axis[2][a]) * v.z;
        return r;
    }
};

/// The matrix that applies `first` and then `second`, summed in double precision.
Matrix34 compose(const Matrix34& second, const Matrix34& first);

/// The inverse, computed in double precision and rounded once. A singular matrix (no volume, or not
/// finite) has no inverse: the answer maps every point to the origin.
Matrix34 inverse(const Matrix34& m);

/// The matrix for normals (rows are covectors): the inverse transposed, without an offset.
Matrix34 normalMatrix(const Matrix34& m);

/// (1 - t) * a + t * b, element by element.
Matrix34 mix(const Matrix34& a, const Matrix34& b, float t);

}  // namespace NMBUtils
