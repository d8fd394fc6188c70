// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/material_plugin.h"

#include <algorithm>

namespace nimbra::host {

using TessUtils::AColor;
using TessUtils::Color;
using TessUtils::TextureContext;

HostPluginInfo MaterialPlugin::info() {
    return {"TessraMaterial",
            0x4E425002,
            HostCategory::Material,
            "Diffuse surface that may mirror, glow and let light through",
            {kHostMaterial}};
}

void MaterialPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    const AColor grey{{0.5f, 0.5f, 0.5f}, 1}, black{{0, 0, 0}, 1};
    const float one = 1;
    t.addParamTexture("diffuse", &grey, -1, "share of the light that is scattered, 0 to 1");
    t.addParamTexture("emission", &black, -1, "light that the surface gives off by itself");
    t.addParamFloat("emission_scale", 1, -1, "factor of the emission", "minValue=(0)");
    t.addParamTextureFloat("opacity", &one, -1,
                           "0 lets everything through, for shadows as well, 1 nothing");
    t.addParamTexture("reflection", &black, -1,
                      "colour of mirrored light; how much of it there is depends on the angle");
    t.addParamFloat("reflection_ior", 1.5f, -1, "refractive index (water 1.33, glass 1.5)",
                    "minValue=(1), maxValue=(10)");
    t.addParamFloat("reflection_roughness", 0, -1, "0 a clear mirror, 1 a blurred one",
                    "minValue=(0), maxValue=(1)");
}

MaterialPlugin::MaterialPlugin(TessUtils::TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("diffuse", &diffuse_);
    paramList->setParamCache("emission", &emission_);
    paramList->setParamCache("emission_scale", &emissionScale_);
    paramList->setParamCache("opacity", &opacity_);
    paramList->setParamCache("reflection", &reflection_);
    paramList->setParamCache("reflection_ior", &ior_);
    paramList->setParamCache("reflection_roughness", &roughness_);
}

PluginInterface* MaterialPlugin::getInterface(InterfaceID id) {
    return id == kHostMaterial ? this : TessraPlugin::getInterface(id);
}

SurfaceProperties MaterialPlugin::evaluate(const TextureContext& context) const {
    SurfaceProperties s;
    if (diffuse_)
        s.diffuse = diffuse_->getTexColor(context).color;
    if (emission_)
        s.emission = emission_->getTexColor(context).color * emissionScale_;
    s.opacity = opacity(context);
    if (reflection_)
        s.reflection = reflection_->getTexColor(context).color;
    s.ior = std::max(ior_, 1.0f);
    s.roughness = std::clamp(roughness_, 0.0f, 1.0f);
    return s;
}

Color MaterialPlugin::opacity(const TextureContext& context) const {
    if (!opacity_)
        return {1, 1, 1};
    const float o = std::clamp(opacity_->getTexFloat(context), 0.0f, 1.0f);
    return {o, o, o};
}

}  // namespace nimbra::host
