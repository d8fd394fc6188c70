// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The look-ups that stand in the march steps themselves.
#pragma once

#include "volume/fast_exp.h"
#include "volume/lut_holder.h"
#include "volume/volume_shader.h"

namespace nimbra {

/// Opacity of a step through a density (<= 0) per world unit.
inline float stepOpacity(float density, float stepWorld) {
    return 1.0f - fastExp(density * stepWorld);
}

/// Opacity of a step through smoke, from its normalised value and without textures.
inline float smokeOpacity(const VolumeShader& shader, float t, float stepWorld) {
    if (!shader.opacityTable)
        return t == 0.0f ? 0.0f : stepOpacity(t * shader.smoketransp, stepWorld);
    const float density = shader.opacityTable[lutIndex(t)];
    return density == 0.0f ? 0.0f : stepOpacity(density, stepWorld);
}

}  // namespace nimbra
