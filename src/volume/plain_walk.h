// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The fast path of shadow rays: a walk through plain smoke (StepPlan::plain), whose steps nobody
// looks at one by one.
#pragma once

#include "volume/march_loop.h"
#include "volume/shading_lookup.h"
#include "volume/voxel_lookup.h"

namespace nimbra {

/// Opacity of a step of plain smoke, not limited.
inline float plainOpacity(const VolumeShader& shader, const RaySegment& segment,
                          const TessUtils::Vector& pos) {
    const float t = sampleScalar(shader, segment.plan.kernel, kSlotT, pos);
    return smokeOpacity(shader, t, segment.stepLength);
}

/// Takes the same steps as stepSegment does on a segment without colour. The segment's first step
/// has been taken; its progress is kept here and given back at the end.
class PlainWalk {
public:
    PlainWalk(RaySegment& raySegment, const Illuminator& illuminator)
        : segment(raySegment),
          shader(*raySegment.shader),
          tCur(raySegment.tCur),
          back(shader.has(kJitter) ? raySegment.stepT * illuminator.jitter : 0),
          finished((raySegment.state & kSegmentFinished) != 0) {}
    ~PlainWalk() {
        segment.tCur = tCur;
        if (finished)
            segment.state |= kSegmentFinished;
        else if (round >= kMaxMarchRounds)
            segment.state |= kSegmentFinished | kSegmentStuck;
    }
    PlainWalk(const PlainWalk&) = delete;
    PlainWalk& operator=(const PlainWalk&) = delete;

    /// The opacity of the next step that shows anything; false at the end.
    bool next(float& opacity) {
        while (round++ < kMaxMarchRounds) {
            tCur += segment.stepT;
            if (tCur > segment.tEnd) {
                if (finished)
                    return false;
                tCur = segment.tEnd;
                finished = true;
            }
            const TessUtils::Vector pos = segment.origin + segment.dir * (tCur - back);
            opacity = plainOpacity(shader, segment, pos) * shader.shadowDensityScale;
            if (!(opacity <= segment.plan.clearBelow)) {
                opacity = opacity < 1 ? opacity : 1;
                return true;
            }
        }
        return false;
    }

private:
    RaySegment& segment;
    const VolumeShader& shader;
    float tCur;
    const float back;  // jitter
    bool finished;
    int round = 0;
};

}  // namespace nimbra
