// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reading the grids of a shader: private to sampleVoxel and the march steps.
#pragma once

#include <cfloat>
#include <cmath>

#include "cache/grid_samplers.h"
#include "volume/volume_shader.h"

namespace nimbra {

/// Slots 0 to 6 are what samples consist of.
inline constexpr int kSampledSlots = 7;

/// The last step of a ray ends on the box's face, and rounding may put it a little beyond.
inline constexpr float kFaceSlack = 1e-3f;

inline bool withinFaces(float p, float size) {
    return p >= -kFaceSlack && p <= size + kFaceSlack;
}

/// Whether a position lies in the grid's box; on periodic axes (kSampleWrap bits) all do.
inline bool insideBox(const VolumeShader& shader, const TessUtils::Vector& pos,
                      std::uint32_t wrap) {
    const TessUtils::Vector& size = shader.gridMax;
    if (wrap == 0) [[likely]]
        return withinFaces(pos.x, size.x) && withinFaces(pos.y, size.y) &&
               withinFaces(pos.z, size.z);
    return ((wrap & kSampleWrapX) != 0 || withinFaces(pos.x, size.x)) &&
           ((wrap & kSampleWrapY) != 0 || withinFaces(pos.y, size.y)) &&
           ((wrap & kSampleWrapZ) != 0 || withinFaces(pos.z, size.z));
}

/// Caches hold whatever a simulation left behind; what isn't a number counts as nothing.
inline float finiteOrZero(float value) {
    return std::fabs(value) <= FLT_MAX ? value : 0.0f;
}

inline SampleKernel pickKernel(int filter, std::uint32_t wrap) {
    return kSampleKernels[filter * 8 + static_cast<int>(wrap / kSampleWrapX)];
}

/// One of e, d, t, s, normalised.
inline float sampleScalar(const VolumeShader& shader, SampleKernel kernel, int slot,
                          const TessUtils::Vector& pos) {
    float values[4] = {};
    if (insideBox(shader, pos, shader.wrapFlags))
        kernel(shader.channels, &pos.x, values, kSampledSlots, 1u << slot, 0);
    return finiteOrZero(values[slot]) * shader.inputScale[slot] + shader.inputOffset[slot];
}

}  // namespace nimbra
