// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Meshes that need no file. All lie around the origin.
#pragma once

#include "tessra/geometry.h"

namespace nimbra::host {

/// A rectangle in the x-z plane that faces +y; size.x and size.z are its edges, `cells` the pieces
/// of each of them, from 1 to kMostCells.
TessUtils::TriangleMesh planeMesh(const TessUtils::Vector& size, int cells = 1);
inline constexpr int kMostCells = 4096;
/// A closed box with flat faces.
TessUtils::TriangleMesh boxMesh(const TessUtils::Vector& size);
/// A sphere (ellipsoid) with smooth normals whose poles lie on y; size holds its diameters,
/// `segments` the pieces of its equator, at least 8.
TessUtils::TriangleMesh sphereMesh(const TessUtils::Vector& size, int segments);

}  // namespace nimbra::host
