// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From render time to cache time: linear, by an explicit index, or in a loop. Cache time is counted
// in ticks, so that a moment between two saved frames can be named.
#pragma once

#include <cstdint>

namespace nimbra {

enum PlaybackMode : int { kPlayLinear = 0, kPlayFrameIndex = 1, kPlayLoop = 2 };

/// Frames are frames of the cache, unless said otherwise.
struct TimeBend {
    int mode = kPlayLinear;
    int loopOverlap = 0;       // render frames over which a loop's end blends into its start
    int readOffset = 0;        // first frame read
    int playAt = 0;            // render frame where playing starts
    int maxLength = 0;         // render frames to play; 0: no end
    float playSpeed = 1;       // cache frames in a render frame
    float frameIndex = 0;      // the frame itself, in the mode of that name
    bool loadNearest = false;  // hold the first and last frame outside the play range
};

/// Ticks of a frame that doesn't exist.
inline constexpr std::int64_t kNoTicks = INT32_MIN;

/// Ticks of the cache for ticks of the render, `ticksPerFrame` to a frame of either. Without `bend`
/// they pass through. Outside the play range the answer is hugely negative, far below 32 bits.
/// `loopBlend` takes the weight of the overlapped frame while a loop's start is blended, else -1;
/// `loopFrame` that frame's number, not in ticks, else 0. Both may be null.
/// All sums are rounded to single precision.
std::int64_t timeBend(const TimeBend& settings, std::int64_t ticks, int ticksPerFrame, bool bend,
                      float* loopBlend = nullptr, int* loopFrame = nullptr);

/// Ticks of a render time, rounded toward zero.
std::int64_t ticksOfTime(double time, int ticksPerFrame);

/// The frames of the cache that a moment is made of.
struct FrameMix {
    enum Kind {
        kWhole,    // `first` alone
        kBetween,  // a moment between `first` and the next frame
        kOverlap,  // a loop's start, into which its end still fades
    };
    Kind kind = kWhole;
    std::int64_t first = 0, second = 0;
    float weight = 0;  // of `second`, 0 to 1

    bool operator==(const FrameMix&) const = default;
};

/// What a tick number of the cache shows. `loopBlend` and `loopFrame` as timeBend answers them.
FrameMix frameMix(std::int64_t ticks, int ticksPerFrame, float loopBlend, int loopFrame);

/// The nearest number of 32 bits.
int saturatedTicks(std::int64_t ticks);

}  // namespace nimbra
