// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/integrator.h"

#include <algorithm>
#include <cmath>

#include "host/integrator_thread.h"
#include "host/sampling.h"

namespace nimbra::host {

using TessUtils::AColor;
using TessUtils::BRDFSampler;
using TessUtils::Color;
using TessUtils::ShadeData;
using TessUtils::ShadingContext;
using TessUtils::TextureContext;
using TessUtils::TracePoint;
using TessUtils::TraceRay;
using TessUtils::Vector;
using TessUtils::VolumeResult;

AColor TraceScene::background(const Vector& dir) const {
    AColor result{settings.background, settings.backgroundAlpha};
    for (const LightPlugin* light : backgrounds) {
        Color color;
        if (light->background(dir, color)) {
            result.color += color;
            result.alpha = 1;
        }
    }
    return result;
}

Vector TraceContext::projectVelocity(const TracePoint& point, const Vector& displacement) const {
    double x0, y0, x1, y1;
    if (!camera || !camera->project(point, x0, y0) ||
        !camera->project(point + toPoint(displacement), x1, y1))
        return {};
    return {static_cast<float>(x1 - x0), static_cast<float>(y1 - y0), 0};
}

namespace {

/// Scatters light evenly over the side that the ray comes from (Lambert).
class DiffuseBRDF final : public BRDFSampler {
public:
    DiffuseBRDF(const Color& diffuse, const Vector& normal, const Vector& geometricNormal)
        : diffuse_(diffuse), normal_(normal), geometricNormal_(geometricNormal), basis_(normal) {}

    Color eval(const TraceRay&, const Vector& lightDir, Color& lightColor, Color& raw,
               float) override {
        // Indirect directions come with the cosine in their density.
        const float cosine = giMode ? 1.0f : dot(normal_, lightDir);
        Color result;
        if (cosine > 0 && dot(geometricNormal_, lightDir) > 0)
            result = lightColor * diffuse_ * cosine;
        lightColor = raw = {};
        return result;
    }
    Vector sampleDirection(const TraceRay&, const float u[2], float& weight) override {
        const Vector dir = normalize(basis_.toWorld(sampleCosineHemisphere(u)));
        weight = dot(geometricNormal_, dir) > 0 ? 1.0f : 0.0f;
        return dir;
    }

private:
    Color diffuse_;
    Vector normal_, geometricNormal_;
    Basis basis_;
};

/// Mirrors that a path may meet one after the other; the next shows what lies behind everything.
constexpr int kMostMirrors = 8;

Color oneMinus(const Color& c) {
    return {1 - c.r, 1 - c.g, 1 - c.b};
}

bool isBlack(const Color& c) {
    return c.r == 0 && c.g == 0 && c.b == 0;
}

}  // namespace

Integrator::Integrator(const TraceScene& scene, int threadCount) : scene_(scene) {
    // A path nests once for each indirect bounce and each mirror, and its shadow ray once more.
    const int levels = std::max(scene.settings.giBounces, 0) + kMostMirrors + 3;
    for (int i = 0; i < threadCount; ++i)
        threads_.push_back(std::make_unique<Thread>(i, levels, scene, *this));
}

Integrator::~Integrator() = default;

TraceContext& Integrator::cameraContext(int threadIndex) {
    return threads_[static_cast<std::size_t>(threadIndex)]->contexts.front();
}

std::uint64_t Integrator::rayCount() const {
    std::uint64_t sum = 0;
    for (const auto& thread : threads_)
        sum += thread->rays.load(std::memory_order_relaxed);
    return sum;
}

PathValue Integrator::trace(ShadingContext& context) {
    Thread& thread = *threads_[static_cast<std::size_t>(context.threadIndex)];
    const double mint = context.ray.mint, maxt = context.ray.maxt;
    PathValue value;
    double from = mint;        // for volumes: no gap, wherever the search goes on
    double searchFrom = mint;  // for surfaces
    for (int level = 0; level <= scene_.settings.maxTransparencyLevels; ++level) {
        thread.countRay();
        SurfaceHit hit;
        const bool found = scene_.hasSurfaces && findSurface(context, searchFrom, hit);
        const double to = found ? std::clamp(hit.t, from, maxt) : maxt;
        traceVolumes(context, from, to, value);
        context.ray.mint = mint;
        context.ray.maxt = maxt;
        if (!found || isBlack(value.transmittance))
            break;
        shadeSurface(context, hit, value);
        if (isBlack(value.transmittance))
            break;
        from = to;
        searchFrom = std::max(hit.t, searchFrom) + hit.step();
    }
    return value;
}

bool Integrator::findSurface(ShadingContext& context, double from, SurfaceHit& hit) const {
    TraceRay search = context.ray;
    search.mint = from;
    return scene_.surfaces.intersect(search, context, hit);
}

void Integrator::traceVolumes(ShadingContext& context, double from, double to, PathValue& value) {
    if (!(from < to))
        return;
    context.ray.mint = from;
    context.ray.maxt = to;
    for (TessUtils::TessraVolume* volume : scene_.volumes) {
        context.volumeResult = {};
        volume->shade(context);
        // Over what comes behind: C = colour + transparency * behind.
        const VolumeResult& result = context.volumeResult;
        value.color += value.transmittance * result.color.color;
        value.transmittance *= result.transparency.color;
    }
}

TextureContext Integrator::textureContext(const ShadingContext& context,
                                          const SurfaceHit& hit) const {
    TextureContext t;
    t.position = hit.position;
    t.normal = hit.normal;
    t.uvw = hit.uvw;
    t.hasUVW = hit.hasUVW;
    t.time = context.ray.time;
    t.threadIndex = context.threadIndex;
    t.rayFlags = context.ray.flags;
    t.object = scene_.objects[static_cast<std::size_t>(hit.object)].plugin;
    return t;
}

void Integrator::shadeSurface(ShadingContext& context, const SurfaceHit& hit, PathValue& value) {
    const SurfaceObject& object = scene_.objects[static_cast<std::size_t>(hit.object)];
    const bool cameraRay = context.ray.depth == 0;
    if (cameraRay && !object.visibleToCamera)
        return;
    if (value.firstSurface < 0)
        value.firstSurface = hit.t;

    if (hit.primitive) {
        VolumeResult result;
        hit.primitive->shadeHit(context, hit.primitiveHit, result);
        value.color += value.transmittance * result.color.color;
        value.transmittance *= result.transparency.color;
        return;
    }

    SurfaceProperties surface;
    if (object.material)
        surface = object.material->evaluate(textureContext(context, hit));
    Color light = surface.emission;
    if (!isBlack(surface.opacity))
        light += surfaceLight(context, hit, surface, value.transmittance * surface.opacity);
    value.color += value.transmittance * surface.opacity * light;
    value.transmittance *= oneMinus(surface.opacity);
}

/// What a surface scatters and mirrors towards the context's ray.
Color Integrator::surfaceLight(ShadingContext& context, const SurfaceHit& hit,
                               const SurfaceProperties& surface, const Color& importance) {
    const bool front = dot(hit.geometricNormal, context.ray.dir) < 0;
    const Vector geometric = front ? hit.geometricNormal : -hit.geometricNormal;
    ShadeData data;
    data.normal = front ? hit.normal : -hit.normal;
    data.position = hit.position + toPoint(geometric) * hit.offset();
    data.importance = importance;
    data.transparency = oneMinus(surface.opacity);
    data.object = scene_.objects[static_cast<std::size_t>(hit.object)].identity;

    Color light, diffuse = surface.diffuse;
    if (!isBlack(surface.reflection)) {
        const Vector toEye = -context.ray.dir;
        GlossyBRDF brdf(surface.reflection, surface.ior, surface.roughness, data.normal, geometric,
                        toEye);
        light += reflectedLight(context, data, surface, brdf);
        // What is mirrored doesn't get inside.
        const float share = fresnelDielectric(dot(data.normal, toEye), surface.ior);
        diffuse *= oneMinus(surface.reflection * share);
    }
    if (!isBlack(diffuse)) {
        DiffuseBRDF brdf(diffuse, data.normal, geometric);
        illuminate(context, data, brdf);
        light += data.sums.direct + data.sums.gi;
    }
    return light;
}

/// Mirrored rays find surfaces, volumes and what is seen behind them; other lights are asked.
Color Integrator::reflectedLight(ShadingContext& context, ShadeData data,
                                 const SurfaceProperties& surface, GlossyBRDF& brdf) {
    Color light = mirroredLight(context, data, brdf) * surface.reflection;
    if (surface.roughness > 0 && !scene_.unseenLights.empty()) {
        data.onlyLights = &scene_.unseenLights;
        data.flags |= TessUtils::kShadeNotInGI;
        illuminate(context, data, brdf);
        light += data.sums.direct;
    }
    return light;
}

Color Integrator::mirroredLight(ShadingContext& context, const ShadeData& data, GlossyBRDF& brdf) {
    const TraceRay& asker = context.ray;
    const float u[2] = {context.sampler->next(), context.sampler->next()};
    float weight = 0;
    TraceRay ray;
    ray.p = data.position;
    ray.dir = brdf.sampleDirection(asker, u, weight);
    if (!(weight > 0))
        return {};
    ray.time = asker.time;
    ray.flags = TessUtils::kRayPath | TessUtils::kRayReflection |
                (asker.flags & (TessUtils::kRayGI | TessUtils::kRayLightCachePass));
    ray.depth = asker.depth + 1;
    ray.diffuseLevel = asker.diffuseLevel;
    ray.origin = data.object;

    PathValue found;
    Nested nested(*threads_[static_cast<std::size_t>(context.threadIndex)]);
    TraceContext* inner = asker.depth < scene_.settings.rayDepth ? nested.context() : nullptr;
    if (inner) {
        inner->sampler = context.sampler;
        inner->screenX = context.screenX;
        inner->screenY = context.screenY;
        inner->giRayLimit = context.giRayLimit;
        inner->ray = ray;
        found = trace(*inner);
    }
    return (found.color + found.transmittance * scene_.background(ray.dir).color) * weight;
}

Color Integrator::surfaceTransparency(ShadingContext& context, const SurfaceHit& hit) {
    const SurfaceObject& object = scene_.objects[static_cast<std::size_t>(hit.object)];
    if (!object.castsShadows)
        return {1, 1, 1};
    if (hit.primitive) {
        VolumeResult result;
        hit.primitive->shadeHit(context, hit.primitiveHit, result);
        return result.transparency.color;
    }
    if (!object.material || object.material->isOpaque())
        return {0, 0, 0};
    return oneMinus(object.material->opacity(textureContext(context, hit)));
}

/// Through the surfaces along the context's shadow ray.
Color Integrator::surfaceVisibility(ShadingContext& context) {
    if (scene_.allOpaque)
        return scene_.surfaces.occluded(context.ray, context) ? Color{} : Color{1, 1, 1};
    Color visible{1, 1, 1};
    TraceRay ray = context.ray;
    for (int level = 0; level <= scene_.settings.maxTransparencyLevels; ++level) {
        SurfaceHit hit;
        if (!scene_.surfaces.intersect(ray, context, hit))
            return visible;
        visible *= surfaceTransparency(context, hit);
        if (isBlack(visible))
            return visible;
        ray.mint = std::max(hit.t, ray.mint) + hit.step();
    }
    return visible;
}

Color Integrator::visibility(ShadingContext& context) {
    Color visible{1, 1, 1};
    if (scene_.hasSurfaces)
        visible = surfaceVisibility(context);
    for (TessUtils::TessraVolume* volume : scene_.volumes) {
        if (isBlack(visible))
            break;
        context.volumeResult = {};
        volume->shadeTransparency(context);
        visible *= context.volumeResult.transparency.color;
    }
    return visible;
}

}  // namespace nimbra::host
