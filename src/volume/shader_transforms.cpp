// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shader's place in the world, and that of its cutter.
#include "volume/volume_shader.h"

namespace nimbra {

using NMBUtils::compose;
using NMBUtils::inverse;
using NMBUtils::Matrix34;

void VolumeShader::setTransforms(const Matrix34& gridToObject, const Matrix34& objectToWorld,
                                 bool secondTime) {
    const int first = secondTime ? 1 : 0;
    worldFromGrid[first] = compose(objectToWorld, gridToObject);
    gridFromWorld[first] = compose(inverse(gridToObject), inverse(objectToWorld));
    worldNormalFromGrid[first] = normalMatrix(worldFromGrid[first]);
    if (!secondTime) {
        worldFromGrid[1] = worldFromGrid[0];
        gridFromWorld[1] = gridFromWorld[0];
        worldNormalFromGrid[1] = worldNormalFromGrid[0];
    }
    moving = !(worldFromGrid[0] == worldFromGrid[1]);
}

Matrix34 VolumeShader::gridFromWorldAt(float time) const {
    return moving ? mix(gridFromWorld[0], gridFromWorld[1], time) : gridFromWorld[0];
}

void VolumeShader::setGizmo(const GizmoObject* object, const Matrix34& worldFromGizmoStart,
                            const Matrix34& worldFromGizmoEnd) {
    gizmo = object;
    gizmoFromWorld[0] = inverse(worldFromGizmoStart);
    gizmoFromWorld[1] = inverse(worldFromGizmoEnd);
    gizmoMoving = !(gizmoFromWorld[0] == gizmoFromWorld[1]);
}

}  // namespace nimbra
