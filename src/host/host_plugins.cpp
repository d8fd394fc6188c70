// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The list of the host's own plug-in kinds.
#include "host/camera_plugin.h"
#include "host/light_kinds.h"
#include "host/material_plugin.h"
#include "host/mesh_plugin.h"
#include "host/plugin_registry.h"
#include "host/remap_plugins.h"
#include "host/render_settings.h"
#include "host/texture_plugins.h"

namespace nimbra::host {

void addHostPlugins(PluginRegistry& registry) {
    registry.addHostPlugin(std::make_unique<HostPluginDesc<SettingsPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<CameraPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<PointLightPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<DirectionalLightPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<SkyLightPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<MeshPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<InstancePlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<MaterialPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<CurvePlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<GradientPlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<ConstantTexturePlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<CheckerTexturePlugin>>());
    registry.addHostPlugin(std::make_unique<HostPluginDesc<NoiseTexturePlugin>>());
}

}  // namespace nimbra::host
