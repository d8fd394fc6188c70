// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What rays of one frame meet. Filled on the scene thread, read on all render threads.
#pragma once

#include <unordered_map>
#include <vector>

#include "host/camera.h"
#include "host/light_plugin.h"
#include "host/material_plugin.h"
#include "host/render_settings.h"
#include "host/surface_scene.h"
#include "tessra/volumetric.h"

namespace nimbra::host {

/// What belongs to the numbers that SurfaceScene answers.
struct SurfaceObject {
    const MaterialPlugin* material = nullptr;  // null: grey
    bool visibleToCamera = true;
    bool castsShadows = true;
    const void* identity = nullptr;  // what rays from here carry as their origin
    PluginBase* plugin = nullptr;    // what its textures are told to be shaded
};

struct TraceScene {
    RenderSettings settings;
    std::unique_ptr<CameraModel> cameras[2];  // at the start and the end of the frame
    SurfaceScene surfaces;
    bool hasSurfaces = false;
    std::vector<SurfaceObject> objects;
    bool allOpaque = true;  // no surface lets a shadow ray pass
    std::vector<TessUtils::TessraVolume*> volumes;
    std::vector<TessUtils::LightInterface*> lights;
    /// The lights by the plug-in that a list names.
    std::unordered_map<const PluginBase*, TessUtils::LightInterface*> lightOf;
    std::vector<const LightPlugin*> backgrounds;  // lights that may be seen behind everything
    std::vector<PluginBase*> unseenLights;        // those that no ray can meet

    const CameraModel& camera() const { return *cameras[0]; }
    /// Light from where no surface is, and its alpha.
    TessUtils::AColor background(const TessUtils::Vector& dir) const;
};

}  // namespace nimbra::host
