// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Follows rays through surfaces and volumes, and lights points: the host's light transport.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "host/glossy.h"
#include "host/trace_scene.h"
#include "tessra/shading.h"

namespace nimbra::host {

/// Light along a ray.
struct PathValue {
    TessUtils::Color color;                   // from volumes and surfaces, without the background
    TessUtils::Color transmittance{1, 1, 1};  // of all that was met
    double firstSurface = -1;                 // distance of the first surface seen; negative: none
};

/// The context of one ray. Each thread owns a row of them, one for every level of nesting, so that
/// nothing is allocated while rays run.
class TraceContext final : public TessUtils::ShadingContext {
public:
    TessUtils::Vector projectVelocity(const TessUtils::TracePoint& point,
                                      const TessUtils::Vector& displacement) const override;
    const CameraModel* camera = nullptr;
};

class Integrator final : public TessUtils::LightListInterface {
public:
    /// The scene must outlive the integrator.
    Integrator(const TraceScene& scene, int threadCount);
    ~Integrator() override;

    /// A context at the lowest level for a camera ray of that thread.
    TraceContext& cameraContext(int threadIndex);
    /// Light along `context.ray`: surfaces and volumes from its mint to its maxt.
    PathValue trace(TessUtils::ShadingContext& context);
    void illuminate(TessUtils::ShadingContext& context, TessUtils::ShadeData& data,
                    TessUtils::BRDFSampler& brdf) override;

    /// Rays of all kinds so far.
    std::uint64_t rayCount() const;

private:
    struct Thread;
    class Nested;
    struct Lighting;

    bool findSurface(TessUtils::ShadingContext& context, double from, SurfaceHit& hit) const;
    void traceVolumes(TessUtils::ShadingContext& context, double from, double to, PathValue& value);
    /// Adds a surface's light and takes its opacity off; false where it let nothing change.
    void shadeSurface(TessUtils::ShadingContext& context, const SurfaceHit& hit, PathValue& value);
    TessUtils::Color surfaceLight(TessUtils::ShadingContext& context, const SurfaceHit& hit,
                                  const SurfaceProperties& surface,
                                  const TessUtils::Color& importance);
    TessUtils::Color reflectedLight(TessUtils::ShadingContext& context, TessUtils::ShadeData data,
                                    const SurfaceProperties& surface, GlossyBRDF& brdf);
    TessUtils::Color mirroredLight(TessUtils::ShadingContext& context,
                                   const TessUtils::ShadeData& data, GlossyBRDF& brdf);
    TessUtils::Color surfaceTransparency(TessUtils::ShadingContext& context, const SurfaceHit& hit);
    /// What comes through along the context's shadow ray.
    TessUtils::Color visibility(TessUtils::ShadingContext& context);
    TessUtils::Color surfaceVisibility(TessUtils::ShadingContext& context);
    TessUtils::TextureContext textureContext(const TessUtils::ShadingContext& context,
                                             const SurfaceHit& hit) const;
    void lightBy(Lighting&& lighting);
    void illuminateDirect(Lighting& lighting, TessUtils::LightInterface& light);
    TessUtils::Color visibility(Lighting& lighting, const TessUtils::LightSample& sample,
                                TessUtils::LightInterface& light);
    void illuminateIndirect(Lighting& lighting);

    const TraceScene& scene_;
    std::vector<std::unique_ptr<Thread>> threads_;
};

}  // namespace nimbra::host
