// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/time_bend.h"

#include <algorithm>
#include <cmath>

namespace nimbra {

namespace {

/// Largest integer not above v; kNoTicks where there is none in 64 bits.
std::int64_t floorTicks(float v) {
    constexpr float kLimit = 9.0e18f;
    if (!(v > -kLimit && v < kLimit))
        return kNoTicks;
    const std::int64_t whole = static_cast<std::int64_t>(v);
    return static_cast<float>(whole) > v ? whole - 1 : whole;
}

/// f moved by whole lengths into 0.001 to length - 0.001 as far as that goes, then limited to 0 to
/// length - 0.001. Steps of single precision; where there would be too many (or where a step is
/// lost in rounding), all but the last few are taken at once.
float wrapIntoLoop(float f, float length) {
    constexpr float kMargin = 0.001f;
    constexpr double kMostSteps = 100000;
    const float end = length - kMargin;
    if (!std::isfinite(f) || !std::isfinite(length))
        return 0.0f;
    if (std::fabs(static_cast<double>(f)) > kMostSteps * length)
        f = static_cast<float>(std::fmod(static_cast<double>(f), static_cast<double>(length)));
    while (!(f >= kMargin) && f + length != f)
        f += length;
    while (!(f < end) && f - length != f && f > 0.0f)
        f -= length;
    return std::clamp(f, 0.0f, std::max(end, 0.0f));
}

}  // namespace

std::int64_t timeBend(const TimeBend& s, std::int64_t ticks, int ticksPerFrame, bool bend,
                      float* loopBlend, int* loopFrame) {
    const float tpf = static_cast<float>(ticksPerFrame);
    const float t = static_cast<float>(ticks) / tpf;
    if (loopBlend)
        *loopBlend = -1.0f;
    if (loopFrame)
        *loopFrame = 0;

    float f = t;
    const float length = static_cast<float>(s.maxLength) * s.playSpeed;
    const bool limited = length > 0.0001f;
    const float played = (t - static_cast<float>(s.playAt)) * s.playSpeed;
    const float offset = static_cast<float>(s.readOffset);
    if (bend && s.mode == kPlayFrameIndex) {
        f = s.frameIndex;
    } else if (bend && s.mode == kPlayLinear) {
        f = played;
        if (limited && (!(f >= 0.0f) || f > length)) {
            constexpr float kNowhere = -2147483648.0f;
            f = s.loadNearest ? std::clamp(f, 0.0f, length) : kNowhere;
        }
        f += offset;
    } else if (bend && s.mode == kPlayLoop) {
        f = played;
        if (limited) {
            f = wrapIntoLoop(f, length);
            const float overlap = static_cast<float>(s.loopOverlap) * s.playSpeed;
            if (loopBlend && overlap > 1e-6f && f <= overlap)
                *loopBlend = 1.0f - f / (overlap + 1.0f);
            if (loopFrame)
                *loopFrame = static_cast<int>(
                    std::clamp(offset + f + length, -2147483648.0f, 2147483520.0f));
        }
        f += offset;
    }
    return floorTicks(tpf * f + 0.5f);
}

std::int64_t ticksOfTime(double time, int ticksPerFrame) {
    constexpr double kLimit = 9.0e18;
    const double ticks = static_cast<double>(ticksPerFrame) * time;
    return ticks > -kLimit && ticks < kLimit ? static_cast<std::int64_t>(ticks) : kNoTicks;
}

FrameMix frameMix(std::int64_t ticks, int ticksPerFrame, float loopBlend, int loopFrame) {
    // A tick this close above a whole frame, in frames, is that frame.
    constexpr float kLeastBlend = 1e-5f;
    constexpr float kFarthest = 9.0e18f;
    const float frames = static_cast<float>(ticks) / static_cast<float>(ticksPerFrame);
    const float whole = std::floor(frames);
    const float fraction = frames - whole;
    FrameMix mix;
    mix.first = std::fabs(whole) < kFarthest ? static_cast<std::int64_t>(whole) : kNoTicks;
    mix.second = mix.first;
    if (fraction > kLeastBlend) {
        mix.kind = FrameMix::kBetween;
        mix.second = mix.first + 1;
        mix.weight = fraction;
    } else if (loopBlend >= 0) {
        mix.kind = FrameMix::kOverlap;
        mix.second = loopFrame;
        mix.weight = loopBlend;
    }
    return mix;
}

int saturatedTicks(std::int64_t ticks) {
    return static_cast<int>(std::clamp<std::int64_t>(ticks, INT32_MIN, INT32_MAX));
}

}  // namespace nimbra
