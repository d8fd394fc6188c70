// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The 64-bit identifiers by which a host and its plug-ins find each other's interfaces.
// They are persistent: scenes and other plug-ins refer to them, so none may ever change.
#pragma once

#include <cstdint>

using InterfaceID = std::uint64_t;
using PluginID = std::uint64_t;

namespace TessUtils::ids {

// Interfaces that plug-ins offer.
inline constexpr InterfaceID kTessraPlugin = 0x7776FFFF;    // "EXT_TESSRA_PLUGIN"
inline constexpr InterfaceID kSceneModifier = 2009100803;   // "EXT_SCENE_MODIFIER"
inline constexpr InterfaceID kTopLevelPlugin = 2012111201;  // "EXT_TOP_LEVEL_PLUGIN_INTERFACE"
inline constexpr InterfaceID kRenderSettings = 0x77770010;
inline constexpr InterfaceID kStaticGeomSource = 0x77770003;   // "EXT_STATIC_GEOM_SOURCE"
inline constexpr InterfaceID kGeomGen = 2004418561;            // "EXT_GEOM_GEN"
inline constexpr InterfaceID kGeomGen2 = 2013112256;           // "EXT_GEOM_GEN2"
inline constexpr InterfaceID kVolumetric = 0x2005072410;       // "EXT_VOLUMETRIC"
inline constexpr InterfaceID kRenderChannel = 2005101401;      // "EXT_RENDER_CHANNEL"
inline constexpr InterfaceID kZDepthChannelData = 2013011001;  // "RTZDepthChannelData"
inline constexpr InterfaceID kPerParticleData = 2011100301;    // "EXT_PER_PARTICLE_SOURCE_DATA"
inline constexpr InterfaceID kPerParticleData2 = 2012050701;   // "EXT_PER_PARTICLE_SOURCE_DATA2"
inline constexpr InterfaceID kGeomMesh = 2012051201;
inline constexpr InterfaceID kGeomParticleData = 2011041901;  // "EXT_GEOM_PARTICLE_DATA"
inline constexpr InterfaceID kUserAttrData = 20150617001;     // "RTUserAttrData"
inline constexpr InterfaceID kMappedSurface = 2004353040;     // "EXT_MAPPED_SURFACE"
inline constexpr InterfaceID kDynamicUpdate = 2012171201;     // "EXT_RT_DYNUPDATE"
inline constexpr InterfaceID kTexture = 2004353026;           // "EXT_TEXTURE"
inline constexpr InterfaceID kTextureFloat = 2004353027;      // float textures of this host
inline constexpr InterfaceID kLight = 0x77780005;
inline constexpr InterfaceID kUvwGen = 2014021801;
inline constexpr InterfaceID kColorRemap = 2015032301;  // colour gradients of the host
inline constexpr InterfaceID kFloatRemap = 2014102302;  // curves of the host

// The library's own.
inline constexpr InterfaceID kNimbraSim = 2011030201;  // "NmbShaderSimInterface"
inline constexpr InterfaceID kNimbraVolumeRegister = 2018030801;
inline constexpr InterfaceID kNimbraCacheSettings = 2018102301;

// Asked of the renderer and of the sequence.
inline constexpr InterfaceID kCameraSettings = 2005131001;
inline constexpr InterfaceID kSceneUnits = 2007041201;
inline constexpr InterfaceID kScene = 2009100802;
inline constexpr InterfaceID kInteractiveEngine = 2010220801;
inline constexpr InterfaceID kProbabilisticSettings = 2015100901;
inline constexpr InterfaceID kVolumetricList = 0x77B17DE1;
inline constexpr InterfaceID kPlanckTable = 2011061401;        // black-body luminance by Kelvin
inline constexpr InterfaceID kRenderChannelList = 2005101402;  // the channels of this render
inline constexpr InterfaceID kLightCacheEngine = 2012061501;

// Asked of plug-ins that read sequences of files.
inline constexpr InterfaceID kFrameSource = 2026010102;

}  // namespace TessUtils::ids
