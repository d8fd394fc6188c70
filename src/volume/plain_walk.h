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
          kernel(kRunKernels[segment.plan.filter * 8 + periodicAxes]),
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

    /// Looks at the next steps, `most` or as many as there are; false at the end.
    bool next(int most) {
        const int steps = moveOn(most);
        if (steps == 0)
            return false;
        sample(steps);
        findOpacities(steps);
        return true;
    }
    /// The opacities of these steps, 0 where nothing shows.
    __m128 opacities() const { return _mm_and_ps(_mm_load_ps(opacity), shows); }
    /// A bit for each step that shows anything.
    unsigned shown() const { return static_cast<unsigned>(_mm_movemask_ps(shows)); }
    float opacityOf(int step) const { return opacity[step]; }

private:
    static __m128 lanesOf(const TessUtils::Vector& v) { return _mm_setr_ps(v.x, v.y, v.z, 0.0f); }

    int moveOn(int most) {
        int steps = 0;
        allInside = true;
        for (; steps < most && round < kMaxMarchRounds; ++round, ++steps) {
            tCur += segment.stepT;
            if (tCur > segment.tEnd) {
                if (finished)
                    break;
                tCur = segment.tEnd;
                finished = true;
            }
            const __m128 p = _mm_add_ps(origin, _mm_mul_ps(dir, _mm_set1_ps(tCur - back)));
            inside[steps] = insideFaces(p);
            allInside = allInside && inside[steps];
            _mm_store_ps(positions[steps], p);
        }
        return steps;
    }

    /// insideBox.
    bool insideFaces(__m128 p) const {
        const __m128 within =
            _mm_and_ps(_mm_cmpge_ps(p, _mm_set1_ps(-kFaceSlack)), _mm_cmple_ps(p, highFaces));
        return ((_mm_movemask_ps(within) | periodicAxes) & 7) == 7;
    }

    void sample(int steps) {
        const GridChannelProxy<float>& channel = shader.channels[kSlotT];
        _mm_store_ps(values, _mm_setzero_ps());
        if (allInside) [[likely]]
            return kernel(channel, positions, steps, values);
        for (int i = 0; i < steps; ++i) {
            if (inside[i])
                kernel(channel, positions + i, 1, values + i);
        }
    }

    void findOpacities(int steps) {
        const __m128 t = normalized4(shader, kSlotT, _mm_load_ps(values));
        const __m128 found = _mm_mul_ps(smokeOpacity4(shader, t, segment.stepLength),
                                        _mm_set1_ps(shader.shadowDensityScale));
        _mm_store_ps(opacity, _mm_min_ps(found, _mm_set1_ps(1.0f)));
        const __m128 taken =
            _mm_castsi128_ps(_mm_cmplt_epi32(_mm_setr_epi32(0, 1, 2, 3), _mm_set1_epi32(steps)));
        shows = _mm_and_ps(taken, _mm_cmpnle_ps(found, _mm_set1_ps(segment.plan.clearBelow)));
    }

    RaySegment& segment;
    const VolumeShader& shader;
    const __m128 origin, dir, highFaces;
    const int periodicAxes;
    const RunKernel kernel;
    float tCur;
    const float back;  // jitter
    bool finished;
    int round = 0;
    bool allInside = true;
    bool inside[kLanes];
    __m128 shows;
    alignas(16) float positions[kLanes][4];
    alignas(16) float values[kLanes];
    alignas(16) float opacity[kLanes];
};

}  // namespace nimbra
