// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The marcher's access to the host's lights, random numbers and render channels.
#pragma once

#include "tessra/shading.h"
#include "volume/illuminator.h"
#include "volume/white_brdf.h"

namespace nimbra {

class VolumeShaderTessra;

/// On the stack of one ray. All shaders that are selected must be VolumeShaderTessra.
class IlluminatorTessra final : public Illuminator {
public:
    /// `context` null: no host ray, random numbers of its own and no light. `channels`: those of
    /// the render, null for none.
    IlluminatorTessra(TessUtils::ShadingContext* context,
                      const TessUtils::RenderChannelListInterface* channels);

    void illuminate(TessUtils::Color& out, const TessUtils::Vector& pos,
                    const TessUtils::Color& diffuse, LightSelectRecord* record) override;
    int bounceLevel() override;
    float random() override;
    void selectShader(const VolumeShader& shader) override;
    void beginElements() override;
    void writeElements() override;
    void applyMediumAttenuation(TessUtils::Color& color, const RaySegment& segment) override;
    void projectVelocity(const TessUtils::TracePoint& point, const TessUtils::Vector& velocity,
                         TessUtils::Color& out) override;
    void initFromRay(const TessUtils::TraceRay* ray) override;
    bool isLightCacheRay() const override;

private:
    bool scatteredLightCounts() const;
    TessUtils::TracePoint worldPoint(const TessUtils::Vector& pos) const;
    void setupPoint(TessUtils::ShadeData& data, const TessUtils::Color& diffuse) const;
    void fillElements(const TessUtils::LightingSums& sums, const MyWhiteBRDF& brdf);

    TessUtils::ShadingContext* rayContext;
    const TessUtils::TraceRay* hostRay = nullptr;
    const TessUtils::RenderChannelListInterface* channels_;
    std::uint32_t localState_ = 0;  // of the random numbers without a host ray
};

}  // namespace nimbra
