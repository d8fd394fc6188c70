// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Derives the matrices of a container.
#include "volume/grid_transforms.h"

namespace nimbra {

using NMBUtils::compose;
using NMBUtils::inverse;
using NMBUtils::Matrix34;

void GridTransforms::set(const Matrix34& objectToGrid, const TessUtils::Transform& objectToWorld) {
    gridFromObject = objectToGrid;
    objectFromGrid = inverse(gridFromObject);
    worldFromObject = Matrix34::fromTransform(objectToWorld);
    objectFromWorld = inverse(worldFromObject);
    worldFromGrid = compose(worldFromObject, objectFromGrid);
    gridFromWorld = compose(gridFromObject, objectFromWorld);
}

}  // namespace nimbra
