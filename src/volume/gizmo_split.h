// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Segments of one shader while a ray is cut up: the parts of BuildSegments.
#pragma once

#include "volume/ray_segment.h"

namespace nimbra {

/// The ray that is cut up, in world space, of unit direction.
struct WorldRay {
    TessUtils::TracePoint origin, dir;
    float length;
    float time;  // within the frame, 0 to 1
};

/// Carries the ray into the grid space of a shader and cuts it to the grid's box; false when it
/// misses the box.
bool enterGrid(RayBlock& ray, const VolumeShader& shader, const WorldRay& world);

/// Appends a segment of rayData.shader for rayData.ray as it stands. A ray without memory for it
/// goes on without it.
void addSegment(RayData& rayData);

/// Appends segments for those parts of rayData.ray that lie inside the shader's cutter, or outside
/// of it when it is inverted.
void splitByGizmo(RayData& rayData, const WorldRay& world);

}  // namespace nimbra
