// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One look into the grids of a volume.
#include <cfloat>
#include <cmath>

#include "cache/grid_samplers.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

namespace {

constexpr int kSampledSlots = 7;
constexpr std::uint32_t kSampledBits = kSampleScalars | kSampleColor;
static_assert(kSampleColor == 7u << kSlotColor);

/// Caches hold whatever a simulation left behind; what isn't a number counts as nothing.
float finite(float value) {
    return std::fabs(value) <= FLT_MAX ? value : 0.0f;
}

/// The last step of a ray ends on the box's face, and rounding may put it a little beyond.
constexpr float kFaceSlack = 1e-3f;

/// Whether a position lies in the grid's box; on periodic axes every position does.
bool insideBox(const VolumeShader& shader, const Vector& pos, std::uint32_t mask) {
    for (int axis = 0; axis < 3; ++axis) {
        const bool periodic = (mask & kSampleWrapX << axis) != 0;
        if (!periodic && !(pos[axis] >= shader.gridMin[axis] - kFaceSlack &&
                           pos[axis] <= shader.gridMax[axis] + kFaceSlack))
            return false;
    }
    return true;
}

}  // namespace

void VolumeShader::sampleVoxel(const Vector& pos, VoxelSample& sample, std::uint32_t mask,
                               Vector* /*velocityOut*/, float /*time*/, int filter) const {
    sample = {};
    if (!has(kHasGrid))
        return;
    sample.position = pos;
    if ((mask & kSampledBits) == 0)
        return;
    mask |= wrapFlags;
    float values[kSampledSlots] = {};
    if (insideBox(*this, sample.position, mask)) {
        const int type = filter == -1 ? sampler : filter;
        const int kernel = type * 8 + static_cast<int>((mask & kSampleWrap) / kSampleWrapX);
        const float at[3] = {sample.position.x, sample.position.y, sample.position.z};
        kSampleKernels[kernel](channels, at, values, kSampledSlots, mask & kSampleScalars,
                               mask & kSampleColor);
    }
    normalize(values, mask);
    sample.e = values[kSlotE];
    sample.d = values[kSlotD];
    sample.t = values[kSlotT];
    sample.s = values[kSlotS];
    sample.gridColor = {finite(values[kSlotColor]), finite(values[kSlotColor + 1]),
                        finite(values[kSlotColor + 2])};
    if (has(kTexSmoke) && (mask & kSampleS) != 0)
        sample.s = smokeFromTexture(sample.position);
}

void VolumeShader::normalize(float values[4], std::uint32_t mask) const {
    for (int i = 0; i < 4; ++i) {
        values[i] = finite(values[i]);
        if ((mask >> i & 1u) != 0 && (mask & kSampleRaw) == 0)
            values[i] = values[i] * inputScale[i] + inputOffset[i];
    }
}

float VolumeShader::smokeFromTexture(const Vector& pos) const {
    Color color;
    sampleTexture(color, 3, pos, pos);
    return (color.r + color.g + color.b) / 3 * inputScale[kSlotS] + inputOffset[kSlotS];
}

}  // namespace nimbra
