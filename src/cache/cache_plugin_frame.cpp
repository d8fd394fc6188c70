// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Requests for a frame: from a time and the rows of the moment to the frame that is held.

#include <algorithm>
#include <cmath>
#include <exception>

#include "cache/cache_plugin.h"
#include "cache/channel_mapping.h"
#include "cache/env_path.h"
#include "cache/external_readers.h"
#include "cache/file_patterns.h"
#include "cache/host_query.h"
#include "cache/nimbra_frame.h"
#include "cache/origin_velocity.h"

namespace nimbra {

using namespace TessUtils;

namespace {

constexpr const char* kDamagedText =
    "[NimbraCachePlugin] The input.kol file is damaged, incomplete or in unsupported file "
    "format!\nIf the file was saved by Nimbra 2.2 or older, please simulate the scene again, but "
    "note that the results may differ.";

/// floor(v + 0.5) within the range of sizes; 0 for what is no number.
int roundedSize(float v) {
    constexpr float kLargest = 1.0e9f;
    const float rounded = std::floor(v + 0.5f);
    return rounded > 0 ? static_cast<int>(std::min(rounded, kLargest)) : 0;
}

}  // namespace

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

void NimbraCachePlugin::fillChannelMap(std::int64_t frame) {
    if (path_.empty() || fileExtension(path_) == "kol" || !rows_.usrchmap.empty())
        return;
    if (progress())
        progress()->printWarning(
            "Loading vdb/f3d without specified channel mappings! Defaults will be used instead!");
    if (channelMapPattern_ != path_) {
        foundChannelMap_ = CacheIO::findChannelMap(path_, frame);
        // Frames that are missing now say nothing of the others.
        if (foundChannelMap_ != CacheIO::ownChannelMap())
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
        loaded_.store(true, std::memory_order_release);
        if (progress())
            progress()->printWarning("[NimbraCachePlugin] %s\n", e.what());
    }
    return frame_->data;
}

NimbraFrameData* NimbraCachePlugin::getFrameByTime(double time) {
    if (loaded_.load(std::memory_order_acquire))
        return frame_->data;
    const std::lock_guard lock(section_);
    if (loaded_.load(std::memory_order_relaxed) || time >= kLoadedFrameTime)
        return frame_->data;
    return guarded([&] {
        prepare(time);
        const std::int64_t ticks =
            timeBend(bendSettings(), ticksOfTime(time, rows_.TPF), rows_.TPF, rows_.time_tform != 0,
                     &frame_->fixedBlendWeight, &frame_->fixedBlendTarget);
        loadFrame(ticks, "");
    });
}

NimbraFrameData* NimbraCachePlugin::getFrameByContentTime(int contentTime) {
    const std::lock_guard lock(section_);
    return guarded([&] {
        prepare(renderer_ ? renderer_->getFrameData().t : 0.0);
        // Without a time bend no loop has an overlap.
        frame_->fixedBlendWeight = -1;
        frame_->fixedBlendTarget = 0;
        loadFrame(contentTime, "'");
    });
}

void NimbraCachePlugin::loadFrame(std::int64_t ticks, const char* quote) {
    fillChannelMap(frameMix(ticks, rows_.TPF, -1, 0).first);
    setImportProblem("");
    const int status = loadInto(*frame_, ticks);
    // Copies: velocities load another frame.
    std::string warning, problem;
    warning = lastImportWarning();
    problem = lastImportProblem();
    turnUpAxis();
    makeVelocities(ticks);
    loaded_.store(true, std::memory_order_release);
    if (ProgressCallback* const log = progress()) {
        log->printInfo("[NimbraCachePlugin] Frame data %d %s from %s%s%s.\n", saturatedTicks(ticks),
                       frame_->data ? "successfully loaded" : "can't be loaded", quote,
                       path_.c_str(), quote);
        reportImport(warning, problem);
        reportBlend(status);
    }
}

int NimbraCachePlugin::loadInto(NimbraFrame& holder, std::int64_t ticks) {
    const int emptySize[3] = {roundedSize(rows_.grid_size_x), roundedSize(rows_.grid_size_y),
                              roundedSize(rows_.grid_size_z)};
    constexpr int kWithVoxels = 0;
    holder.stop = progress();
    const int status =
        holder.load(ticks, path_, rows_.blend_method, rows_.TPF, emptySize, rows_.cell_size,
                    rows_.isMayaFluid != 0, rows_.load_nearest == 0, kWithVoxels, rows_.usrchmap);
    if (status == kFrameDamaged && progress())
        progress()->printWarning("%s", kDamagedText);
    return status;
}

void NimbraCachePlugin::turnUpAxis() {
    constexpr int kFlip = 2, kFlipBack = 1;
    NimbraFrameData* const data = frame_->data;
    const bool wanted = rows_.flip_yz != 0;
    if (data && (data->upAxisFlipped != 0) != wanted)
        data->flipUpAxis(wanted ? kFlip : kFlipBack);
}

void NimbraCachePlugin::makeVelocities(std::int64_t ticks) {
    NimbraFrameData* const data = frame_->data;
    if (!rows_.velocities_from_uvw || !data || hasOriginVelocities(*data) || !renderer_ ||
        !hasMotionBlur(renderer_))
        return;
    NimbraFrame next;
    loadInto(next, ticks + rows_.TPF);
    if (next.data)
        velocitiesFromOrigin(*data, *next.data);
}

void NimbraCachePlugin::reportImport(const std::string& warning, const std::string& problem) {
    // The same of every frame of a sequence is said once.
    if (!warning.empty() && warning != saidWarning_) {
        progress()->printWarning("[NimbraCachePlugin] %s: %s\n", path_.c_str(), warning.c_str());
        saidWarning_ = warning;
    }
    if (!problem.empty())
        progress()->printWarning("[NimbraCachePlugin] %s\n", problem.c_str());
}

void NimbraCachePlugin::reportBlend(int status) {
    if (frame_->missingFrame != NimbraFrameData::kNoFrame) {
        progress()->printWarning(
            "[NimbraCachePlugin] Between two frames of %s: frame %lld %s, %s\n", path_.c_str(),
            static_cast<long long>(frame_->missingFrame),
            frame_->missingIsUnreadable ? "can't be read" : "is missing",
            frame_->data ? "the other one is shown" : "the other one is missing");
        return;
    }
    // An empty grid that can't be made has the number of a blend without IDs.
    if (!frame_->data)
        return;
    const char* lack = nullptr;
    switch (status) {
        case kFrameScaleMismatch:
            lack = "the two frames don't go together, the first one is shown";
            break;
        case kFrameNoParticleId:
            lack = "particles are left out, since a group has no IDs to match them by";
            break;
        case kFrameNoParticleAge:
            lack = "particles are left out, since a group has no ages to match them by";
            break;
        case kFrameVelocityFallback:
            lack = "there are no velocities to blend along, the frames are interpolated";
            break;
        default:
            return;
    }
    progress()->printWarning("[NimbraCachePlugin] Between two frames of %s: %s\n", path_.c_str(),
                             lack);
}

}  // namespace nimbra
