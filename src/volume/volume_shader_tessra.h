// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A volume shader that is an object of the host: its points are lit by the host's lights.
#pragma once

#include <vector>

#include "tessra/plugin_base.h"
#include "tessra/shading.h"
#include "volume/illuminator_tessra.h"
#include "volume/volume_shader.h"
#include "volume/world_box.h"

namespace TessUtils {
class TessraVolume;
}

namespace nimbra {

class VolumeShaderTessra : public VolumeShader, public TessUtils::Shadeable, public PluginBase {
public:
    using IlluminatorTessra = nimbra::IlluminatorTessra;

    /// What rays that leave points of this volume carry as their origin.
    const void* hostObject() const { return static_cast<const VolumeShader*>(this); }
    void setupShading(const TessUtils::ShadingContext& context,
                      TessUtils::ShadeData& data) const override;
    /// Where a grid position lies in the world at a time within the frame.
    TessUtils::TracePoint worldFromGridPoint(const TessUtils::Vector& pos, float time) const;

    /// The time within the frame at which the thread shades, for shaders that keep one for each
    /// thread; null: none kept.
    virtual float* threadTime(int /*threadIndex*/) { return nullptr; }

    /// The box of the grid in the world over the whole frame; empty without a grid.
    WorldBox worldBounds() const;

    /// The lights that the volume takes, entries may be null; empty: all lights of the scene.
    std::vector<PluginBase*> lightLinks;
    float lightScale = 1;  // of light on rays of kKindVolumeLit
    float giReceived = 1;  // of indirect light
    /// The volumetric effect that marches this shader.
    TessUtils::TessraVolume* collector = nullptr;
};

}  // namespace nimbra
