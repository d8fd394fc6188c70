// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The colour of one accepted march step.
#include <algorithm>
#include <cmath>

#include "volume/light_cache.h"
#include "volume/step_segment.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

namespace {

Color toColor(const Vector& v) {
    return {v.x, v.y, v.z};
}

/// The motion of the step in the picture, weighted by its opacity.
Color velocityElement(const VolumeShader& shader, const RaySegment& segment,
                      Illuminator& illuminator) {
    const Vector velocity = shader.getVelocity(segment.samplePos) * illuminator.velocityScale;
    if (velocity == Vector{})
        return {};
    const NMBUtils::Matrix34& worldFromGrid = shader.worldFromGrid[0];
    Color projected;
    illuminator.projectVelocity(worldFromGrid.applyPoint(TessUtils::toPoint(segment.samplePos)),
                                worldFromGrid.applyVector(velocity), projected);
    return projected * mean(segment.alpha);
}

/// The direction in which opacity falls, in world space, by forward differences.
Color normalElement(const VolumeShader& shader, const RaySegment& segment, bool probabilistic) {
    const float h = shader.sampler == 0 ? 1.0f : 0.01f;
    // A random interaction counts as opaque; this is what its opacity was.
    const float inverse = segment.invAlpha;
    const float red = inverse != 0 ? 1 / inverse : 0;
    Vector gradient;
    for (int axis = 0; axis < 3; ++axis) {
        Vector shifted = segment.samplePos;
        shifted[axis] += h;
        VoxelSample sample;
        shader.sampleVoxel(shifted, sample, shader.sampleMask | kSampleT, nullptr, segment.time,
                           -1);
        const Color there = shader.getOpacity(sample, segment.stepWorld);
        gradient[axis] = probabilistic ? red - mean(there) : mean(segment.alpha - there);
    }
    Vector normal = shader.worldNormalFromGrid[0].applyVector(gradient);
    const float size = length(normal);
    const float largest = std::max({std::fabs(normal.x), std::fabs(normal.y), std::fabs(normal.z)});
    if (largest < size * 1e18f)
        normal = normal * (1 / size);
    return toColor(normal * (shader.has(kVolumetric) ? mean(segment.alpha) : 1.0f));
}

void clearElements(Illuminator& illuminator) {
    for (Color& element : illuminator.elements)
        element = {};
}

/// Elements that don't need light. Depth and age are set by others.
void writeUnlitElements(const VolumeShader& shader, const RaySegment& segment,
                        Illuminator& illuminator, bool probabilistic) {
    const std::uint32_t wanted = illuminator.elementMask;
    if ((wanted & 1u << kElementSelfIllumination) != 0)
        illuminator.elements[kElementSelfIllumination] = segment.color;
    if ((wanted & 1u << kElementVelocity) != 0)
        illuminator.elements[kElementVelocity] = velocityElement(shader, segment, illuminator);
    if ((wanted & 1u << kElementNormal) != 0)
        illuminator.elements[kElementNormal] = normalElement(shader, segment, probabilistic);
}

bool isLit(const VolumeShader& shader, std::uint32_t kind) {
    if ((kind & kKindVolumeLit) != 0 && (shader.visibility & kReceivesCaustics) == 0)
        return false;
    return shader.has(kLightCache | kVolumetric) || (kind & (kKindDiffuse | kKindGI)) != 0;
}

}  // namespace

void VolumeShader::shadeVoxel(RaySegment& segment, Illuminator& illuminator, bool probabilistic,
                              const VoxelSample& sample) const {
    const bool hit = segment.hitFlag != 0;
    if (!has(kEmissive)) {
        segment.color = {};
    } else if (fire_opacity_mode != kFireVisible) {
        segment.color = emissionForRay(*this, illuminator, sample, segment.stepWorld);
        if (!hit)
            segment.color *= segment.alpha;
        else if (probabilistic)
            segment.color = segment.color * segment.invAlpha;
    }
    illuminator.selectShader(*this);
    if (illuminator.elementMask != 0) {
        clearElements(illuminator);
        writeUnlitElements(*this, segment, illuminator, probabilistic);
    }
    if (!has(kDiffuse) || hit)
        return;
    Color q = getDiffuse(sample) * segment.alpha;
    if (noscatter != kScatterRayTraced)
        q = q * difmul;
    if (illuminator.elementMask != 0)
        illuminator.elements[kElementDiffuse] = q;
    if (isLit(*this, illuminator.kind)) {
        const bool useCache = has(kLightCache) && (illuminator.kind & kKindCacheFill) == 0;
        illuminateStep(useCache, segment, illuminator, q);
    }
}

void VolumeShader::shadeAtSample(RaySegment& segment, Illuminator& illuminator,
                                 bool probabilistic) const {
    VoxelSample sample;
    sampleVoxel(segment.samplePos, sample, sampleMask, nullptr, segment.time, sampler);
    shadeVoxel(segment, illuminator, probabilistic, sample);
}

void VolumeShader::illuminateStep(bool useCache, RaySegment& segment, Illuminator& illuminator,
                                  const Color& q) const {
    if (useCache)
        lightFromCache(segment, illuminator, q);
    else
        lightFromHost(segment, illuminator, q);
}

void VolumeShader::lightFromCache(RaySegment& segment, Illuminator& illuminator,
                                  const Color& q) const {
    Color light;
    if (lightCache)
        lightCache->lookup(light, *this, segment.samplePos, illuminator);
    const Color R = q * light;
    illuminator.lastDiffuse = q;
    segment.color += R;
    if (illuminator.elementMask == 0)
        return;
    Color* elements = illuminator.elements;
    elements[kElementRawLighting] = segment.alpha * light;
    elements[kElementRawTotalLighting] = elements[kElementRawLighting];
    elements[kElementLighting] = R;
    elements[kElementTotalLighting] = R;
    elements[kElementShadows] *= q;
    elements[kElementIndirect] *= q;
    elements[kElementRawShadows] *= segment.alpha;
    elements[kElementRawIndirect] *= segment.alpha;
}

void VolumeShader::lightFromHost(RaySegment& segment, Illuminator& illuminator,
                                 const Color& q) const {
    Color R;
    illuminator.illuminate(R, segment.samplePos, q, nullptr);
    if (selfShadowed)
        R += q * sampleSelfIllum(segment.samplePos);
    segment.color += R;
    if (illuminator.elementMask == 0)
        return;
    Color* elements = illuminator.elements;
    elements[kElementRawIndirect] *= segment.alpha;
    elements[kElementLighting] = R - elements[kElementIndirect];
    elements[kElementTotalLighting] = R;
    const std::uint32_t rawMask = 1u << kElementRawLighting | 1u << kElementRawTotalLighting;
    if ((illuminator.elementMask & rawMask) != 0) {
        Color& raw = elements[kElementRawTotalLighting];
        for (int i = 0; i < 3; ++i) {
            const float value = segment.alpha[i] * R[i];
            raw[i] = std::fabs(value) < std::fabs(q[i]) * 1e18f ? value / q[i] : 0;
        }
        elements[kElementRawLighting] = raw - elements[kElementRawIndirect];
    }
}

}  // namespace nimbra
