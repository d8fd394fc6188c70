// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The rows of the grid container's table that its plug-in keeps at hand, refreshed once a frame.
// All other rows are read by name.
#pragma once

#include "tessra/parameters.h"

namespace nimbra {

struct SimParams {
    /// Lets the members follow their rows.
    void bind(TessUtils::TessraParameterList& list);

    // Container.
    PluginBase* cache = nullptr;
    int enabled = 0, render = 0;
    int contentTime = -1;
    TessUtils::TraceTransform nodeTransform;
    int windFromMovement = 0;
    float unitScale = 1, frameDuration = 0;
    float velocityMult = 1;
    int velocitiesFromUvw = 0;

    // Displacement and its fading.
    int displacement = 0, displ2d = 0;
    int useFadeObject = 0;
    float displacementGeomFade = 0;
    PluginBase* fadeObject = nullptr;

    // Mesh and ocean.
    int mesher = 0, smoothMesh = 0, useParticles = 0;
    float particleSize = 0, meshSubdivision = 0;
    float oceanHorizonRoughness = 0, oceanExtraMargin = 0, oceanTransitionZone = 0;
    float cacheStretchZone = 0;
    int pureOcean = 0, ocean = 0;
    float oceanLevel = 0;

    // Lights from fire.
    int lightsEnabled = 0;
    float lightsMult = 1, lightsMultSelf = 1, lightsCut = 0, radiusMult = 1;
    int lightSampling = 0, lightSubdivs = 0, lightCausticSubdivs = 0;
    float lightCausticMult = 1;
    int persistLights = 0, selfShadow = 0, lightDecay = 0;

    // Look.
    int normalizedPositions = 0;
    float ecolorOffset = 0, ecolorScale = 1;
    float dcolorOffset = 0, dcolorScale = 1;
    float transpOffset = 0, transpScale = 1;
    float shadowOpacity = 1;
    PluginBase* ecolorRemap = nullptr;
    PluginBase* elumRemap = nullptr;
    PluginBase* dcolorRemap = nullptr;
    PluginBase* transpRemap = nullptr;

    // Render cutter.
    int useGizmo = 0, invertGizmo = 0;
    PluginBase* gizmo = nullptr;

    // Textures, null where nothing is connected: emission, diffuse, opacity, surface.
    TessUtils::TextureInterface* etex = nullptr;
    TessUtils::TextureInterface* dtex = nullptr;
    TessUtils::TextureInterface* ttex = nullptr;
    TessUtils::TextureInterface* stex = nullptr;
    TessUtils::TextureInterface* displ2 = nullptr;
    TessUtils::TextureInterface* vtex = nullptr;

    TessUtils::Color materialId;
};

}  // namespace nimbra
