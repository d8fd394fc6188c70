// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the march steps share: private to the step operations.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "volume/color_ops.h"
#include "volume/fast_exp.h"
#include "volume/march_loop.h"
#include "volume/volume_shader.h"

namespace nimbra {

/// The emission of a step, none on a GI ray where lights stand for the fire.
inline TessUtils::Color emissionForRay(const VolumeShader& shader, const Illuminator& illuminator,
                                       const VoxelSample& sample, float stepWorld) {
    if ((illuminator.kind & kKindGI) != 0 && shader.has(kExtraLights))
        return {};
    return shader.getEmission(sample, stepWorld);
}

/// Distance to the grid's faces over `softb`, 0 to 1; a border of half a cell or less doesn't fade.
inline float borderFade(const VolumeShader& shader, const TessUtils::Vector& pos) {
    if (!(shader.softb > 0.5f))
        return 1;
    float b = shader.softb;
    for (int axis = 0; axis < 3; ++axis) {
        const float high = static_cast<float>(shader.gridSize[axis] - 1) - pos[axis];
        b = std::min(b, std::min(pos[axis], high));
    }
    return std::max(b, 0.0f) / shader.softb;
}

/// Thins the optical depth linearly: 1 - (1 - alpha)^fade. An opaque channel stays opaque, and a
/// fade of 1 changes nothing.
inline void fadeOpacity(TessUtils::Color& alpha, float fade) {
    if (!(fade < 1))
        return;
    for (int i = 0; i < 3; ++i) {
        if (alpha[i] < 1)
            alpha[i] = 1 - fastExp(std::log(1 - alpha[i]) * fade);
    }
}

/// The filter by which a step reads the grid. Rays that are many and blurred take the cheapest one.
inline int pickFilter(const VolumeShader& shader, std::uint32_t kind) {
    if ((kind & (kKindGI | kKindLightPass)) != 0)
        return 0;
    const bool cheap = (kind & kKindTransparency) != 0;
    return cheap ? std::min(shader.sampler, 1) : shader.sampler;
}

/// Whether the map of empty voxels marks the voxel of a position; never outside the grid.
inline bool isMarkedEmpty(const VolumeShader& shader, const TessUtils::Vector& pos) {
    std::int64_t index = 0;
    for (int axis = 2; axis >= 0; --axis) {
        const float cell =
            shader.sampler == 2 ? std::floor(pos[axis] + 0.5f) : std::trunc(pos[axis]);
        if (!(cell >= 0 && cell < static_cast<float>(shader.gridSize[axis])))
            return false;
        index = index * shader.gridSize[axis] + static_cast<std::int64_t>(cell);
    }
    return (shader.emptyMapBits[index >> 5] >> (index & 31) & 1u) != 0;
}

}  // namespace nimbra
