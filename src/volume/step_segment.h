// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parts of a march step: private to the step operations.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "volume/fast_exp.h"
#include "volume/march_loop.h"
#include "volume/volume_shader.h"

namespace nimbra {

/// One call of stepSegment: what holds for all rounds, and the sample of the round at hand.
struct VolumeShader::Step {
    Step(const VolumeShader& owner, RaySegment& raySegment, Illuminator& rayIlluminator,
         float rayTime);

    void askForDiffuse();
    /// The random numbers of a segment's first step.
    void begin();
    /// Moves on to the next sample position; false past the end.
    bool advance();
    /// Samples the volume and finds the step's opacity; false for a step that shows nothing.
    bool findOpacity();
    /// Notes the sample as the segment's accepted step.
    void accept();
    /// The answer of a step without colour; false when there is nothing but glow.
    bool giveDiffuse(TessUtils::Color* diffuseOut) const;
    /// The fire's own opacity and its glow; false when nothing is left to show.
    bool findFire();
    void shade();
    void clear();
    bool leave();
    bool giveUp();

    const VolumeShader& shader;
    RaySegment& segment;
    Illuminator& illuminator;
    const float time;
    const bool colored;
    const bool emissive;
    const bool prob;
    const int filter;
    std::uint32_t mask;

    TessUtils::Vector pos;
    VoxelSample sample;
    float fade = 1;             // at the grid's border
    bool onlyEmission = false;  // a clear step that may still glow
    bool ownFire = false;       // its opacity is the fire's own

private:
    bool isProbabilistic() const;
    int pickFilter() const;
    std::uint32_t pickMask() const;
    bool skip();
    bool hasOwnFire() const;
    bool isClear() const;
    bool interacts();
    bool glow();
};

/// The emission of a step, none on a GI ray where lights stand for the fire.
inline TessUtils::Color emissionForRay(const VolumeShader& shader, const Illuminator& illuminator,
                                       const VoxelSample& sample, float stepWorld) {
    if ((illuminator.kind & kKindGI) != 0 && shader.has(kExtraLights))
        return {};
    return shader.getEmission(sample, stepWorld);
}

/// Distance to the grid's faces over `softb`, 0 to 1.
inline float borderFade(const VolumeShader& shader, const TessUtils::Vector& pos) {
    float b = shader.softb;
    for (int axis = 0; axis < 3; ++axis) {
        const float high = static_cast<float>(shader.gridSize[axis] - 1) - pos[axis];
        b = std::min(b, std::min(pos[axis], high));
    }
    return std::max(b, 0.0f) / shader.softb;
}

/// Thins the optical depth linearly: 1 - (1 - alpha)^fade. An opaque channel stays opaque.
inline void fadeOpacity(TessUtils::Color& alpha, float fade) {
    for (int i = 0; i < 3; ++i) {
        if (alpha[i] < 1)
            alpha[i] = 1 - fastExp(std::log(1 - alpha[i]) * fade);
    }
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
