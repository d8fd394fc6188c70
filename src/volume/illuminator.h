// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The marcher's access to lights, random numbers and render elements of one ray.
#pragma once

#include <cstdint>

#include "tessra/math.h"

namespace TessUtils {
struct TraceRay;
}

namespace nimbra {

class VolumeShader;
struct LightSelectRecord;
struct RaySegment;

/// Bits of Illuminator::kind: what sort of ray is marched.
enum RayKind : std::uint32_t {
    kKindCacheFill = 0x1,     // fills the light cache (or is secondary): doesn't read it
    kKindCacheLights = 0x2,   // lights of a cache voxel, with a seed of the voxel's own
    kKindCacheShadows = 0x4,  // shadows don't depend on the asking ray
    kKindDiffuse = 0x8,       // after a diffuse bounce
    kKindOwnShader = 0x10,    // the ray started in the shader selected last
    kKindVolumeLit = 0x20,
    kKindGI = 0x40,
    kKindAlwaysVisible = 0x80,
    kKindLightPass = 0x100,     // of a light-cache or irradiance pass
    kKindTransparency = 0x200,  // asks for transparency only
};

/// Entries of Illuminator::elements, and bits of elementMask.
enum RenderElement : int {
    kElementLighting = 0,
    kElementTotalLighting = 1,
    kElementRawLighting = 2,
    kElementRawTotalLighting = 3,
    kElementShadows = 4,  // light that shadows took away
    kElementRawShadows = 5,
    kElementIndirect = 6,  // GI; lighting is total lighting less this
    kElementRawIndirect = 7,
    kElementDiffuse = 8,
    kElementSelfIllumination = 9,
    kElementVelocity = 10,
    kElementNormal = 12,
    kElementZDepth = 13,
    kElementAge = 14,
    kElementCount = 15,
};

/// One per ray, on one thread.
class Illuminator {
public:
    virtual ~Illuminator() = default;
    /// The light that arrives at `pos` (grid space of the selected shader), times `diffuse`. With
    /// `record` the contributions of single lights go there too.
    virtual void illuminate(TessUtils::Color& out, const TessUtils::Vector& pos,
                            const TessUtils::Color& diffuse, LightSelectRecord* record) = 0;
    /// Diffuse bounces since the camera.
    virtual int bounceLevel() = 0;
    /// Uniform in [0, 1).
    virtual float random() = 0;
    /// Called before every step of a segment: whose grid space and settings hold from here.
    virtual void selectShader(const VolumeShader& shader) = 0;
    /// Sets elementMask from the render channels that this ray writes.
    virtual void beginElements() = 0;
    /// Gives `elements`, then the sums over the ray, to the render channels.
    virtual void writeElements() = 0;
    /// Dims a step's colour when the ray runs inside a medium with fog.
    virtual void applyMediumAttenuation(TessUtils::Color& color, const RaySegment& segment) = 0;
    /// The motion in the picture (pixels) of a point and its velocity in world space.
    virtual void projectVelocity(const TessUtils::TracePoint& point,
                                 const TessUtils::Vector& velocity, TessUtils::Color& out) = 0;
    /// Takes the ray's class over from the host's ray.
    virtual void initFromRay(const TessUtils::TraceRay* ray) = 0;
    virtual bool isLightCacheRay() const = 0;

    /// Without a medium around the ray applyMediumAttenuation needn't be called.
    bool inMedium = true;
    std::uint32_t elementMask = 0;
    std::uint32_t kind = 0;
    /// Shaders with one of these visibility bits don't take part.
    std::uint32_t exclusionMask = 0;
    TessUtils::Color transmittance{1, 1, 1};  // of the ray, up to the step at hand
    float screenPos[2] = {0, 0};
    int stepCounter = 0;
    const VolumeShader* currentShader = nullptr;
    TessUtils::Color elements[kElementCount];  // of the last step
    float velocityScale = 1;                   // length of a frame
    float jitter = 0;
    std::uint32_t seed = 0;        // added to the sampler's state where lights are sampled
    TessUtils::Color lastDiffuse;  // of the last step that was lit by the cache
};

}  // namespace nimbra
