// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "textures/ocean_tex_plugin.h"

#include <bit>

#include "tessra/renderer.h"
#include "tessra/shading.h"

namespace nimbra {

using namespace TessUtils;

namespace {

/// 1/30 s, where the host doesn't tell.
constexpr float kDefaultFrameDuration = std::bit_cast<float>(0x3D088889u);

SceneUnitsInterface* findUnits(TessraRenderer* renderer) {
    // Asking an object for an interface doesn't change it.
    auto& sequence = const_cast<TessraSequenceData&>(renderer->getSequenceData());
    PluginInterface* found = sequence.getInterface(ids::kSceneUnits);
    if (!found)
        found = renderer->getInterface(ids::kSceneUnits);
    return dynamic_cast<SceneUnitsInterface*>(found);
}

/// Multiplies the two mapped components about their middle.
void scaleColor(Color& color, const Color& scale) {
    color.r = (color.r - 0.5f) * scale.r + 0.5f;
    color.g = color.g * scale.g;
    color.b = (color.b - 0.5f) * scale.b + 0.5f;
}

}  // namespace

NimbraOceanTexPlugin::NimbraOceanTexPlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("vector", &rows_.vector);
    paramList->setParamCache("usewind", &rows_.useWind);
    paramList->setParamCache("wind", &rows_.wind);
    paramList->setParamCache("lod", &rows_.lod);
    paramList->setParamCache("sharpness", &rows_.sharpness);
    paramList->setParamCache("velmult", &rows_.velmult);
    paramList->setParamCache("velcoh", &rows_.velcoh);
    paramList->setParamCache("rgbmult", &rows_.rgbmult);
    paramList->setParamCache("rgboffset", &rows_.rgboffset);
    paramList->setParamCache("meter_scale", &rows_.meterScale);
    paramList->setParamCache("up_vector", &rows_.upVector);
    paramList->setParamCache("seed", &rows_.seed);
    paramList->setParamCache("bell", &rows_.bell);
    paramList->setParamCache("animmode", &rows_.animMode);
    paramList->setParamCache("loopLength", &rows_.loopLength);
    paramList->setParamCache("directTime", &rows_.directTime);
    paramList->setParamCache("scaletex", &rows_.scale);
}

PluginInterface* NimbraOceanTexPlugin::getInterface(InterfaceID id) {
    if (id == ids::kTexture)
        return static_cast<TextureInterface*>(this);
    return TessraPlugin::getInterface(id);
}

void NimbraOceanTexPlugin::frameBegin(TessraRenderer* renderer) {
    TessraPlugin::frameBegin(renderer);
    SceneUnitsInterface* const units = findUnits(renderer);
    frameDuration_ = units ? units->frameDuration() : kDefaultFrameDuration;
    frameStart_ = renderer->getFrameData().frameStart;
    frameEnd_ = renderer->getFrameData().frameEnd;
    placeSea(renderer);

    OceanSettings settings;
    settings.vector = rows_.vector != 0;
    settings.sharpness = rows_.sharpness;
    settings.bell = rows_.bell;
    settings.velcoh = rows_.velcoh;
    settings.seed = rows_.seed;
    settings.meterScale = rows_.meterScale;
    settings.useWind = rows_.useWind != 0;
    settings.wind = rows_.wind;
    settings.velmult = rows_.velmult;
    settings.lod = rows_.lod;
    settings.rgbmult = rows_.rgbmult;
    settings.rgboffset = rows_.rgboffset;
    settings.animMode = rows_.animMode;
    settings.directTime = rows_.directTime;
    settings.loopLength = rows_.loopLength;
    settings.toVector = toVector_;
    ocean_.setup(settings);
}

void NimbraOceanTexPlugin::placeSea(TessraRenderer* renderer) {
    auto* generator = dynamic_cast<UvwGenInterface*>(getInterface(ids::kUvwGen));
    fromShaded_ = generator ? generator->getUVWTransform(renderer->getFrameData().t) : Transform();
    // Shaded positions have the scene's offset subtracted.
    fromShaded_.offs = fromShaded_.applyPoint(renderer->getFrameData().sceneOffset);
    toVector_ =
        generator ? inverse(NMBUtils::Matrix34::fromTransform(fromShaded_)) : NMBUtils::Matrix34();
}

AColor NimbraOceanTexPlugin::getTexColor(const TextureContext& context) {
    const double frame = frameStart_ + (frameEnd_ - frameStart_) * context.time;
    const float filterSize = context.rayFlags & kRayNoFilter ? -1.0f : context.filterSize;
    AColor result;
    result.alpha = 1;
    ocean_.getValue(result.color, toVector(fromShaded_.applyPoint(context.position)),
                    static_cast<float>(frame * frameDuration_), rows_.upVector, filterSize);
    if (rows_.scale)
        scaleColor(result.color, rows_.scale->getTexColor(context).color);
    return result;
}

}  // namespace nimbra
