// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The lean march step for opacity alone.
#include "volume/step_segment.h"

namespace nimbra {

namespace {

/// Moves on by a step; false past the end.
bool advanceAlpha(RaySegment& segment) {
    if ((segment.state & kSegmentFinished) != 0)
        return false;
    segment.tCur = std::max(segment.tCur + segment.stepT, segment.threshold);
    if (segment.tCur > segment.tEnd) {
        segment.tCur = segment.tEnd;
        segment.state |= kSegmentFinished;
    }
    return true;
}

}  // namespace

bool VolumeShader::stepSegmentAlpha(RaySegment& segment, Illuminator& illuminator, float time,
                                    bool first) const {
    // The walk itself starts back by a random part of a step, so that later steps need no jitter.
    if (first && has(kJitter))
        segment.tCur -= segment.stepT * illuminator.random();
    const int filter = pickFilter(*this, illuminator.kind | kKindTransparency);
    const std::uint32_t mask = has(kTexOpacity) ? 0u : kSampleT;
    VoxelSample sample;
    for (int round = 0; round < kMaxMarchRounds && advanceAlpha(segment); ++round) {
        const TessUtils::Vector pos = segment.origin + segment.dir * segment.tCur;
        if (emptyMapCount != 0 && isMarkedEmpty(*this, pos))
            continue;
        sampleVoxel(pos, sample, mask, nullptr, time, filter);
        TessUtils::Color alpha = getOpacity(sample, segment.stepLength) * shadowDensityScale;
        if (largest(alpha) <= segment.stepLength * skiptransp)
            continue;
        fadeOpacity(alpha, borderFade(*this, pos));
        segment.alpha = {std::min(alpha.r, 1.0f), std::min(alpha.g, 1.0f), std::min(alpha.b, 1.0f)};
        segment.time = time;
        segment.samplePos = pos;
        segment.stepWorld = segment.stepLength;
        return true;
    }
    segment.alpha = {};
    if ((segment.state & kSegmentFinished) == 0)
        segment.state |= kSegmentFinished | kSegmentStuck;
    return false;
}

}  // namespace nimbra
