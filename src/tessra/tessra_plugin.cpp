// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/tessra_plugin.h"

#include "tessra/plugin_kinds.h"
#include "tessra/renderer.h"
#include "tessra/volumetric.h"

namespace TessUtils {

namespace {

/// The table of plug-ins whose descriptor has none, so that a plug-in always has a list.
const TessraParameterListDesc& emptyTable() {
    static const TessraParameterListDesc table;
    return table;
}

}  // namespace

void TessraPluginDesc::registerParameters(PluginHost* host) {
    if (!host)
        return;
    host->registerPluginDesc(this);
    if (parameters_)
        parameters_->registerParameters(host, this);
}

void TessraPluginDesc::unregisterParameters(PluginHost* host) {
    if (host)
        host->unregisterPluginDesc(this);
}

TessraPlugin::TessraPlugin(TessraPluginDesc* desc)
    : desc_(desc),
      paramList(
          (desc && desc->parameters() ? *desc->parameters() : emptyTable()).newParameterList()) {}

TessraPlugin::~TessraPlugin() {
    paramList->desc()->deleteParameterList(paramList);
}

PluginInterface* TessraPlugin::getInterface(InterfaceID id) {
    if (id == ids::kTessraPlugin)
        return static_cast<TessraPluginInterface*>(this);
    return PluginBase::getInterface(id);
}

void TessraPlugin::renderBegin(TessraRenderer*) {}
void TessraPlugin::renderEnd(TessraRenderer*) {}

void TessraPlugin::frameBegin(TessraRenderer* renderer) {
    if (renderer)
        paramList->cacheParams(renderer->getFrameData().t);
}

void TessraPlugin::frameEnd(TessraRenderer*) {}

bool TessraPlugin::setParameter(TessraPluginParameter* parameter) {
    return paramList->setParameter(parameter);
}

TessraPluginParameter* TessraPlugin::getParameter(const char* name) {
    return paramList->getParam(name);
}

PluginInterface* TessraVolumetric::getInterface(InterfaceID id) {
    if (id == ids::kVolumetric)
        return static_cast<VolumetricInterface*>(this);
    return TessraPlugin::getInterface(id);
}

PluginInterface* TessraStaticGeomSource::getInterface(InterfaceID id) {
    if (id == ids::kStaticGeomSource)
        return static_cast<StaticGeomSourceInterface*>(this);
    return TessraPlugin::getInterface(id);
}

PluginInterface* TessraTexture::getInterface(InterfaceID id) {
    if (id == ids::kTexture)
        return static_cast<TextureInterface*>(this);
    return TessraPlugin::getInterface(id);
}

}  // namespace TessUtils
