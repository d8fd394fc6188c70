// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the particle shader.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

namespace {

using namespace TessUtils;

// What stands in for an empty texture slot.
constexpr AColor kNoTexture{{0, 0, 0}, 0};

void sourceRows(TessraParameterListDesc& desc) {
    desc.addParamBool("renderAsVolumetric", false, kSingle,
                      "Set to true if the plugin should be rendered as a volumetric.");
    desc.addParamBool("enabled", true, kSingle, "enable rendeirng");
    desc.addParamInt("geommode", 0);
    desc.addParamPlugin("particle_source", ids::kPerParticleData, kList,
                        "A list of particles source");
    desc.addParam("particle_tm", paramtype_transform, kList,
                  "A list of transformations per particles source");
}

void lookRows(TessraParameterListDesc& desc) {
    desc.addParamColor("color", Color{1.0f, 1.0f, 1.0f}, kSingle, "foam color");
    desc.addParamBool("usecolormap", false);
    desc.addParamTexture("colormap", &kNoTexture);
    desc.addParamInt("bounces", 0, kSingle, "max bounces");
    desc.addParamFloat("minw", 0.01f, kSingle, "reflection cut off");
    desc.addParamFloat("ri", 2.0f, kSingle, "refraction index");
    desc.addParamFloat("difmul", 1.0f, kSingle, "diffuse multiplier");
    desc.addParamFloat("hlwidth", 0.5f, kSingle, "highlights width");
    desc.addParamFloat("hlmult", 1.0f, kSingle, "highlights multiplier");
    desc.addParamFloat("reduction", 0.0f, kSingle, "particle count multiplier");
    desc.addParamFloat("pvar", 0.5f, kSingle, "pressure variation");
    desc.addParamFloat("szmul", 1.0f, kSingle, "size multiplier");
    desc.addParamBool("szmul_pa", false, kSingle, "size multiplier by particle age");
    desc.addParam("szmul_anim", paramtype_float, kList,
                  "A list of particle size multipliers per particle age");
    desc.addParamFloat("szadd", 0.0f, kSingle, "size addend");
    desc.addParamFloat("szvar", 0.0f, kSingle, "size variation");
    desc.addParamFloat("szdist", 1.0f, kSingle, "size distribution");
    desc.addParamInt(
        "scattering", 2, kSingle,
        "scattering method - 0:enabled, 1:disabled, 2:approximate, 3:approximate+shadows");
    desc.addParamInt("mode", 1, kSingle,
                     "rendering mode - 0:bubble, 1:cellular, 2:splashes, 3:point, 4:fog");
    desc.addParamBool("optimize", true, kSingle, "optimize bad systems");
}

void renderingRows(TessraParameterListDesc& desc) {
    desc.addParamInt("moblur", 0, kSingle,
                     "motion blur - 0:from renderer, 1:force on, 2:force off");
    desc.addParamFloat("mbstep", 1.0f, kSingle, "motion blur step");
    desc.addParamInt("mblimit", 100, kSingle, "maximum point expansion with motion blur");
    desc.addParamFloat("ptAlpha", 0.111f, kSingle, "point opacity in point mode");
    desc.addParamFloat("ptSize", 1.0f, kSingle, "Point radius in Point mode");
    desc.addParamFloat("ptShadStren", 1.0f, kSingle, "Point shadow strength in Point mode");
    desc.addParamFloat("ptSizeExtra", 1.0f, kSingle,
                       "Radius of particles in Point mode in world space, used to prevent grid "
                       "artifacts from occurring.");
    desc.addParamFloat("velmult", 1.0f, kSingle, "particle velocity multiplier");
    desc.addParamInt("subgroup", 0, kSingle,
                     "render subgroup - 0:all, 1:under water, 2:above water, 3:above Size "
                     "Threshold, 4:below Size Threshold");
    desc.addParamBool("nolqshadows", false);
    desc.addParamBool("ignoresize", false);
    desc.addParamFloat("szlimit", 1.0f, kSingle,
                       "size threshold, used in conjunction with the subgroup parameter.");
    desc.addParamFloat("vertoffs", 0.0f, kSingle,
                       "Shift the particles along the up axis. Can be used in fishtank simulations "
                       "for custom alignent of the particles floating on the liquid surface.");
    desc.addParamFloat("fogres", 1.0f, kSingle, "fog resolution");
    desc.addParamFloat("fogmult", 1.0f, kSingle, "fog multiplier");
    desc.addParamInt("rendstep", 90);
    desc.addParamInt("rendshadstep", 200);
}

void mapsAndCuttersRows(TessraParameterListDesc& desc) {
    desc.addParamBool("usereflmap", false);
    desc.addParamBool("useenvmap", false);
    desc.addParamTexture("reflmap", &kNoTexture);
    desc.addParamTexture("envmap", &kNoTexture);
    desc.addParamInt("usegizmo", 0);
    desc.addParamInt("invgizmo", 0);
    desc.addParamPlugin("gizmo", ids::kStaticGeomSource);
    desc.addParamTransform("gizmo_transform", true, Transform());
    desc.addParamInt("useliquid", 0);
    desc.addParamPlugin("liquid_sim", ids::kNimbraSim);
    desc.addParamInt("useglass", 0);
    desc.addParamPlugin("glass", ids::kStaticGeomSource);
    desc.addParamTransform("glass_transform", true, Transform());
}

void lightAndVisibilityRows(TessraParameterListDesc& desc) {
    desc.addParamPlugin("lightlinks", ids::kLight, kList);
    desc.addParamInt("lightcache", 1, kSingle,
                     "if true, a light cache will be used for diffuse lighting");
    desc.addParamFloat("lightcachesr", 0.0f, kSingle, "speedup of the light cache");
    desc.addParamBool("pmprimary", false, kSingle, "enable/disable particle mode of primary rays");
    desc.addParamFloat("oceanlevel", 50.0f, kSingle, "Mesh 'ocean' level");
    desc.addParamInt("generate_gi", 1);
    desc.addParamInt("receive_gi", 1);
    desc.addParamFloat("gen_gi_mult", 1.0f);
    desc.addParamFloat("rec_gi_mult", 1.0f);
    desc.addParamInt("generate_caust", 1);
    desc.addParamInt("receive_caust", 1);
    desc.addParamFloat("caust_mult", 1.0f);
    desc.addParamBool("camera_visibility", true);
    desc.addParamBool("reflections_visibility", true);
    desc.addParamBool("refractions_visibility", true);
    desc.addParamBool("gi_visibility", true);
    desc.addParamBool("shadows_visibility", true);
    desc.addParamInt("probabilistic", 1, kSingle,
                     "Use probabilistic sampling {0: Disabled; 1:Tessra GPU Only; 2:Always}.");
    desc.addParamColor("material_id", Color{0.0f, 0.0f, 0.0f}, kSingle, "Material ID");
    desc.addParamInt("volzdepth", 0, kSingle, "if true, write to the z-depth render element");
    desc.addParamInt("part_age", 0, kSingle, "if true, write to the particle age render element");
}

}  // namespace

void buildParticleShaderParameters(TessraParameterListDesc& desc) {
    sourceRows(desc);
    lookRows(desc);
    renderingRows(desc);
    mapsAndCuttersRows(desc);
    lightAndVisibilityRows(desc);
}

}  // namespace nimbra
