// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/cache_plugin.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "cache/channel_mapping.h"
#include "cache/env_path.h"
#include "cache/external_readers.h"
#include "cache/file_patterns.h"
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

constexpr const char* kDamagedText =
    "[NimbraCachePlugin] The input.kol file is damaged, incomplete or in unsupported file "
    "format!\nIf the file was saved by Nimbra 2.2 or older, please simulate the scene again, but "
    "note that the results may differ.";

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

/// floor(v + 0.5) within the range of sizes; 0 for what is no number.
int roundedSize(float v) {
    constexpr float kLargest = 1.0e9f;
    const float rounded = std::floor(v + 0.5f);
    return rounded > 0 ? static_cast<int>(std::min(rounded, kLargest)) : 0;
}

int saturated(std::int64_t ticks) {
    return static_cast<int>(std::clamp<std::int64_t>(ticks, INT32_MIN, INT32_MAX));
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

std::string NimbraCachePlugin::resolvedPath() {
    std::string path = adjustRelativePath(this, rows_.cache_path);
    if (renderer_)
        path = remapPath(renderer_->getSequenceData(), path);
    return networkPath(expandEnvironment(path));
}

void NimbraCachePlugin::readSmoothing(double time) {
    const auto read = [&](const char* name, int channel) {
        TessraPluginParameter* const list = getParameter(name);
        return list ? list->getFloat(channel, time) : 0.0f;
    };
    const auto mask = static_cast<std::uint32_t>(rows_.smooth_mask);
    float values[kChannelSlots][3] = {};
    for (int c = 0; c < kChannelSlots; ++c) {
        if (!(mask & channelBit(c)))
            continue;
        values[c][0] = read("smooth_threshold", c);
        values[c][1] = read("smooth_similarity", c);
        values[c][2] = read("smooth_randomize", c);
    }
    frame_->storeSmoothSettings(mask, values[0]);
}

void NimbraCachePlugin::prepare(double time) {
    if (!paramsCached_) {
        cacheRows(time);
        paramsCached_ = true;
    }
    path_ = resolvedPath();
    rows_.grid_size_z = std::max(rows_.grid_size_z, 1.0f);
    readSmoothing(time);
}

void NimbraCachePlugin::fillChannelMap() {
    if (path_.empty() || fileExtension(path_) == "kol" || !rows_.usrchmap.empty())
        return;
    if (progress())
        progress()->printWarning(
            "Loading vdb/f3d without specified channel mappings! Defaults will be used instead!");
    if (channelMapPattern_ != path_) {
        foundChannelMap_ = CacheIO::findChannelMap(path_);
        channelMapPattern_ = path_;
    }
    rows_.usrchmap = foundChannelMap_;
}

/// Runs a request; the held frame, or null when it ended in an exception, which goes no further.
template <class Request>
NimbraFrameData* NimbraCachePlugin::guarded(Request&& request) {
    try {
        request();
    } catch (const std::exception& e) {
        frame_->releaseFrames();
        if (progress())
            progress()->printWarning("[NimbraCachePlugin] %s\n", e.what());
    }
    return frame_->data;
}

NimbraFrameData* NimbraCachePlugin::getFrameByTime(double time) {
    if (loaded_.load(std::memory_order_acquire) || time >= kLoadedFrameTime)
        return frame_->data;
    const std::lock_guard lock(section_);
    if (loaded_.load(std::memory_order_relaxed))
        return frame_->data;
    return guarded([&] {
        prepare(time);
        const std::int64_t ticks = timeBend(bendSettings(), ticksOfTime(time, rows_.TPF), rows_.TPF,
                                            rows_.time_tform != 0);
        loadFrame(ticks, "");
    });
}

NimbraFrameData* NimbraCachePlugin::getFrameByContentTime(int contentTime) {
    const std::lock_guard lock(section_);
    return guarded([&] {
        prepare(renderer_ ? renderer_->getFrameData().t : 0.0);
        loadFrame(contentTime, "'");
    });
}

void NimbraCachePlugin::loadFrame(std::int64_t ticks, const char* quote) {
    fillChannelMap();
    setImportProblem("");
    const int emptySize[3] = {roundedSize(rows_.grid_size_x), roundedSize(rows_.grid_size_y),
                              roundedSize(rows_.grid_size_z)};
    constexpr int kWithVoxels = 0;
    frame_->stop = progress();
    const int status =
        frame_->load(ticks, path_, rows_.blend_method, rows_.TPF, emptySize, rows_.cell_size,
                     rows_.isMayaFluid != 0, rows_.load_nearest == 0, kWithVoxels, rows_.usrchmap);
    NimbraFrameData* const data = frame_->data;
    const int flip = rows_.flip_yz ? 2 : 1;
    if (data && (data->upAxisFlipped != 0) != (rows_.flip_yz != 0))
        data->flipUpAxis(flip);
    loaded_.store(true, std::memory_order_release);

    ProgressCallback* const log = progress();
    if (!log)
        return;
    if (status == kFrameDamaged)
        log->printWarning("%s", kDamagedText);
    if (data) {
        log->printInfo("[NimbraCachePlugin] Frame data %d successfully loaded from %s%s%s.\n",
                       saturated(ticks), quote, path_.c_str(), quote);
        // The same of every frame of a sequence is said once.
        const std::string& warning = lastImportWarning();
        if (!warning.empty() && warning != saidWarning_)
            log->printWarning("[NimbraCachePlugin] %s: %s\n", path_.c_str(), warning.c_str());
        if (!warning.empty())
            saidWarning_ = warning;
        return;
    }
    log->printInfo("[NimbraCachePlugin] Frame data %d can't be loaded from %s%s%s.\n",
                   saturated(ticks), quote, path_.c_str(), quote);
    if (!lastImportProblem().empty())
        log->printWarning("[NimbraCachePlugin] %s\n", lastImportProblem().c_str());
}

int NimbraCachePlugin::getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) {
    const std::lock_guard lock(section_);
    cacheRows(time);
    return saturated(timeBend(bendSettings(), ticksOfTime(time, rows_.TPF), rows_.TPF, bend,
                              loopBlend, loopFrame));
}

bool NimbraCachePlugin::loadedFrame(double& time) {
    const std::lock_guard lock(section_);
    if (!loaded_.load(std::memory_order_relaxed) || !frame_->data)
        return false;
    time = static_cast<double>(frame_->currentFrame) / std::max(rows_.TPF, 1);
    return true;
}

int NimbraCachePlugin::getNimbraMesh(NimbraMesh&) {
    return 0;
}

}  // namespace nimbra
