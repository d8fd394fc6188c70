// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The fast path of shadow rays: a walk through plain smoke (StepPlan::plain), whose steps nobody
// looks at one by one. Four steps at a time: the grid is read for each, the look-ups are shared.
#pragma once

#include <bit>

#include "volume/march_loop.h"
#include "volume/opacity_lanes.h"
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
    static constexpr int kLanes = 4;

    PlainWalk(RaySegment& raySegment, const Illuminator& illuminator)
        : segment(raySegment),
          shader(*raySegment.shader),
          origin(lanesOf(raySegment.origin)),
          dir(lanesOf(raySegment.dir)),
          highFaces(_mm_add_ps(lanesOf(shader.gridMax), _mm_set1_ps(kFaceSlack))),
          periodicAxes(static_cast<int>(shader.wrapFlags / kSampleWrapX)),
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

    /// Calls `pass(opacity)` for each step that shows anything; it answers false to end the walk.
    /// While `endsSoon()` holds, no steps are looked at that might not be needed.
    template <class Pass, class EndsSoon>
    void run(const Pass& pass, const EndsSoon& endsSoon) {
        for (int steps = sample(endsSoon() ? 1 : kLanes); steps > 0;
             steps = sample(endsSoon() ? 1 : kLanes)) {
            for (unsigned left = findOpacities(steps); left != 0; left &= left - 1) {
                if (!pass(opacity[std::countr_zero(left)]))
                    return;
            }
        }
    }

private:
    static __m128 lanesOf(const TessUtils::Vector& v) { return _mm_setr_ps(v.x, v.y, v.z, 0.0f); }

    /// Reads the grid at the next steps, `most` or as many as there are; answers their number.
    int sample(int most) {
        int steps = 0;
        for (; steps < most && round < kMaxMarchRounds; ++round, ++steps) {
            tCur += segment.stepT;
            if (tCur > segment.tEnd) {
                if (finished)
                    break;
                tCur = segment.tEnd;
                finished = true;
            }
            const __m128 p = _mm_add_ps(origin, _mm_mul_ps(dir, _mm_set1_ps(tCur - back)));
            values[steps + kSlotT] = 0;
            if (insideFaces(p)) {
                float position[4];
                _mm_storeu_ps(position, p);
                segment.plan.kernel(shader.channels, position, values + steps, kSampledSlots,
                                    kSampleT, 0);
            }
        }
        return steps;
    }

    /// insideBox.
    bool insideFaces(__m128 p) const {
        const __m128 inside =
            _mm_and_ps(_mm_cmpge_ps(p, _mm_set1_ps(-kFaceSlack)), _mm_cmple_ps(p, highFaces));
        return ((_mm_movemask_ps(inside) | periodicAxes) & 7) == 7;
    }

    /// The opacities of the steps that were read; answers a bit for each that shows anything.
    unsigned findOpacities(int steps) {
        const __m128 t = normalized4(shader, kSlotT, _mm_loadu_ps(values + kSlotT));
        const __m128 found = _mm_mul_ps(smokeOpacity4(shader, t, segment.stepLength),
                                        _mm_set1_ps(shader.shadowDensityScale));
        _mm_store_ps(opacity, _mm_min_ps(found, _mm_set1_ps(1.0f)));
        const __m128 shown = _mm_cmpnle_ps(found, _mm_set1_ps(segment.plan.clearBelow));
        return static_cast<unsigned>(_mm_movemask_ps(shown)) & ((1u << steps) - 1);
    }

    RaySegment& segment;
    const VolumeShader& shader;
    const __m128 origin, dir, highFaces;
    const int periodicAxes;
    float tCur;
    const float back;  // jitter
    bool finished;
    int round = 0;
    /// Kernels write where the slot is: the first step's value is values[kSlotT].
    float values[kSlotT + kLanes] = {};
    alignas(16) float opacity[kLanes];
};

}  // namespace nimbra
