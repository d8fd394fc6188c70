// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The light loop: all lights at one point, for the host's surfaces and for the volumes of its
// plug-ins.
#include <algorithm>

#include "host/integrator.h"
#include "host/integrator_thread.h"
#include "host/pixel_sampler.h"

namespace nimbra::host {

using TessUtils::BRDFSampler;
using TessUtils::Color;
using TessUtils::LightInterface;
using TessUtils::LightSample;
using TessUtils::LightSampler;
using TessUtils::RaySampler;
using TessUtils::ShadeData;
using TessUtils::ShadingContext;
using TessUtils::TraceRay;

namespace {

/// Ray classes that a shadow ray takes over from the ray that asks.
constexpr std::uint32_t kInherited = TessUtils::kRayReflection | TessUtils::kRayRefraction |
                                     TessUtils::kRayGI | TessUtils::kRayLightCachePass |
                                     TessUtils::kRayCaustics;

const TraceRay kNoHistory;

/// A number below 2 brought back below 1.
float fraction(float x) {
    return x < 1 ? x : x - 1;
}

/// The random numbers of one lit point: those of the ray, moved on by the point's seed, or those of
/// the seed alone.
class PointRandom final : public RaySampler {
public:
    PointRandom(RaySampler* ofRay, const ShadeData& data)
        : ofRay_(data.seedAlone ? nullptr : ofRay), seed_(data.sampleSeed) {
        if (!ofRay_)
            own_.start(data.sampleSeed, 0, 0, 0);
    }
    float next() override {
        if (!ofRay_)
            return own_.next();
        const float number = ofRay_->next();
        if (seed_ == 0)
            return number;
        // A shift of the whole set of numbers, which so stays as well spread as it was.
        return fraction(number + sampleDimension(seed_, 0, count_++));
    }

private:
    RaySampler* ofRay_;
    std::uint32_t seed_;
    std::uint32_t count_ = 0;
    PixelSampler own_;
};

/// Number i of a well-spread set of `count`: Hammersley's points, moved as a whole so that the
/// first lies where it was drawn.
void spread(const float first[2], int i, int count, float u[2]) {
    float inverse = 0;
    float digit = 0.5f;
    for (int bits = i; bits > 0; bits >>= 1, digit *= 0.5f)
        inverse += bits & 1 ? digit : 0;
    u[0] = fraction(first[0] + static_cast<float>(i) / static_cast<float>(count));
    u[1] = fraction(first[1] + inverse);
}

}  // namespace

/// One call of the loop.
struct Integrator::Lighting {
    ShadingContext& context;
    ShadeData& data;
    BRDFSampler& brdf;
    const TraceRay& ray;  // what the scattering function sees
    PointRandom random;
    /// What new rays take over from: where the light is to be the same whoever asks, a ray without
    /// a history.
    const TraceRay& asker = data.flags & TessUtils::kShadeFixedShadows ? kNoHistory : context.ray;

    bool shadows() const {
        return data.flags & (TessUtils::kShadeCastShadows | TessUtils::kShadeFixedShadows);
    }
    void setShadowRay(TraceRay& r, const LightSample& sample, LightInterface& light) const {
        r.p = data.position;
        r.dir = sample.direction;
        r.mint = 0;
        r.maxt = sample.distance < 0 ? 1e18 : sample.distance;
        r.time = asker.time;
        r.flags = TessUtils::kRayShadow | (asker.flags & kInherited);
        r.depth = asker.depth;
        r.diffuseLevel = asker.diffuseLevel;
        r.origin = data.object;
        r.light = light.getPlugin();
    }
};

void Integrator::illuminate(ShadingContext& context, ShadeData& data, BRDFSampler& brdf) {
    const bool isRenderThread =
        context.threadIndex >= 0 && static_cast<std::size_t>(context.threadIndex) < threads_.size();
    if (!isRenderThread || data.lightLevel == 0 || !(data.importance.maxComponent() > 0))
        return;
    const bool volumePoint = (data.flags & TessUtils::kShadeVolumePoint) != 0;
    if (volumePoint && (context.ray.flags & TessUtils::kRayVolume) == 0) {
        TraceRay ray = context.ray;
        ray.flags |= TessUtils::kRayVolume;
        lightBy({context, data, brdf, ray, PointRandom(context.sampler, data)});
    } else {
        lightBy({context, data, brdf, context.ray, PointRandom(context.sampler, data)});
    }
}

void Integrator::lightBy(Lighting&& lighting) {
    const ShadeData& data = lighting.data;

    if (!data.onlyLights) {
        for (LightInterface* light : scene_.lights)
            illuminateDirect(lighting, *light);
    } else {
        for (const PluginBase* plugin : *data.onlyLights) {
            const auto found = scene_.lightOf.find(plugin);
            if (found != scene_.lightOf.end())
                illuminateDirect(lighting, *found->second);
        }
    }
    illuminateIndirect(lighting);
}

void Integrator::illuminateDirect(Lighting& lighting, LightInterface& light) {
    ShadingContext& context = lighting.context;
    ShadeData& data = lighting.data;
    LightSampler* sampler = light.newLightSampler(context, data);
    if (!sampler)
        return;
    const bool shadows = lighting.shadows() && light.castsShadows();
    const int count = sampler->sampleCount();
    float first[2] = {0, 0};
    if (sampler->usesNumbers())
        for (float& number : first)
            number = lighting.random.next();
    for (int i = 0; i < count; ++i) {
        float u[2] = {first[0], first[1]};
        if (i > 0)
            spread(first, i, count, u);
        LightSample sample;
        if (!sampler->eval(u, sample))
            continue;
        // A light behind the surface needs no shadow ray.
        if (!(data.flags & TessUtils::kShadeVolumePoint) && dot(data.normal, sample.direction) <= 0)
            continue;
        Color visible{1, 1, 1};
        if (shadows)
            visible = visibility(lighting, sample, light);
        Color raw = sample.color * data.lightLevel;
        Color lit = raw * visible;
        data.sums.rawDirect += raw;
        data.sums.shadow += raw - lit;
        data.sums.direct +=
            lighting.brdf.eval(lighting.ray, sample.direction, lit, raw, sample.distance);
    }
    light.deleteLightSampler(sampler, context.threadIndex);
}

Color Integrator::visibility(Lighting& lighting, const LightSample& sample, LightInterface& light) {
    const ShadingContext& asking = lighting.context;
    Thread& thread = *threads_[static_cast<std::size_t>(asking.threadIndex)];
    Nested nested(thread);
    TraceContext* context = nested.context();
    if (!context)
        return {1, 1, 1};
    thread.countRay();
    context->sampler = &lighting.random;
    context->screenX = asking.screenX;
    context->screenY = asking.screenY;
    lighting.setShadowRay(context->ray, sample, light);
    return visibility(*context);
}

void Integrator::illuminateIndirect(Lighting& lighting) {
    ShadingContext& asking = lighting.context;
    const TraceRay& asker = lighting.asker;
    ShadeData& data = lighting.data;
    const RenderSettings& settings = scene_.settings;
    if (!settings.globalIllumination || (data.flags & TessUtils::kShadeNotInGI) ||
        data.giLevel == 0 || asker.diffuseLevel >= settings.giBounces ||
        asker.depth >= settings.rayDepth)
        return;
    Thread& thread = *threads_[static_cast<std::size_t>(asking.threadIndex)];
    Nested nested(thread);
    TraceContext* context = nested.context();
    if (!context)
        return;

    const float u[2] = {lighting.random.next(), lighting.random.next()};
    float weight = 1;
    TraceRay ray;
    ray.p = data.position;
    ray.dir = lighting.brdf.sampleDirection(lighting.ray, u, weight);
    if (!(weight > 0))
        return;
    ray.maxt = std::min(lighting.brdf.rayLength, 1e18);
    ray.time = asker.time;
    ray.flags =
        TessUtils::kRayPath | TessUtils::kRayGI | (asker.flags & TessUtils::kRayLightCachePass);
    ray.depth = asker.depth + 1;
    ray.diffuseLevel = asker.diffuseLevel + 1;
    ray.origin = data.object;

    context->sampler = &lighting.random;
    context->screenX = asking.screenX;
    context->screenY = asking.screenY;
    context->giRayLimit = asking.giRayLimit;
    context->ray = ray;
    Color found = trace(*context).color * (weight * data.lightLevel * data.giLevel);
    Color raw = found;
    lighting.brdf.giMode = true;
    data.sums.gi += lighting.brdf.eval(lighting.ray, ray.dir, found, raw, -1);
    lighting.brdf.giMode = false;
}

}  // namespace nimbra::host
