// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Moves the points of a mesh by a texture.
#pragma once

#include "tessra/geometry.h"
#include "tessra/progress.h"
#include "tessra/texture.h"

namespace nimbra::host {

enum class DisplacementType {
    Height = 0,  // red, along the normal
    Vector = 1,  // in the world: x and y stand in red and green as (v + 1) / 2, z in blue as it is
};

struct Displacement {
    TessUtils::TextureInterface* texture = nullptr;  // null: none
    int type = 0;                                    // DisplacementType
    float amount = 1;
    PluginBase* object = nullptr;  // whose mesh it is, for the texture
};

/// Sets the normals of all points to the mean of those of the triangles around, weighted by area.
void smoothNormals(TessUtils::TriangleMesh& mesh);

/// The mesh with its points moved and new smooth normals. The texture is asked in the middle of the
/// shutter at the points' places in the world, filtered to twice the length of the edges there:
/// what is shorter can't be shown. Points stay where its answer is not finite. `place` must be that
/// of the mesh, scene offset taken off. Ends early when `progress`, which may be null, is to stop.
/// Scene thread; throws std::bad_alloc.
TessUtils::TriangleMesh displaceMesh(const TessUtils::TriangleMesh& mesh,
                                     const TessUtils::Transform& place,
                                     const Displacement& displacement,
                                     TessUtils::ProgressCallback* progress);

}  // namespace nimbra::host
