// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The destructors of the interfaces: out of line, so that each type's run-time information exists
// once, here, for the host and all its plug-ins.
#include "tessra/allocator.h"
#include "tessra/camera.h"
#include "tessra/geometry.h"
#include "tessra/light.h"
#include "tessra/managers.h"
#include "tessra/parameters.h"
#include "tessra/plugin_base.h"
#include "tessra/progress.h"
#include "tessra/shading.h"
#include "tessra/surface_shading.h"
#include "tessra/thread_manager.h"
#include "tessra/volumetric.h"

PluginInterface::~PluginInterface() = default;
PluginHost::~PluginHost() = default;
EnumPluginCallback::~EnumPluginCallback() = default;

namespace TessUtils {

MemoryTracker::~MemoryTracker() = default;
TessraPluginParameter::~TessraPluginParameter() = default;
EnumParameterCallback::~EnumParameterCallback() = default;
ProgressCallback::~ProgressCallback() = default;
ThreadProcedure::~ThreadProcedure() = default;
ThreadManager::~ThreadManager() = default;
RaySampler::~RaySampler() = default;
ShadingContext::~ShadingContext() = default;
BRDFSampler::~BRDFSampler() = default;
LightListInterface::~LightListInterface() = default;
LightSampler::~LightSampler() = default;
UserPrimitive::~UserPrimitive() = default;
StaticGeomInstance::~StaticGeomInstance() = default;
TessraVolume::~TessraVolume() = default;
BSDFSampler::~BSDFSampler() = default;
BSDFShadeable::~BSDFShadeable() = default;
LightingResultsAllocator::~LightingResultsAllocator() = default;
CameraSampler::~CameraSampler() = default;
AssetManagerInterface::~AssetManagerInterface() = default;
BitmapManagerInterface::~BitmapManagerInterface() = default;
PlugAnimationUpdater::~PlugAnimationUpdater() = default;

}  // namespace TessUtils
