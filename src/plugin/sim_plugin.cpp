// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Identity, parameters and the life of a render.
#include "plugin/sim_plugin.h"

#include "cache/frame_data.h"
#include "foundation/log.h"
#include "foundation/parallel.h"
#include "plugin/volume_register.h"

namespace nimbra {

using namespace TessUtils;

NimbraSimPlugin::NimbraSimPlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {
    rows_.bind(*paramList);
    container = static_cast<TessraPlugin*>(this);
}

NimbraSimPlugin::~NimbraSimPlugin() = default;

PluginInterface* NimbraSimPlugin::getInterface(InterfaceID id) {
    switch (id) {
        case ids::kSceneModifier:
            return static_cast<TessraSceneModifierInterface*>(this);
        case ids::kTopLevelPlugin:
            return static_cast<TopLevelPluginInterface*>(this);
        case ids::kNimbraSim:
            return static_cast<NimbraSimInterface*>(this);
        default:
            return TessraPlugin::getInterface(id);
    }
}

// --- Parameters ----------------------------------------------------------------------------------

const TessraPluginParameter* NimbraSimPlugin::rowValue(const char* key) const {
    if (const TessraPluginParameter* value = paramList->getParam(key))
        return value;
    const ParameterDef* row = paramList->desc()->findParamDef(key);
    return row ? row->defaultValue.get() : nullptr;
}

int NimbraSimPlugin::getInt(const char* key) const {
    const TessraPluginParameter* value = rowValue(key);
    return value ? value->getInt(0, frameTime_) : 0;
}

float NimbraSimPlugin::getFloat(const char* key) const {
    const TessraPluginParameter* value = rowValue(key);
    return value ? value->getFloat(0, frameTime_) : 0;
}

Color NimbraSimPlugin::getColor(const char* key) const {
    const TessraPluginParameter* value = rowValue(key);
    return value ? value->getColor(0, frameTime_) : Color();
}

float NimbraSimPlugin::getDensityScale(const NimbraFrameData* frame) const {
    if (!frame || getInt("alphaunitscale") == 0)
        return 1;
    const NMBUtils::Matrix34 objectFromGrid =
        inverse(NMBUtils::Matrix34::fromFloats(frame->transform));
    float edges = 0;
    for (const Vector& axis : objectFromGrid.axis)
        edges += length(axis);
    // A singular transform has no inverse and no cells to speak of.
    return edges > 0 ? getFloat("basedensityscale") * 3 / edges : 1;
}

RenderMode NimbraSimPlugin::getRenderMode() const {
    const int chosen = getInt("rendMode");
    if (chosen > 0)
        return static_cast<RenderMode>(chosen);
    if (rows_.mesher)
        return rows_.ocean ? kModeOceanMesh : kModeMesh;
    if (has(kVolumetric))
        return kModeVolumetric;
    if (getInt("rendsolid") != 0)
        return kModeIsosurface;
    return getInt("heathaze") != 0 ? kModeHeatHaze : kModeVolumetricGeometry;
}

ProgressCallback* NimbraSimPlugin::progress() const {
    return renderer_ ? renderer_->getSequenceData().progress : nullptr;
}

// --- Life of a render ----------------------------------------------------------------------------

void NimbraSimPlugin::joinCollector(TessraRenderer* renderer) {
    frameTime_ = renderer->getFrameData().t;
    if (getInt("renderAsVolumetric") != 0)
        getVolumeRegister(renderer)->add(this);
}

void NimbraSimPlugin::preRenderBegin(TessraRenderer* renderer) {
    NMBUtils::logLine("NimbraSimPlugin::preRenderBegin setGlobalThreadManager\n");
    NMBUtils::setGlobalThreadManager(renderer->getSequenceData().threadManager);
    renderer_ = renderer;
    joinCollector(renderer);
}

void NimbraSimPlugin::renderBegin(TessraRenderer* renderer) {
    TessraPlugin::renderBegin(renderer);
    joinCollector(renderer);
    renderer_ = renderer;
    toldOfLightCache_ = false;
}

void NimbraSimPlugin::frameBegin(TessraRenderer* renderer) {
    TessraPlugin::frameBegin(renderer);
    renderer_ = renderer;
}

void NimbraSimPlugin::postFrameEnd(TessraRenderer* renderer) {
    if (NimbraRenderer* shader = getRenderer(0))
        shader->release();
    if (!rows_.cache)
        return;
    auto* cache =
        static_cast<TessraSceneModifierInterface*>(rows_.cache->getInterface(ids::kSceneModifier));
    if (cache)
        cache->postFrameEnd(renderer);
}

void NimbraSimPlugin::postRenderEnd(TessraRenderer*) {
    NMBUtils::logLine("NimbraSimPlugin::postRenderEnd releaseGlobalThreadManager\n");
    NMBUtils::releaseGlobalThreadManager();
}

}  // namespace nimbra
