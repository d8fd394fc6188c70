// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The matrices between the grid, object and world space of a container.
#pragma once

#include "foundation/matrix34.h"

namespace nimbra {

/// All matrices are derived in double precision and rounded once. Identity until `set`.
class GridTransforms {
public:
    /// `objectToGrid` is the frame's own transform (object space to cells), `objectToWorld` the
    /// container's place in the scene.
    void set(const NMBUtils::Matrix34& objectToGrid, const TessUtils::Transform& objectToWorld);

    NMBUtils::Matrix34 gridFromObject, objectFromGrid;
    NMBUtils::Matrix34 worldFromObject, objectFromWorld;
    NMBUtils::Matrix34 worldFromGrid, gridFromWorld;
};

}  // namespace nimbra
