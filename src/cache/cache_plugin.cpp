// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/cache_plugin.h"

#include "cache/external_readers.h"
#include "cache/nimbra_frame.h"
#include "foundation/log.h"
#include "foundation/parallel.h"
#include "tessra/renderer.h"

namespace nimbra {

using namespace TessUtils;

namespace {

// What getLibDesc told the readers.
constexpr const char* kHostWord = "tessra";
constexpr int kHostVersion = 2;

/// Each missing reader is said once in the life of the process.
void reportMissingReaders(unsigned ready, ProgressCallback* progress) {
    static std::atomic<bool> saidField3d{false}, saidOpenVdb{false};
    if (!progress)
        return;
    if (!(ready & kField3dReader) && !saidField3d.exchange(true))
        progress->printInfo(
            "Field3D library failed to initialize. Rendering .f3d cache files will not be "
            "possible.\n");
    if (!(ready & kOpenVdbReader) && !saidOpenVdb.exchange(true))
        progress->printInfo(
            "OpenVDB library failed to initialize. Rendering .vdb cache files will not be "
            "possible.\n");
}

}  // namespace

NimbraCachePlugin::NimbraCachePlugin(TessraPluginDesc* desc)
    : TessraPlugin(desc), frame_(std::make_unique<NimbraFrame>()) {
    bindRows();
}

NimbraCachePlugin::~NimbraCachePlugin() = default;

void NimbraCachePlugin::bindRows() {
    const auto bind = [this](const char* name, auto* member) {
        paramList->setParamCache(name, member);
    };
    bind("cache_path", &rows_.cache_path);
    bind("velocities_from_uvw", &rows_.velocities_from_uvw);
    bind("isMayaFluid", &rows_.isMayaFluid);
    bind("grid_size_x", &rows_.grid_size_x);
    bind("grid_size_y", &rows_.grid_size_y);
    bind("grid_size_z", &rows_.grid_size_z);
    bind("cell_size", &rows_.cell_size);
    bind("anim_mode", &rows_.anim_mode);
    bind("loop_overlap", &rows_.loop_overlap);
    bind("blend_method", &rows_.blend_method);
    bind("read_offset", &rows_.read_offset);
    bind("play_at", &rows_.play_at);
    bind("max_length", &rows_.max_length);
    bind("play_speed", &rows_.play_speed);
    bind("t2f", &rows_.t2f);
    bind("TPF", &rows_.TPF);
    bind("flip_yz", &rows_.flip_yz);
    bind("time_tform", &rows_.time_tform);
    bind("load_nearest", &rows_.load_nearest);
    bind("smooth_mask", &rows_.smooth_mask);
    bind("usrchmap", &rows_.usrchmap);
}

PluginInterface* NimbraCachePlugin::getInterface(InterfaceID id) {
    if (id == ids::kNimbraSim)
        return static_cast<NimbraSimInterface*>(this);
    if (id == ids::kSceneModifier)
        return static_cast<TessraSceneModifierInterface*>(this);
    if (id == ids::kFrameSource)
        return static_cast<FrameSourceInterface*>(this);
    return TessraPlugin::getInterface(id);
}

ProgressCallback* NimbraCachePlugin::progress() const {
    return renderer_ ? renderer_->getSequenceData().progress : nullptr;
}

void NimbraCachePlugin::preRenderBegin(TessraRenderer* renderer) {
    renderer_ = renderer;
    channelMapPattern_.clear();
    saidWarning_.clear();
    const unsigned ready =
        loadExternalCacheReaders(kField3dReader | kOpenVdbReader, nullptr, kHostWord, kHostVersion);
    reportMissingReaders(ready, progress());
    NMBUtils::logLine("NimbraCachePlugin::preRenderBegin setGlobalThreadManager\n");
    ThreadManager* const threads = renderer ? renderer->getSequenceData().threadManager : nullptr;
    NMBUtils::setGlobalThreadManager(threads);
    if (const Field3dReader* reader = field3dReader())
        reader->SetThreadManager(threads);
}

void NimbraCachePlugin::postRenderEnd(TessraRenderer* renderer) {
    NMBUtils::logLine("NimbraCachePlugin::postRenderEnd releaseGlobalThreadManager\n");
    if (const Field3dReader* reader = field3dReader())
        reader->ReleaseThreadManager(renderer ? renderer->getSequenceData().threadManager
                                              : nullptr);
    NMBUtils::releaseGlobalThreadManager();
    renderer_ = nullptr;
}

void NimbraCachePlugin::preFrameBegin(TessraRenderer*) {}

void NimbraCachePlugin::frameEnd(TessraRenderer* renderer) {
    TessraPlugin::frameEnd(renderer);
    releaseFrames();
}

void NimbraCachePlugin::postFrameEnd(TessraRenderer*) {
    releaseFrames();
}

void NimbraCachePlugin::releaseFrames() {
    const std::lock_guard lock(section_);
    paramsCached_ = false;
    if (!loaded_.exchange(false))
        return;
    frame_->releaseFrames();
}

void NimbraCachePlugin::cacheRows(double time) {
    paramList->cacheParams(time);
}

TimeBend NimbraCachePlugin::bendSettings() const {
    TimeBend bend;
    bend.mode = rows_.anim_mode;
    bend.loopOverlap = rows_.loop_overlap;
    bend.readOffset = rows_.read_offset;
    bend.playAt = rows_.play_at;
    bend.maxLength = rows_.max_length;
    bend.playSpeed = rows_.play_speed;
    bend.frameIndex = rows_.t2f;
    bend.loadNearest = rows_.load_nearest != 0;
    return bend;
}

int NimbraCachePlugin::getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) {
    const std::lock_guard lock(section_);
    cacheRows(time);
    return saturatedTicks(timeBend(bendSettings(), ticksOfTime(time, rows_.TPF), rows_.TPF, bend,
                                   loopBlend, loopFrame));
}

bool NimbraCachePlugin::loadedFrame(double& time) {
    const std::lock_guard lock(section_);
    if (!loaded_.load(std::memory_order_relaxed) || !frame_->data || rows_.TPF == 0)
        return false;
    time = static_cast<double>(frame_->currentFrame) / rows_.TPF;
    return true;
}

int NimbraCachePlugin::getNimbraMesh(NimbraMesh& mesh) {
    mesh.faceCount = 0;
    return 0;
}

}  // namespace nimbra
