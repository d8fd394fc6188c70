// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/cache_moment.h"

#include <algorithm>
#include <functional>

#include "cache/channel_id.h"
#include "cache/enum_files.h"
#include "cache/env_path.h"
#include "cache/file_patterns.h"
#include "host/parameter_view.h"
#include "tessra/renderer.h"

namespace nimbra::cli {
namespace {

std::vector<CachePlayback::Smoothing> smoothingOf(const host::ParameterView& rows, double time) {
    const auto mask = static_cast<std::uint32_t>(rows.getInt("smooth_mask"));
    const auto value = [&](const char* name, int channel) {
        const auto* const list = rows.find(name);
        return list ? list->getFloat(channel, time) : 0.0f;
    };
    std::vector<CachePlayback::Smoothing> smoothing;
    for (int c = 0; c < kChannelSlots; ++c)
        if (mask & channelBit(c))
            smoothing.push_back({c, value("smooth_threshold", c), value("smooth_similarity", c),
                                 value("smooth_randomize", c)});
    return smoothing;
}

WantedFrame findFile(const CachePlayback& playback, std::int64_t frame, bool nearestOfMissing) {
    using NimbraEnum::Mode;
    if (playback.isFile)
        return {frame, true, playback.path, NimbraEnum::kAnyFrame, true};
    WantedFrame wanted;
    wanted.frame = frame;
    wanted.exists = NimbraEnum::chooseFile(playback.path, frame,
                                           playback.bend.loadNearest ? Mode::Nearest : Mode::Exact,
                                           wanted.file, wanted.found);
    if (!wanted.exists) {
        wanted.found = frame;
        if (nearestOfMissing)
            NimbraEnum::chooseFile(playback.path, frame, Mode::Nearest, wanted.file, wanted.found);
        wanted.file = FilePattern(nativePath(playback.path)).fill(frame);
    }
    wanted.servesAll = wanted.exists && wanted.found == NimbraEnum::kAnyFrame;
    return wanted;
}

}  // namespace

CachePlayback playbackOf(TessUtils::TessraPlugin& cache, double time) {
    const host::ParameterView rows(cache, time);
    CachePlayback p;
    p.name = cache.getPluginName();
    p.path = networkPath(
        expandEnvironment(TessUtils::adjustRelativePath(&cache, rows.getString("cache_path"))));
    p.bend.mode = rows.getInt("anim_mode");
    p.bend.loopOverlap = rows.getInt("loop_overlap");
    p.bend.readOffset = rows.getInt("read_offset");
    p.bend.playAt = rows.getInt("play_at");
    p.bend.maxLength = rows.getInt("max_length");
    p.bend.playSpeed = rows.getFloat("play_speed");
    p.bend.frameIndex = rows.getFloat("t2f");
    p.bend.loadNearest = rows.getBool("load_nearest");
    p.bent = rows.getBool("time_tform");
    p.ticksPerFrame = rows.getInt("TPF");
    p.blendMethod = rows.getInt("blend_method");
    p.smoothing = smoothingOf(rows, time);
    return p;
}

double CacheMoment::cacheFrame() const {
    return static_cast<double>(ticks) / playback.ticksPerFrame;
}

bool CacheMoment::lacksFile() const {
    return !std::all_of(frames.begin(), frames.end(), std::mem_fn(&WantedFrame::exists));
}

bool CacheMoment::hasFile() const {
    return std::any_of(frames.begin(), frames.end(), std::mem_fn(&WantedFrame::exists));
}

CacheMoment momentOf(const CachePlayback& p, host::FrameNumber time, bool nearestOfMissing) {
    CacheMoment m;
    m.time = time;
    m.playback = p;
    float loopBlend = -1;
    int loopFrame = 0;
    m.ticks = timeBend(p.bend, ticksOfTime(time.time(), p.ticksPerFrame), p.ticksPerFrame, p.bent,
                       &loopBlend, &loopFrame);
    m.mix = frameMix(m.ticks, p.ticksPerFrame, loopBlend, loopFrame);
    // Where no number of a file is, so that no user's frame is taken for it.
    constexpr std::int64_t kFarOut = -2'000'000'000;
    m.outside = m.ticks == kNoTicks || m.mix.first < kFarOut;
    if (p.path.empty() || m.outside)
        return m;
    m.frames.push_back(findFile(p, m.mix.first, nearestOfMissing));
    if (m.mix.kind != FrameMix::kWhole)
        m.frames.push_back(findFile(p, m.mix.second, nearestOfMissing));
    return m;
}

}  // namespace nimbra::cli
