// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The twelve descriptors, in the order of their construction.
#include "plugin/plugin_table.h"

#include "cache/cache_plugin.h"
#include "cache/prt_loader_plugin.h"
#include "plugin/plugin_desc.h"
#include "plugin/sim_plugin.h"
#include "plugin/vol_plugin.h"
#include "tessra/ids.h"
#include "textures/ocean_tex_plugin.h"

namespace nimbra {

namespace {

using namespace TessUtils;

struct DescNode {
    PluginDesc* desc;
    DescNode* next;
};

// Zero before any constructor runs, whichever comes first.
int pluginCount;
DescNode* listHead;

constexpr PluginKind kGeom = {
    "NmbShaderSimGeom", 20110223011,
    "This plugin is created when rendering the Nimbra or Tessra Volume Grid container in "
    "Volumetric Geometry, Volumetric Heat Haze or Isosurface render modes. Other render modes use "
    "either the NimbraMeshPlugin, or the NimbraVolPlugin.",
    ids::kStaticGeomSource, buildGeomParameters};
constexpr PluginKind kMesh = {
    "NmbShaderSimMesh", 20130401011,
    "This plugin is created when rendering the Nimbra or Tessra Volume Grid container in Mesh "
    "render mode. Other render modes use either the NimbraGeomPlugin, or the NimbraVolPlugin.",
    ids::kStaticGeomSource, buildMeshParameters};
constexpr PluginKind kTex = {"NmbShaderTex", 20110223021,
                             "The Nimbra Grid Texture which is used to retrieve a grid container's "
                             "channel data and use it for any operation that accepts textures.",
                             ids::kTexture, buildTexParameters};
constexpr PluginKind kParticleTex = {
    "NmbShaderParticleTex", 20160811011,
    "The Nimbra Particle Texture that converts a particle system into a 3D texture map which "
    "denoted the particle positions either by attaching a piece of a texture to the particle "
    "position in a certain radius, or as a gray-scale map where the particle positions are bright "
    "and the rest or the space is black.",
    ids::kTexture, buildParticleTexParameters};
constexpr PluginKind kOceanTex = {
    "NmbShaderOceanTex", 20130613021,
    "The Ocean displacement texture, used by Nimbra to render its infinite ocean surface",
    ids::kTexture, buildOceanTexParameters};
constexpr PluginKind kCache = {
    "NmbShaderCache", 20110223051,
    "This plugin represents a single cache file from which the rendering data is loaded. The cache "
    "files can be in the Nimbra kol format, or in the OpenVDB or Field3D formats.",
    ids::kNimbraSim, buildCacheParameters};
constexpr PluginKind kSim = {
    "NmbShaderSim", 20110223031,
    "The grid container of Nimbra and the Tessra Volume Grid that can be shades as a volumetric, "
    "as a geometry volumetric, as an isosurface, or meshed",
    ids::kNimbraSim, buildSimParameters};
constexpr PluginKind kFoam = {"NmbShaderFoam", 20110930011,
                              "Nimbra's Particle Shader plugin. Can be used to render particles in "
                              "different modes such as points, bubbles or volumetric fog.",
                              ids::kNimbraSim, buildParticleShaderParameters};
constexpr PluginKind kPGroup = {
    "NmbShaderPGroup", 20110930021,
    "A Particle System simulated by Nimbra. Since one simulator can output many particle systems, "
    "these plugins are used to allow selecting just one of them into a Particle Shader or other "
    "object.",
    ids::kNimbraSim, buildPGroupParameters};
constexpr PluginKind kPrtLoader = {"NmbShaderPrtLoader", 20150611011,
                                   "A loader tool for Krakatoa PRT cache files containing only "
                                   "particle data that can be shaded by Nimbra's Particle Shader",
                                   ids::kNimbraSim, buildPrtLoaderParameters};
constexpr PluginKind kVol = {
    "NmbShaderSimVol", 20110223041,
    "All grid containers and particle shaders that are in volumetric rendering mode are collected "
    "by this plugin's single instance in order to be ray-marched simultaneously, which guarantees "
    "proper blending between intersecting volumetric effects. Particle shaders in Geometry Mode, "
    "as well as Nimbra Simulators and Tessra Volume Grids that are in Volumetric Geometry, "
    "Isosurface or Mesh render mode are not collected by this plugin.",
    ids::kRenderSettings, buildVolParameters};
constexpr PluginKind kTexAlpha = {
    "NmbShaderTexAlpha", 20111124021,
    "Texture used with Maya fluids. Its purpose is to convert the Maya opacity texture to Nimbra.",
    ids::kTexture, buildTexAlphaParameters};

using NimbraCachePluginDesc = PluginDescOf<NimbraCachePlugin>;
using NimbraOceanTexPluginDesc = PluginDescOf<NimbraOceanTexPlugin>;
using NimbraSimPluginDesc = PluginDescOf<NimbraSimPlugin>;
using NimbraPrtLoaderPluginDesc = PluginDescOf<NimbraPrtLoaderPlugin>;
using NimbraVolPluginDesc = PluginDescOf<NimbraVolPlugin>;

// Kinds without a class yet: listed with their table, but not created.
using NimbraGeomPluginDesc = NimbraPluginDesc;
using NimbraMeshPluginDesc = NimbraPluginDesc;
using NimbraTexPluginDesc = NimbraPluginDesc;
using NimbraParticleTexPluginDesc = NimbraPluginDesc;
using NimbraParticleShaderPluginDesc = NimbraPluginDesc;
using NimbraPGroupPluginDesc = NimbraPluginDesc;
using NimbraTexAlphaPluginDesc = NimbraPluginDesc;

// Hosts see them in the reverse of this order.
NimbraGeomPluginDesc geomDesc(kGeom);
NimbraMeshPluginDesc meshDesc(kMesh);
NimbraTexPluginDesc texDesc(kTex);
NimbraParticleTexPluginDesc particleTexDesc(kParticleTex);
NimbraOceanTexPluginDesc oceanTexDesc(kOceanTex);
NimbraCachePluginDesc cacheDesc(kCache);
NimbraSimPluginDesc simDesc(kSim);
NimbraParticleShaderPluginDesc foamDesc(kFoam);
NimbraPGroupPluginDesc pGroupDesc(kPGroup);
NimbraPrtLoaderPluginDesc prtLoaderDesc(kPrtLoader);
NimbraVolPluginDesc volDesc(kVol);
NimbraTexAlphaPluginDesc texAlphaDesc(kTexAlpha);
LibDesc theLibDesc;

}  // namespace

LibDesc::~LibDesc() {
    while (listHead) {
        DescNode* node = listHead;
        listHead = node->next;
        delete node;
    }
}

int LibDesc::enumPlugins(EnumPluginCallback* callback) {
    if (!callback)
        return pluginCount;
    int calls = 0;
    for (DescNode* node = listHead; node; node = node->next) {
        ++calls;
        if (!callback->process(node->desc))
            break;
    }
    return calls;
}

LibDesc& libDesc() {
    return theLibDesc;
}

void enlistPluginDesc(PluginDesc* desc) {
    listHead = new DescNode{desc, listHead};
    ++pluginCount;
}

}  // namespace nimbra
