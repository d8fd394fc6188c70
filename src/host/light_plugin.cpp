// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/light_plugin.h"

#include <algorithm>

namespace nimbra::host {

using TessUtils::LightSample;
using TessUtils::LightSampler;
using TessUtils::ShadeData;
using TessUtils::ShadingContext;

LightPlugin::LightPlugin(TessUtils::TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("enabled", &enabled_);
    paramList->setParamCache("color", &color_);
    paramList->setParamCache("intensity", &intensity_);
    paramList->setParamCache("shadows", &shadows_);
    paramList->setParamCache("samples", &samples_);
}

void LightPlugin::defineCommonParameters(TessUtils::TessraParameterListDesc& t) {
    t.addParamBool("enabled", true, -1, "shines at all");
    t.addParamColor("color", {1, 1, 1}, -1, "colour of the light");
    t.addParamFloat("intensity", 1, -1, "factor of the colour");
    t.addParamBool("shadows", true, -1, "shadow rays are traced for this light");
    t.addParamInt("samples", 1, -1, "samples of a soft light for each lit point",
                  "minValue=(1), maxValue=(1024)");
}

PluginInterface* LightPlugin::getInterface(InterfaceID id) {
    if (id == TessUtils::ids::kLight)
        return static_cast<LightInterface*>(this);
    return TessraPlugin::getInterface(id);
}

LightSampler* LightPlugin::newLightSampler(ShadingContext& context, const ShadeData& data) {
    if (!enabled_ || intensity_ == 0)
        return nullptr;
    for (Sampler& sampler : samplers_[static_cast<std::size_t>(context.threadIndex)]) {
        if (sampler.used)
            continue;
        sampler.light = this;
        sampler.data = &data;
        sampler.sharp = isSharp();
        sampler.count = sampler.sharp ? 1 : std::max(samples_, 1);
        sampler.used = true;
        return &sampler;
    }
    return nullptr;
}

void LightPlugin::deleteLightSampler(LightSampler* sampler, int /*threadIndex*/) {
    if (sampler)
        static_cast<Sampler*>(sampler)->used = false;
}

bool LightPlugin::Sampler::eval(const float u[2], LightSample& out) {
    if (!light->sample(*data, u, out))
        return false;
    if (count > 1)
        out.color = out.color * (1.0f / static_cast<float>(count));
    return true;
}

}  // namespace nimbra::host
