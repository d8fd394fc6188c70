// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-in "TessraMaterial": what surfaces do with light.
#pragma once

#include "host/host_plugin.h"
#include "tessra/texture.h"

namespace nimbra::host {

/// A surface at one point.
struct SurfaceProperties {
    TessUtils::Color diffuse{0.5f, 0.5f, 0.5f};  // share of the light that is scattered
    TessUtils::Color emission;                   // radiance, whatever the light
    TessUtils::Color opacity{1, 1, 1};           // the rest lets pass what lies behind
    TessUtils::Color reflection;                 // mirrored, times the share for the angle
    float ior = 1.5f;                            // makes up that share
    float roughness = 0;                         // of the mirror
};

class MaterialPlugin final : public TessUtils::TessraPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit MaterialPlugin(TessUtils::TessraPluginDesc* desc);
    PluginInterface* getInterface(InterfaceID id) override;

    /// Re-entrant.
    SurfaceProperties evaluate(const TessUtils::TextureContext& context) const;
    /// Opacity alone, for shadow rays.
    TessUtils::Color opacity(const TessUtils::TextureContext& context) const;
    /// True if the opacity is 1 everywhere.
    bool isOpaque() const { return opacity_ == nullptr; }

private:
    TessUtils::TextureInterface* diffuse_ = nullptr;
    TessUtils::TextureInterface* emission_ = nullptr;
    TessUtils::TextureFloatInterface* opacity_ = nullptr;
    TessUtils::TextureInterface* reflection_ = nullptr;
    float emissionScale_ = 1, ior_ = 1.5f, roughness_ = 0;
};

}  // namespace nimbra::host
