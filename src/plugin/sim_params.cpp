// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/sim_params.h"

namespace nimbra {

void SimParams::bind(TessUtils::TessraParameterList& list) {
    list.setParamCache("cache", &cache);
    list.setParamCache("enabled", &enabled);
    list.setParamCache("render", &render);
    list.setParamCache("contentTime", &contentTime);
    list.setParamCache("node_transform", &nodeTransform);
    list.setParamCache("wind_from_movement", &windFromMovement);
    list.setParamCache("unit_scale", &unitScale);
    list.setParamCache("frame_duration", &frameDuration);
    list.setParamCache("velocity_mult", &velocityMult);
    list.setParamCache("velocities_from_uvw", &velocitiesFromUvw);
    list.setParamCache("displacement", &displacement);
    list.setParamCache("displ2d", &displ2d);
    list.setParamCache("mesher", &mesher);
    list.setParamCache("smoothmesh", &smoothMesh);
    list.setParamCache("useprt", &useParticles);
    list.setParamCache("prtsz", &particleSize);
    list.setParamCache("meshsubdiv", &meshSubdivision);
    list.setParamCache("oceanhorizrough", &oceanHorizonRoughness);
    list.setParamCache("oceanextramargin", &oceanExtraMargin);
    list.setParamCache("oceantransitionzone", &oceanTransitionZone);
    list.setParamCache("cachestretchzone", &cacheStretchZone);
    list.setParamCache("pureocean", &pureOcean);
    list.setParamCache("ocean", &ocean);
    list.setParamCache("oceanlevel", &oceanLevel);
    list.setParamCache("usefadeobj", &useFadeObject);
    list.setParamCache("displgeomfade", &displacementGeomFade);
    list.setParamCache("fadeobj", &fadeObject);
    list.setParamCache("al_enable", &lightsEnabled);
    list.setParamCache("lightsmult", &lightsMult);
    list.setParamCache("lightsmultself", &lightsMultSelf);
    list.setParamCache("lightscut", &lightsCut);
    list.setParamCache("radmult", &radiusMult);
    list.setParamCache("al_sampling", &lightSampling);
    list.setParamCache("al_subdivs", &lightSubdivs);
    list.setParamCache("al_csubdivs", &lightCausticSubdivs);
    list.setParamCache("al_cmult", &lightCausticMult);
    list.setParamCache("persistlights", &persistLights);
    list.setParamCache("selfshadow", &selfShadow);
    list.setParamCache("al_decay", &lightDecay);
    list.setParamCache("normalized_positions", &normalizedPositions);
    list.setParamCache("ecolor_offset", &ecolorOffset);
    list.setParamCache("ecolor_scale", &ecolorScale);
    list.setParamCache("dcolor_offset", &dcolorOffset);
    list.setParamCache("dcolor_scale", &dcolorScale);
    list.setParamCache("transp_offset", &transpOffset);
    list.setParamCache("transp_scale", &transpScale);
    list.setParamCache("shadow_opacity", &shadowOpacity);
    list.setParamCache("ecolor_remap", &ecolorRemap);
    list.setParamCache("elum_remap", &elumRemap);
    list.setParamCache("dcolor_remap", &dcolorRemap);
    list.setParamCache("transp_remap", &transpRemap);
    list.setParamCache("usegizmo", &useGizmo);
    list.setParamCache("invgizmo", &invertGizmo);
    list.setParamCache("gizmo", &gizmo);
    list.setParamCache("stex", &stex);
    list.setParamCache("etex", &etex);
    list.setParamCache("dtex", &dtex);
    list.setParamCache("ttex", &ttex);
    list.setParamCache("displ2", &displ2);
    list.setParamCache("vtex", &vtex);
    list.setParamCache("material_id", &materialId);
}

}  // namespace nimbra
