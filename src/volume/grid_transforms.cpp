// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Derives the matrices of a container.
#include "volume/grid_transforms.h"

#include <cmath>

namespace nimbra {

using NMBUtils::Matrix34;
using TessUtils::TracePoint;

namespace {

/// Matrix34 in double precision.
struct Affine {
    TracePoint axis[3];
    TracePoint offset;

    TracePoint applyVector(const TracePoint& v) const {
        return axis[0] * v.x + axis[1] * v.y + axis[2] * v.z;
    }
    Matrix34 rounded() const {
        return {{toVector(axis[0]), toVector(axis[1]), toVector(axis[2])}, toVector(offset)};
    }
};

Affine widened(const Matrix34& m) {
    return {{toPoint(m.axis[0]), toPoint(m.axis[1]), toPoint(m.axis[2])}, toPoint(m.offset)};
}

Affine widened(const TessUtils::Transform& t) {
    return {{toPoint(t.f[0]), toPoint(t.f[1]), toPoint(t.f[2])}, t.offs};
}

/// First `inner`, then `outer`.
Affine composed(const Affine& outer, const Affine& inner) {
    Affine r;
    for (int i = 0; i < 3; ++i)
        r.axis[i] = outer.applyVector(inner.axis[i]);
    r.offset = outer.applyVector(inner.offset) + outer.offset;
    return r;
}

TracePoint crossed(const TracePoint& a, const TracePoint& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double dotted(const TracePoint& a, const TracePoint& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

/// By cofactors. A matrix without an inverse gives the one that maps all to the origin.
Affine inverted(const Affine& m) {
    const TracePoint rows[3] = {crossed(m.axis[1], m.axis[2]), crossed(m.axis[2], m.axis[0]),
                                crossed(m.axis[0], m.axis[1])};
    const double scale = 1.0 / dotted(m.axis[0], rows[0]);
    if (!std::isfinite(scale) || scale == 0.0)
        return {};
    Affine r;
    for (int i = 0; i < 3; ++i) {
        for (int axis = 0; axis < 3; ++axis)
            r.axis[axis][i] = rows[i][axis] * scale;
        r.offset[i] = -dotted(rows[i], m.offset) * scale;
    }
    return r;
}

}  // namespace

void GridTransforms::set(const Matrix34& objectToGrid, const TessUtils::Transform& objectToWorld) {
    const Affine grid = widened(objectToGrid), gridInverse = inverted(grid);
    const Affine world = widened(objectToWorld), worldInverse = inverted(world);
    gridFromObject = objectToGrid;
    objectFromGrid = gridInverse.rounded();
    worldFromObject = world.rounded();
    objectFromWorld = worldInverse.rounded();
    worldFromGrid = composed(world, gridInverse).rounded();
    gridFromWorld = composed(grid, worldInverse).rounded();
}

}  // namespace nimbra
