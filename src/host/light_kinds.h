// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-ins "TessraLightPoint", "TessraLightDirectional" and "TessraLightSky".
#pragma once

#include "host/light_plugin.h"
#include "host/sampling.h"

namespace nimbra::host {

/// A point, or a ball that glows all through.
class PointLightPlugin final : public LightPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit PointLightPlugin(TessUtils::TessraPluginDesc* desc);
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

protected:
    bool sample(const TessUtils::ShadeData& data, const float u[2],
                TessUtils::LightSample& out) const override;
    bool isSharp() const override { return radius_ <= 0; }

private:
    TessUtils::TracePoint position_;
    float radius_ = 0;
    int decay_ = 2;
};

/// Parallel light, or a disc in the sky.
class DirectionalLightPlugin final : public LightPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit DirectionalLightPlugin(TessUtils::TessraPluginDesc* desc);
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

protected:
    bool sample(const TessUtils::ShadeData& data, const float u[2],
                TessUtils::LightSample& out) const override;
    bool isSharp() const override { return cosAngle_ >= 1; }

private:
    Basis toLight_{{0, 1, 0}};
    float angle_ = 0, cosAngle_ = 1;
};

/// A dome around everything: one colour, or a gradient from the zenith over the horizon to the
/// ground.
class SkyLightPlugin final : public LightPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit SkyLightPlugin(TessUtils::TessraPluginDesc* desc);
    void frameBegin(TessUtils::TessraRenderer* renderer) override;
    bool background(const TessUtils::Vector& dir, TessUtils::Color& out) const override;

    /// Radiance from a direction.
    TessUtils::Color radiance(const TessUtils::Vector& dir) const;

protected:
    bool sample(const TessUtils::ShadeData& data, const float u[2],
                TessUtils::LightSample& out) const override;

private:
    int gradient_ = 0, visible_ = 0;
    TessUtils::Color horizon_, ground_;
    float horizonWidth_ = 0.5f;
    TessUtils::Vector up_{0, 1, 0};
};

}  // namespace nimbra::host
