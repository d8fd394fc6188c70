// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How a volume shader turns what it read from the grid into light, colour and opacity: one
// multiplication, one clamp and one read of a table each.
#include <algorithm>
#include <cmath>

#include "volume/shading_lookup.h"

namespace nimbra {
namespace {

using TessUtils::Color;

/// Faint fire leaves the opacity to the smoke.
constexpr float kFaintestFire = -0.001f;

Color tableColor(const float* table, float value) {
    const float* entry = table + 3 * lutIndex(value);
    return {entry[0], entry[1], entry[2]};
}

Color textureColor(const VolumeShader& shader, int index, const VoxelSample& sample) {
    Color color;
    shader.sampleTexture(color, index, sample.position, sample.position);
    return color;
}

Color gray(float v) {
    return {v, v, v};
}

}  // namespace

Color VolumeShader::getOpacity(const VoxelSample& sample, float stepWorld) const {
    if (has(kTexOpacity)) {
        Color out = textureColor(*this, kOpacityTexture, sample);
        for (int i = 0; i < 3; ++i)
            out[i] = 1.0f - std::pow(1.0f - std::clamp(out[i], 0.0f, 1.0f), stepWorld);
        return out;
    }
    const float opacity = smokeOpacity(*this, sample.t, stepWorld);
    if (has(kModOpacity) && opacity > 0.0f)
        return textureColor(*this, kOpacityTexture, sample) * opacity;
    return gray(opacity);
}

Color VolumeShader::getEmission(const VoxelSample& sample, float stepWorld) const {
    if (!has(kEmissive))
        return {};
    Color color;
    if (has(kTexEmissive)) {
        color = textureColor(*this, kEmissionTexture, sample);
    } else {
        color = emissionTable ? tableColor(emissionTable, sample.e) : sample.gridColor;
        if (has(kModEmissive))
            color *= textureColor(*this, kEmissionTexture, sample);
    }
    if (fire_opacity_mode == kFireOwnOpacity) {
        if (fireOpacityTable) {
            const float density = fireOpacityTable[lutIndex(sample.e)];
            color = density == 0.0f ? Color{} : color * stepOpacity(density, stepWorld);
        } else {
            color = sample.gridColor;
        }
    }
    return {std::max(color.r, 0.0f), std::max(color.g, 0.0f), std::max(color.b, 0.0f)};
}

Color VolumeShader::getDiffuse(const VoxelSample& sample) const {
    if (has(kTexDiffuse))
        return textureColor(*this, kDiffuseTexture, sample);
    Color color = simpleColor;
    if (diffuseTable)
        color = tableColor(diffuseTable, sample.d);
    else if (useGridColor && (sampleMask & kSampleColor))
        color = sample.gridColor;
    if (has(kModDiffuse))
        color *= textureColor(*this, kDiffuseTexture, sample);
    return color;
}

bool VolumeShader::getFireOpacity(const VoxelSample& sample, float stepWorld, Color& out) const {
    if (!fireOpacityTable)
        return false;
    const float density = fireOpacityTable[lutIndex(sample.e)];
    if (density >= kFaintestFire)
        return false;
    out = gray(stepOpacity(density, stepWorld));
    return true;
}

}  // namespace nimbra
