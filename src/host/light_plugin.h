// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Common part of the host's own lights.
//
// Colours of lights are given such that a white diffuse surface that faces the light shows just
// this colour; for a sky it is the radiance of the sky.
#pragma once

#include <array>

#include "host/host_plugin.h"
#include "tessra/light.h"
#include "tessra/renderer.h"

namespace nimbra::host {

class LightPlugin : public TessUtils::TessraPlugin, public TessUtils::LightInterface {
public:
    explicit LightPlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    /// Answers as a light, and to rows that link lights.
    PluginInterface* getInterface(InterfaceID id) override;

    TessUtils::LightSampler* newLightSampler(TessUtils::ShadingContext& context,
                                             const TessUtils::ShadeData& data) final;
    void deleteLightSampler(TessUtils::LightSampler* sampler, int threadIndex) final;
    bool castsShadows() const final { return shadows_ != 0; }

    /// What a ray that leaves the scene in this direction sees. False where that is nothing.
    virtual bool background(const TessUtils::Vector& /*dir*/, TessUtils::Color&) const {
        return false;
    }

protected:
    /// Rows that all lights have.
    static void defineCommonParameters(TessUtils::TessraParameterListDesc& table);
    /// One sample for a point, as LightSampler::eval, not yet divided by the count of samples.
    virtual bool sample(const TessUtils::ShadeData& data, const float u[2],
                        TessUtils::LightSample& out) const = 0;
    /// True where one sample says it all and needs no random numbers.
    virtual bool isSharp() const { return false; }

    TessUtils::Color light() const { return color_ * intensity_; }
    float intensity() const { return intensity_; }
    bool isEnabled() const { return enabled_ != 0; }

private:
    class Sampler final : public TessUtils::LightSampler {
    public:
        int sampleCount() const override { return count; }
        bool usesNumbers() const override { return !sharp; }
        bool eval(const float u[2], TessUtils::LightSample& out) override;

        const LightPlugin* light = nullptr;
        const TessUtils::ShadeData* data = nullptr;
        int count = 0;
        bool sharp = false;
        bool used = false;
    };
    /// A thread lights one point at a time, but for what a sample's shadow ray may light in turn.
    static constexpr int kNested = 4;

    int enabled_ = 1, shadows_ = 1, samples_ = 1;
    TessUtils::Color color_{1, 1, 1};
    float intensity_ = 1;
    std::array<std::array<Sampler, kNested>, TessUtils::kMaxRenderThreads> samplers_;
};

}  // namespace nimbra::host
