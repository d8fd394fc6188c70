// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a cache shows at a moment: where its time bend leads, the files that are read and how they
// are blended. Nothing is loaded.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cache/time_bend.h"
#include "host/frame_number.h"

namespace TessUtils {
class TessraPlugin;
}

namespace nimbra::cli {

/// How one cache plays, at a moment: its rows may be animated.
struct CachePlayback {
    struct Smoothing {
        int channel;
        float threshold, similarity, randomize;
    };
    std::string name;     // of the plug-in; empty for plain files
    std::string path;     // file or pattern, as it is looked for
    bool isFile = false;  // the path is that of one file, even if it looks like a pattern
    TimeBend bend;
    bool bent = true;  // the time bend applies
    int ticksPerFrame = 1000;
    int blendMethod = 0;
    std::vector<Smoothing> smoothing{};
};

/// The settings of a cache of a scene. The scene's folder has to be set.
CachePlayback playbackOf(TessUtils::TessraPlugin& cache, double time);

/// A frame that is wanted, and the file for it.
struct WantedFrame {
    std::int64_t frame = 0;
    bool exists = false;
    std::string file;  // where it is, or would be
    /// The frame of the file; where there is none, of the nearest that there is, or the same again.
    std::int64_t found = 0;
    bool servesAll = false;  // a single file stands for any frame
};

struct CacheMoment {
    host::FrameNumber time;
    CachePlayback playback;
    std::int64_t ticks = 0;
    FrameMix mix;
    /// One, or the two that are blended; none without a path and outside the play range.
    std::vector<WantedFrame> frames;
    bool outside = false;  // of the play range, or of all numbers

    double cacheFrame() const;
    /// Whether a file that the moment needs is missing, and whether any is there.
    bool lacksFile() const;
    bool hasFile() const;
};

/// `nearestOfMissing`: for a file that isn't there, `found` is the nearest that is, which takes a
/// look at all names of the folder.
CacheMoment momentOf(const CachePlayback& playback, host::FrameNumber time,
                     bool nearestOfMissing = true);

/// Some lines for people, and a JSON object. `input`: the scene or the files that were asked for.
std::string momentText(const CacheMoment& moment, const std::string& input);
std::string momentJson(const CacheMoment& moment, const std::string& input);

}  // namespace nimbra::cli
