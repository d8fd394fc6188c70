// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/illuminator_tessra.h"

#include <algorithm>
#include <cmath>

#include "volume/ray_kind.h"
#include "volume/ray_segment.h"
#include "volume/volume_shade_data.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::ShadingContext;
using TessUtils::TracePoint;
using TessUtils::TraceRay;
using TessUtils::Vector;

namespace {

/// The element that a render channel shows; -1: none of a volume's.
struct ChannelElement {
    int alias;
    RenderElement element;
};
constexpr ChannelElement kElementByAlias[] = {
    {TessUtils::kChannelLighting, kElementLighting},
    {TessUtils::kChannelTotalLighting, kElementTotalLighting},
    {TessUtils::kChannelRawLighting, kElementRawLighting},
    {TessUtils::kChannelRawTotalLighting, kElementRawTotalLighting},
    {TessUtils::kChannelShadow, kElementShadows},
    {TessUtils::kChannelRawShadow, kElementRawShadows},
    {TessUtils::kChannelGI, kElementIndirect},
    {TessUtils::kChannelRawGI, kElementRawIndirect},
    {TessUtils::kChannelDiffuse, kElementDiffuse},
    {TessUtils::kChannelSelfIllumination, kElementSelfIllumination},
    {TessUtils::kChannelVelocity, kElementVelocity},
};

int elementOf(const TessUtils::RenderChannelRef& channel) {
    for (const ChannelElement& known : kElementByAlias)
        if (known.alias == channel.alias)
            return known.element;
    if (channel.name == "TessraVolumeGrid_normals")
        return kElementNormal;
    if (channel.name == "TessraVolumeGrid_zDepth")
        return kElementZDepth;
    if (channel.name == "TessraVolumeGrid_age")
        return kElementAge;
    return -1;
}

constexpr std::uint32_t bit(int element) {
    return 1u << element;
}

/// What the light loop fills: lighting, total lighting, shadows, GI and their raw forms.
constexpr std::uint32_t kLightingElements = 0xFF;

/// Marks the ray as that of a volume point while the light loop runs.
class VolumePointRay {
public:
    explicit VolumePointRay(TraceRay& ray) : ray_(ray), flags_(ray.flags) {
        ray_.flags |= TessUtils::kRayVolume;
    }
    ~VolumePointRay() { ray_.flags = flags_; }
    VolumePointRay(const VolumePointRay&) = delete;
    VolumePointRay& operator=(const VolumePointRay&) = delete;

private:
    TraceRay& ray_;
    std::uint32_t flags_;
};

const VolumeShaderTessra& asTessra(const VolumeShader& shader) {
    return static_cast<const VolumeShaderTessra&>(shader);
}

}  // namespace

IlluminatorTessra::IlluminatorTessra(ShadingContext* context,
                                     const TessUtils::RenderChannelListInterface* channels)
    : rayContext(context), channels_(channels) {
    inMedium = context && context->fog.unit > 0;
    if (!context)
        return;
    screenPos[0] = context->screenX;
    screenPos[1] = context->screenY;
    initFromRay(&context->ray);
}

void IlluminatorTessra::initFromRay(const TraceRay* ray) {
    hostRay = ray;
    kind = ray ? rayKind(*ray) : 0;
}

int IlluminatorTessra::bounceLevel() {
    return hostRay ? hostRay->diffuseLevel : 0;
}

bool IlluminatorTessra::isLightCacheRay() const {
    return hostRay && (hostRay->flags & TessUtils::kRayLightCachePass) != 0;
}

float IlluminatorTessra::random() {
    if (rayContext && rayContext->sampler)
        return rayContext->sampler->next();
    localState_ = localState_ * 0x41C64E6Du + 0x3039u;
    return static_cast<float>(localState_) * 2.3283064370807974e-10f * 0.999999f;
}

void IlluminatorTessra::selectShader(const VolumeShader& shader) {
    currentShader = &shader;
    const bool own = hostRay && hostRay->origin == asTessra(shader).hostObject();
    kind = own ? kind | kKindOwnShader : kind & ~kKindOwnShader;
}

/// Light that was scattered before is left out where the volume approximates scattering itself.
bool IlluminatorTessra::scatteredLightCounts() const {
    const bool isGI = hostRay && (hostRay->flags & TessUtils::kRayGI) != 0;
    if (!isGI || currentShader->noscatter == kScatterRayTraced)
        return true;
    return hostRay->diffuseLevel <= 1 && hostRay->origin != asTessra(*currentShader).hostObject();
}

TracePoint IlluminatorTessra::worldPoint(const Vector& pos) const {
    // Whoever asks for a voxel of the cache first, its place is that at the start of the frame, for
    // which the host traces such shadows.
    const float time = kind & kKindCacheShadows ? 0 : hostRay->time;
    return asTessra(*currentShader).worldFromGridPoint(pos, time);
}

void IlluminatorTessra::setupPoint(TessUtils::ShadeData& data, const Color& diffuse) const {
    const VolumeShaderTessra& shader = asTessra(*currentShader);
    data.sampleSeed = seed;
    if (kind & kKindCacheLights) {
        const float most = std::max({diffuse.r, 0.1f, diffuse.g, diffuse.b});
        data.importance = {most, most, most};
        data.seedAlone = true;
    }
    if (kind & kKindCacheShadows) {
        data.flags &= ~TessUtils::kShadeCastShadows;
        data.flags |= TessUtils::kShadeFixedShadows;
        data.transparency = {1, 1, 1};
    }
    data.flags |= TessUtils::kShadeVolumePoint;
    if (kind & kKindVolumeLit)
        data.lightLevel *= shader.lightScale;
    shader.setupShading(*rayContext, data);
    if (!(shader.visibility & kReceivesGI))
        data.flags |= TessUtils::kShadeNotInGI;
}

void IlluminatorTessra::illuminate(Color& out, const Vector& pos, const Color& diffuse,
                                   LightSelectRecord*) {
    out = {};
    if (!rayContext || !hostRay || !currentShader || !scatteredLightCounts())
        return;
    VolumeShadeData data(rayContext->lights, worldPoint(pos), -hostRay->dir);
    setupPoint(data, diffuse);
    MyWhiteBRDF brdf;
    brdf.diffuse = diffuse;
    brdf.scatterMul = currentShader->brdfscatter;
    brdf.normal = data.normal;
    brdf.rayLimit = rayContext->giRayLimit;
    brdf.recordElements = (elementMask & kLightingElements) != 0;
    {
        const VolumePointRay volumePoint(rayContext->ray);
        data.illuminate(*rayContext, data, brdf);
    }
    out = data.sums.direct + data.sums.gi;
    if (brdf.recordElements)
        fillElements(data.sums, brdf);
}

void IlluminatorTessra::fillElements(const TessUtils::LightingSums& sums, const MyWhiteBRDF& brdf) {
    elements[kElementLighting] = sums.direct;
    elements[kElementTotalLighting] = sums.direct + sums.gi;
    elements[kElementRawLighting] = brdf.raw;
    elements[kElementRawTotalLighting] = brdf.raw + brdf.rawGI;
    elements[kElementShadows] = brdf.illumination * brdf.diffuse;
    elements[kElementRawShadows] = brdf.illumination;
    elements[kElementIndirect] = sums.gi;
    elements[kElementRawIndirect] = brdf.rawGI;
}

void IlluminatorTessra::beginElements() {
    elementMask = 0;
    std::fill(std::begin(elements), std::end(elements), Color());
    // A surface's colour is asked for by the host, channels or not.
    if (currentShader && !currentShader->has(kLightCache | kVolumetric))
        elementMask |= bit(kElementDiffuse);
    if (!channels_ || !hostRay)
        return;
    const bool firstHit = (hostRay->flags & TessUtils::kRayFirstHit) != 0;
    for (const TessUtils::RenderChannelRef& channel : channels_->channels) {
        const int element = elementOf(channel);
        if (element < 0 || (element >= kElementNormal && !firstHit))
            continue;
        if (element == kElementZDepth && channel.index < 0)
            continue;
        if (element == kElementNormal && bounceLevel() != 0)
            continue;
        elementMask |= bit(element);
    }
}

void IlluminatorTessra::writeElements() {
    if (!channels_ || !rayContext || !rayContext->channels)
        return;
    std::vector<Color>& values = rayContext->channels->values;
    for (const TessUtils::RenderChannelRef& channel : channels_->channels) {
        const int element = elementOf(channel);
        if (element >= 0 && (elementMask & bit(element)) && channel.index >= 0 &&
            channel.index < static_cast<int>(values.size()))
            values[channel.index] = elements[element];
    }
}

void IlluminatorTessra::applyMediumAttenuation(Color& color, const RaySegment& segment) {
    if (!rayContext || !(rayContext->fog.unit > 0))
        return;
    // Black fog would be opaque at once and brighter than white would add light.
    constexpr float kDarkest = 1e-6f, kClearest = 1;
    const float thickness = segment.tCur / rayContext->fog.unit - 1.0f;
    for (int i = 0; i < 3; ++i)
        color[i] *= std::pow(std::clamp(rayContext->fog.color[i], kDarkest, kClearest), thickness);
}

void IlluminatorTessra::projectVelocity(const TracePoint& point, const Vector& velocity,
                                        Color& out) {
    const Vector motion = rayContext ? rayContext->projectVelocity(point, velocity) : Vector();
    out = {motion.x, motion.y, motion.z};
}

}  // namespace nimbra
