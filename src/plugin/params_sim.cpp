// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the grid container, in the order in which scenes and user interfaces know
// it. Names, types, defaults and texts are what scene files rely on.
#include "plugin/parameter_tables.h"

#include "tessra/ids.h"

namespace nimbra {

namespace {

using namespace TessUtils;

// What stands in for an empty texture slot.
constexpr AColor kNoTexture{{0, 0, 0}, 0};

void containerRows(TessraParameterListDesc& desc) {
    desc.addParamBool("renderAsVolumetric", false, kSingle,
                      "Set to true if the plugin should be rendered as an atmosphere.");
    desc.addParamPlugin("cache", ids::kNimbraSim);
    desc.addParamFloat("play_speed", 1.0f);
    desc.addParamBool("enabled", true);
    desc.addParamBool("render", true);
    desc.addParamInt("contentTime", -1, kSingle, "force using an externally set content time");
    desc.addParamTransform("node_transform", true, Transform());
    desc.addParamBool("wind_from_movement", false);
    desc.addParamFloat("unit_scale", 1.0f, kSingle,
                       "The scaling between simulation and scene time units");
    desc.addParamFloat("frame_duration", 0.0f, kSingle, "Override the frame duration in the cache");
}

void surfaceRows(TessraParameterListDesc& desc) {
    desc.addParamInt(
        "sarg", 2, kSingle, nullptr,
        "displayName=(Surface from), enum=(0:Texture; 1:Temperature; 2:Smoke; 3:Speed; 10:Fuel)");
    desc.addParamTexture(
        "stex", &kNoTexture, kSingle, nullptr,
        "displayName=(Surface Texture), attributes=(textureSlot), enable=(::sarg=0)");
    desc.addParamFloat("surflevel", 0.1f, kSingle, nullptr,
                       "displayName=(Isosurface Level), minValue=(-10000), maxValue=(10000)");
    desc.addParamBool("solidbelow", false);
}

void displacementRows(TessraParameterListDesc& desc) {
    desc.addParamBool("displacement", false, kSingle, nullptr,
                      "displayName=(Enable Displacement), startRollout=(Displacement)");
    desc.addParamInt(
        "displ2d", 1, kSingle, nullptr,
        "displayName=(Type), enum=(0:Gradient Driven;1:Surface Driven;2:Vector;3:Advection)");
    desc.addParamFloat(
        "displmul", 1.0f, kSingle, nullptr,
        "displayName=(Multiplier), minValue=(-1000), maxValue=(1000), enable=(::displacement=1)");
    desc.addParamBool("fadebylevel", true);
    desc.addParamFloat("displfade", 20.0f, kSingle, nullptr,
                       "displayName=(Vertical Fade Level), minValue=(0), maxValue=(100), "
                       "enable=(::displacement=1)");
    desc.addParamBool("fadebyvel", false);
    desc.addParamFloat("displvelfade", 20.0f, kSingle, nullptr,
                       "displayName=(Fade Above Velocity), minValue=(0), maxValue=(10000), "
                       "enable=(::displacement=1)");
    desc.addParamTexture("displ0", &kNoTexture, kSingle, nullptr,
                         "enable=(::displacement=1), attributes=(textureSlot)");
    desc.addParamTexture("displ1", &kNoTexture, kSingle, nullptr,
                         "enable=(::displacement=1), attributes=(textureSlot)");
    desc.addParamTexture(
        "displ2", &kNoTexture, kSingle, nullptr,
        "displayName=(Displacement Texture), enable=(::displacement=1), attributes=(textureSlot)");
}

void marchingRows(TessraParameterListDesc& desc) {
    desc.addParamInt(
        "rendstep", 90, kSingle, "Percentage of the cell size. Lower values take longer to render.",
        "displayName=(Rend. Step (%)), minValue=(1), maxValue=(10000), enable=(::render=1)");
    desc.addParamInt(
        "rendshadstep", 200, kSingle,
        "Percentage of the cell size. Lower values take longer to render.",
        "displayName=(Shadow Step (%)), minValue=(1), maxValue=(10000), enable=(::render=1)");
    desc.addParamBool("lightcache", true, kSingle,
                      "if true, a light cache will be used for diffuse lighting");
    desc.addParamFloat("lightcachesr", 0.9f, kSingle, nullptr,
                       "displayName=(Light Cache Speedup), minValue=(0), maxValue=(0.999), "
                       "enable=(::lightcache=1)");
    desc.addParamInt("pmprimary", 0);
    desc.addParamInt("pmbounces", 1);
    desc.addParamInt("heathaze", 0, kSingle, "Render mode: Heat Haze");
    desc.addParamFloat("hhfactor", 1.0f, kSingle, nullptr,
                       "displayName=(Heat Haze), minValue=(-1000.0), maxValue=(1000.0)");
    desc.addParamInt("rendsolid", 0, kSingle, "Render mode: Isosurface");
    desc.addParamInt("geommode", 0);
    desc.addParamInt("rendMode", -1, kSingle,
                     "Render mode enum, one of the NmbRenderSets::RendMode enum values");
    desc.addParamBool("left_handed_coord", false, kSingle, "deprecated");
    desc.addParamBool("mbself", true);
    desc.addParamBool("jitter", true, kSingle, nullptr,
                      "displayName=(Jittering), enable=(::render=1)");
    desc.addParamFloat(
        "softb", 0.0f, kSingle, nullptr,
        "displayName=(Fade Out), minValue=(0.0), maxValue=(40.0), enable=(::render=1)");
    desc.addParamFloat("difmul", 1.0f, kSingle, nullptr,
                       "displayName=(Diffuse Multiplier), minValue=(0.0), maxValue=(4.0), "
                       "enable=(::noscatter!=0)");
    desc.addParamInt("sampler", 1, kSingle, nullptr,
                     "displayName=(Sampler Type), enum=(0:Box; 1:Linear; 2:Spherical)");
    desc.addParamFloat(
        "smoketransp", 0.5f, kSingle, nullptr,
        "displayName=(Simple Smoke Opacity), minValue=(0.0), maxValue=(1.0), enable=(::targ=0)");
    desc.addParamBool("alphaunitscale", false);
    desc.addParamFloat("basedensityscale", 1.0f);
    desc.addParamBool("optvolpass", true, kSingle,
                      "Enables the \"Optimizing Volumetrics\" prepass for grids over 15 million "
                      "voxels which speeds up their sampling during rendering.");
}

void scatteringRows(TessraParameterListDesc& desc) {
    desc.addParamFloat("stoptransp", 0.999f);
    desc.addParamFloat("skiptransp", 0.001f);
    desc.addParamInt("noscatter", 3, kSingle, nullptr,
                     "displayName=(Scattering), enum=(0:Ray-Traced (GI "
                     "Only);1:Disabled;2:Approximate;3:Approximate+Shadows)");
    desc.addParamFloat("brdfscatter", 1.0f);
    desc.addParamFloat("transfown", 1.0f, kSingle, nullptr,
                       "displayName=(Own Light Scatter Mult), minValue=(0.0), maxValue=(10.0), "
                       "enable=(::noscatter=2;::noscatter=3)");
    desc.addParamFloat("transfext", 1.0f, kSingle, nullptr,
                       "displayName=(External Scatter Mult), minValue=(0.0), maxValue=(10.0), "
                       "enable=(::noscatter=2;::noscatter=3)");
    desc.addParamInt("transpmode", 1);
    desc.addParamFloat("bias", 1.0f);
    desc.addParamInt("usebias", 0);
    desc.addParamBool("wrapx", false);
    desc.addParamBool("wrapy", false);
    desc.addParamBool("wrapz", false);
    desc.addParamPlugin("lightlinks", ids::kLight, kList);
    desc.addParamInt("bounces", 10, kSingle, nullptr,
                     "displayName=(Scatter Depth), enable=(::noscatter=0)");
    desc.addParamFloat(
        "velocity_mult", 1.0f, kSingle, "Velocity multiplier for the volume renderer.",
        "displayName=(Velocity Multiplier), minValue=(0), maxValue=(1000), enable=(::render=1)");
    desc.addParamBool("velocities_from_uvw", false);
    desc.addParamFloat("shad_strength", 1.0f, kSingle, nullptr,
                       "displayName=(Shadow Strength), minValue=(0.0), maxValue=(100)");
    desc.addParamInt("coord_method", 0, kSingle, nullptr,
                     "displayName=(Coordinate Method), enum=(0:Fixed; 1:Grid)");
    desc.addParamFloat("gamma_mult", 1.0f, kSingle, "Gamma multiplier for Nimbra's render output.");
    desc.addParamBool("mbgrid", false, kSingle,
                      "Use a more realistic grid-based motion blur, at the expense of more memory "
                      "and a render pre-pass.");
    desc.addParamInt("mbsmooth", 3, kSingle,
                     "Number of Gaussian passes to smooth out the grid-based motion blur.");
}

void fadeObjectRows(TessraParameterListDesc& desc) {
    desc.addParamInt("usefadeobj", 0, kSingle,
                     "Use 1 to enable the displacement fading around an object");
    desc.addParamFloat("displgeomfade", 20.0f);
    desc.addParamPlugin("fadeobj", ids::kStaticGeomSource);
    desc.addParamTransform("fadeobj_transform", true, Transform());
}

void meshAndOceanRows(TessraParameterListDesc& desc) {
    desc.addParamBool("mesher", false, kSingle,
                      "If true, use mesher to generate runtime Tessra static mesh");
    desc.addParamInt("smoothmesh", 0, kSingle, nullptr,
                     "displayName=(Mesh Smoothing Level), minValue=(0), maxValue=(20)");
    desc.addParamBool("useprt", false);
    desc.addParamFloat("prtsz", 0.5f);
    desc.addParamFloat("meshsubdiv", 2.0f, kSingle, "Ocean mesh camera subdivisions");
    desc.addParamFloat("oceanhorizrough", 1.0f, kSingle, "Horizon roughness of the ocean mesh");
    desc.addParamFloat(
        "oceanextramargin", 0.0f, kSingle,
        "The ocean is generated only in the camera view, which can lead to problems when using "
        "camera motion blur, using reflections, or when the ocean casts shadows on objects "
        "underwater. This option allows you to extend the ocean further from the borders of the "
        "camera view in order to solve such issues. The parameter is in % of the image size.");
    desc.addParamFloat(
        "oceantransitionzone", 0.1f, kSingle,
        "The width of the zone where the liquid level of the simulator gradually fades into the "
        "ocean level, as a fraction of the smaller of the horizontal sides of the simulator.");
    desc.addParamFloat("cachestretchzone", 0.06f);
    desc.addParamBool("pureocean", false, kSingle,
                      "In Ocean Mesh or Cap Mesh mode, the cache files will not be used and the "
                      "ocean will be built without cache files for each frame");
    desc.addParamFloat("darksky", 0.5f);
    desc.addParamBool("ocean", false, kSingle,
                      "If true, generate 'ocean' geometry outside the simulator.");
    desc.addParamFloat("oceanlevel", 50.0f, kSingle, "Mesh 'ocean' level",
                       "displayName=(Ocean Level), minValue=(0), maxValue=(100)");
}

void fireRows(TessraParameterListDesc& desc) {
    desc.addParamInt("normalized_positions", 0, kSingle,
                     "If true, ecolor_position, dcolor_positions and transp_positions are "
                     "normalized between offset and scale.");
    desc.addParamBool("mod_e", false, kSingle, nullptr,
                      "displayName=(Modulate with Texture), enable=(::earg!=0,::earg!=4)");
    desc.addParamInt("earg", 1, kSingle, nullptr,
                     "displayName=(Based On), enum=(0:Disabled; 1:Temperature; 2:Smoke; 3:Speed; "
                     "4:Texture; 5:RGB; 10:Fuel)");
    desc.addParamTexture("etex", &kNoTexture, kSingle, nullptr,
                         "displayName=(Emissive Texture), attributes=(textureSlot)");
    desc.addParamColor("ecolor", Color());
    desc.allowList("ecolor");
    desc.addParam("ecolor_positions", paramtype_float, kList);
    desc.addParam("ecolor_colors", paramtype_color, kList);
    desc.addParam("ecolor_interpolations", paramtype_int, kList, "Currently not used!");
    desc.addParamPlugin(
        "ecolor_remap", ids::kColorRemap, kSingle, nullptr,
        "displayName=(Fire Color Gradient), enable=(::earg!=0,::earg!=4,::earg!=5)");
    desc.addParam("elum_positions", paramtype_float, kList);
    desc.addParam("elum_values", paramtype_float, kList);
    desc.addParam("elum_interpolations", paramtype_int, kList,
                  "0: none, 1: linear, 2: smooth, 3: spline, 4: bezier, 5: logarithmic+bezier");
    desc.addParamPlugin(
        "elum_remap", ids::kFloatRemap, kSingle, nullptr,
        "displayName=(Fire Luminance Gradient), enable=(::earg!=0,::earg!=4,::earg!=5)");
    desc.addParamFloat("ecolor_offset", 0.0f, kSingle, nullptr,
                       "displayName=(Input Offset), enable=(::earg!=0,::earg!=4,::earg!=5)");
    desc.addParamFloat(
        "ecolor_scale", 1.0f, kSingle, nullptr,
        "displayName=(Input Scale), minValue=(0), enable=(::earg!=0,::earg!=4,::earg!=5)");
    desc.addParamFloat("emult", 1.0f, kSingle, "multiplier for the emission color",
                       "displayName=(Luminance Scale), minValue=(0), enable=(::earg!=0,::earg!=5)");
    desc.addParamFloat(
        "etmult", 1.0f, kSingle,
        "multiplier for the emission alpha if Fire Opacity Mode is set to Use Own Opacity.",
        "displayName=(Opacity Multiplier), minValue=(0), maxValue=(100), "
        "enable=(::earg!=0,::earg!=5,::fire_opacity_mode!=0)");
    desc.addParamFloat("blackbody", -1.0f);
    desc.addParamInt("fire_opacity_mode", 0, kSingle,
                     "0 - Use Smoke Opacity, 1 - Fully Visible, 2 - Use Own Opacity",
                     "displayName=(Opacity Mode), enum=(0:Use Diffuse Opacity;1:Fully "
                     "Visible;2:Use Own Opacity)");
}

void diffuseRows(TessraParameterListDesc& desc) {
    desc.addParamBool("mod_d", false, kSingle, nullptr,
                      "displayName=(Modulate with Texture), enable=(::darg!=0,::darg!=4)");
    desc.addParamInt("darg", 5, kSingle, nullptr,
                     "displayName=(Based On), enum=(0:Disabled; 1:Temperature; 2:Smoke; 3:Speed; "
                     "4:Texture; 5:Simple Color; 6:RGB; 10:Fuel)");
    desc.addParamTexture("dtex", &kNoTexture, kSingle, nullptr,
                         "displayName=(Diffuse Texture), attributes=(textureSlot)");
    desc.addParamColor("dcolor", Color());
    desc.allowList("dcolor");
    desc.addParam("dcolor_positions", paramtype_float, kList);
    desc.addParam("dcolor_colors", paramtype_color, kList);
    desc.addParam("dcolor_interpolations", paramtype_int, kList, "Currently not used!");
    desc.addParamPlugin(
        "dcolor_remap", ids::kColorRemap, kSingle, nullptr,
        "displayName=(Diffuse Color Gradient), enable=(::darg!=0,::darg!=4,::darg!=5,::darg!=6)");
    desc.addParamFloat(
        "dcolor_offset", 0.0f, kSingle, nullptr,
        "displayName=(Input Offset), enable=(::darg!=0,::darg!=4,::darg!=5,::darg!=6)");
    desc.addParamFloat("dcolor_scale", 1.0f, kSingle, nullptr,
                       "displayName=(Input Scale), minValue=(0), "
                       "enable=(::darg!=0,::darg!=4,::darg!=5,::darg!=6)");
    desc.addParamAColor("simple_color", AColor{{0.2f, 0.2f, 0.2f}, 1.0f}, kSingle, nullptr,
                        "displayName=(Simple Color), enable=(::darg=5)");
}

void opacityRows(TessraParameterListDesc& desc) {
    desc.addParamBool("mod_t", false, kSingle, nullptr,
                      "displayName=(Modulate with Texture), enable=(::targ!=4)");
    desc.addParamInt("targ", 0, kSingle, nullptr,
                     "displayName=(Based On), enum=(0:Simple Smoke; 1:Temperature; 2:Smoke; "
                     "3:Speed; 4:Texture; 10:Fuel)");
    desc.addParamTexture("ttex", &kNoTexture, kSingle, nullptr,
                         "displayName=(Opacity Texture), attributes=(textureSlot)");
    desc.addParamFloat("transp", 0.0f);
    desc.allowList("transp");
    desc.addParam("transp_positions", paramtype_float, kList);
    desc.addParam("transp_values", paramtype_float, kList);
    desc.addParam("transp_interpolations", paramtype_int, kList,
                  "0: none, 1: linear, 2: smooth, 3: spline");
    desc.addParamPlugin("transp_remap", ids::kFloatRemap, kSingle, nullptr,
                        "displayName=(Opacity Gradient), enable=(::targ!=0,::targ!=4)");
    desc.addParamFloat("transp_offset", 0.0f, kSingle, nullptr,
                       "displayName=(Input Offset), enable=(::targ!=0,::targ!=4)");
    desc.addParamFloat("transp_scale", 1.0f, kSingle, nullptr,
                       "displayName=(Input Scale), minValue=(0), enable=(::targ!=0,::targ!=4)");
    desc.addParamFloat("tmult", 1.0f, kSingle, nullptr,
                       "displayName=(Opacity Scale), minValue=(0), enable=(::targ!=0,::targ!=4)");
    desc.addParamFloat("transp_power", 1.0f, kSingle, "deprecated");
    desc.addParamFloat("shadow_opacity", 1.0f);
    desc.addParamFloat("cell_aspect", 1.0f, 3);
}

void velocitySourceRows(TessraParameterListDesc& desc) {
    desc.addParamInt("varg", 0, kSingle, "0-normal velocity; 2-texture");
    desc.addParamTexture("vtex", &kNoTexture, kSingle, nullptr,
                         "displayName=(Velocity Texture), attributes=(textureSlot)");
    desc.addParamInt("mod_v", 0);
    desc.addParam("velocities", paramtype_color, kList);
}

void renderCutterRows(TessraParameterListDesc& desc) {
    desc.addParamInt("usegizmo", 0, kSingle, "enable using of render cutter");
    desc.addParamInt("invgizmo", 0, kSingle, "invert the volume of the render cutter");
    desc.addParamPlugin("gizmo", ids::kStaticGeomSource);
    desc.addParamTransform("gizmo_transform", true, Transform());
}

void fireLightsRows(TessraParameterListDesc& desc) {
    desc.addParamBool("al_enable", true, kSingle, nullptr,
                      "displayName=(Create Fire Lights), startRollout=(Light from Fire)");
    desc.addParamInt(
        "lights", 0, kSingle, nullptr,
        "displayName=(Lights Count), minValue=(0), maxValue=(1000), enable=(::al_enable=1)");
    desc.addParamInt("al_placing", 2, kSingle, nullptr,
                     "displayName=(Lights Placement), enum=(0:Simple;1:Inside;2:Reduced Grid)");
    desc.addParamInt("al_sampling", 1, kSingle, nullptr,
                     "displayName=(Sampling), enum=(0:Simple;1:DMC)");
    desc.addParamInt(
        "al_subdivs", 8, kSingle, nullptr,
        "displayName=(Direct Subdivs), minValue=(0), maxValue=(20000), enable=(::al_enable=1)");
    desc.addParamInt("al_csubdivs", 1000, kSingle, nullptr,
                     "displayName=(Caustics Subdivs), minValue=(0), enable=(::al_enable=1)");
    desc.addParamFloat("al_cmult", 1.0f, kSingle, nullptr,
                       "displayName=(Caustics Multiplier), enable=(::al_enable=1)");
    desc.addParamBool(
        "persistlights", false, kSingle,
        "if true, the emissive lights will be created, even the volume is not renderable",
        "enable=(::al_enable=1)");
    desc.addParamInt("selfshadow", 2, kSingle, nullptr,
                     "displayName=(Self-shadowing), enum=(0:None;1:Ray-traced;2:Grid-based)");
    desc.addParamInt("al_decay", 2, kSingle, nullptr,
                     "displayName=(Decay Type), enum=(0:None;1:Inverse;2:Inverse Square)");
    desc.addParamFloat("gridreduct", 5.0f, kSingle, nullptr,
                       "displayName=(Reduce Grid to (%)), minValue=(0.01), maxValue=(100), "
                       "enable=(::al_enable=1)");
    desc.addParamFloat(
        "lightsmult", 1.0f, kSingle, nullptr,
        "displayName=(Light Power on Scene), minValue=(0), maxValue=(100), enable=(::al_enable=1)");
    desc.addParamFloat(
        "lightsmultself", 1.0f, kSingle, nullptr,
        "displayName=(Light Power on Self), minValue=(0), maxValue=(100), enable=(::al_enable=1)");
    desc.addParamFloat(
        "lightscut", 0.001f, kSingle, "cut off threshold for the lights",
        "displayName=(Light Cut-off), minValue=(0), maxValue=(1), enable=(::al_enable=1)");
    desc.addParamFloat("radmult", 1.0f, kSingle, nullptr,
                       "displayName=(Light radius multiplier), minValue=(0), maxValue=(1000), "
                       "enable=(::al_enable=1)");
    desc.addParamFloat("self_illum_map_min_pow", 0.1f);
}

void visibilityRows(TessraParameterListDesc& desc) {
    desc.addParamBool("generate_gi", true, kSingle, nullptr,
                      "displayName=(Generate GI), startRollout=(Visibility)");
    desc.addParamBool("receive_gi", true);
    desc.addParamFloat("gen_gi_mult", 1.0f, kSingle, nullptr,
                       "displayName=(Generate GI mult.), minValue=(0), enable=(::generate_gi=1)");
    desc.addParamFloat("rec_gi_mult", 1.0f, kSingle, nullptr,
                       "displayName=(Receive GI mult.), minValue=(0), enable=(::receive_gi=1)");
    desc.addParamBool("generate_caust", true);
    desc.addParamBool("receive_caust", true);
    desc.addParamFloat("caust_mult", 1.0f, kSingle, nullptr,
                       "displayName=(Caustics mult.), minValue=(0)");
    desc.addParamBool("camera_visibility", true, kSingle, nullptr,
                      "displayName=(Visible to Camera), startRollout=()");
    desc.addParamBool("reflections_visibility", true);
    desc.addParamBool("refractions_visibility", true);
    desc.addParamBool("gi_visibility", true);
    desc.addParamBool("shadows_visibility", true);
}

void renderChannelsRows(TessraParameterListDesc& desc) {
    desc.addParamPlugin("channels", ids::kRenderChannel, kList);
    desc.addParamPlugin("channels_raw", ids::kRenderChannel, kList);
    desc.addParamPlugin("channels_diffuse", ids::kRenderChannel, kList);
    desc.addParamPlugin("channels_specular", ids::kRenderChannel, kList);
}

void renderElementsRows(TessraParameterListDesc& desc) {
    desc.addParamColor("material_id", Color(), kSingle, nullptr,
                       "displayName=(Volumetric Material ID), startRollout=(Render Elements)");
    desc.addParamInt("volnorm", 0, kSingle, nullptr,
                     "displayName=(Volumetric Normals), enum=(0:Disable; 1:Separate channel)");
    desc.addParamInt("volzdepth", 0, kSingle, nullptr,
                     "displayName=(Volumetric Z-Depth), enum=(0:Disable; 1:Standard channel; "
                     "2:Separate channel)");
}

}  // namespace

void buildSimParameters(TessraParameterListDesc& desc) {
    containerRows(desc);
    surfaceRows(desc);
    displacementRows(desc);
    marchingRows(desc);
    scatteringRows(desc);
    fadeObjectRows(desc);
    meshAndOceanRows(desc);
    fireRows(desc);
    diffuseRows(desc);
    opacityRows(desc);
    velocitySourceRows(desc);
    renderCutterRows(desc);
    fireLightsRows(desc);
    visibilityRows(desc);
    renderChannelsRows(desc);
    renderElementsRows(desc);
}

}  // namespace nimbra
