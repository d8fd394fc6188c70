// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One look into the grids of a volume.
#include <bit>
#include <cstddef>

#include "volume/color_ops.h"
#include "volume/voxel_lookup.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

namespace {

constexpr std::uint32_t kSampledBits = kSampleScalars | kSampleColor;
static_assert(kSampleColor == 7u << kSlotColor);
// The kernels write slot i to the i-th float of a sample.
static_assert(offsetof(VoxelSample, e) == kSlotE * sizeof(float));
static_assert(offsetof(VoxelSample, t) == kSlotT * sizeof(float));
static_assert(offsetof(VoxelSample, gridColor) == kSlotColor * sizeof(float));

}  // namespace

void VolumeShader::sampleVoxel(const Vector& pos, VoxelSample& sample, std::uint32_t mask,
                               Vector* /*velocityOut*/, float /*time*/, int filter) const {
    sample = {};
    if (!has(kHasGrid))
        return;
    sample.position = pos;
    const std::uint32_t wanted = mask & kSampledBits;
    if (wanted == 0)
        return;
    const std::uint32_t wrap = (mask | wrapFlags) & kSampleWrap;
    float* values = &sample.e;
    if (insideBox(*this, pos, wrap)) {
        const SampleKernel kernel = pickKernel(filter == -1 ? sampler : filter, wrap);
        kernel(channels, &pos.x, values, kSampledSlots, wanted, 0);
    }
    for (std::uint32_t left = wanted; left != 0; left &= left - 1) {
        const int slot = std::countr_zero(left);
        values[slot] = finiteOrZero(values[slot]);
        if (slot < kSlotColor && (mask & kSampleRaw) == 0)
            values[slot] = values[slot] * inputScale[slot] + inputOffset[slot];
    }
    if (has(kTexSmoke) && (mask & kSampleS) != 0)
        sample.s = smokeFromTexture(pos);
}

float VolumeShader::smokeFromTexture(const Vector& pos) const {
    Color color;
    sampleTexture(color, kSmokeTexture, pos, pos);
    return mean(color) * inputScale[kSlotS] + inputOffset[kSlotS];
}

}  // namespace nimbra
