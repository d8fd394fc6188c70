// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A walk through smoke whose opacity is that of one channel (StepPlan::gray), four steps at a time:
// the grid is read for each, the look-ups are shared. Shadow rays go all their way by it, others
// pass the clear steps between those that show.
#pragma once

#include "cache/sampler_lanes.h"
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

/// Takes the same steps as stepSegment does. The segment's first step has been taken; its progress
/// is kept here and given back at the end.
class PlainWalk {
public:
    static constexpr int kLanes = 4;

    /// `roundsTaken` of those that a walk may take at most lie behind it.
    PlainWalk(RaySegment& raySegment, const Illuminator& illuminator, int roundsTaken = 0)
        : segment(raySegment),
          shader(*raySegment.shader),
          origin(lanesOf(raySegment.origin)),
          dir(lanesOf(raySegment.dir)),
          scale(_mm_set1_ps((raySegment.state & kSegmentColored) != 0
                                ? 1.0f
                                : raySegment.shader->shadowDensityScale)),
          kernel(kRunKernels[segment.plan.filter * 8 +
                             static_cast<int>(shader.wrapFlags / kSampleWrapX)]),
          tCur(raySegment.tCur),
          back(shader.has(kJitter) ? raySegment.stepT * illuminator.jitter : 0),
          finished((raySegment.state & kSegmentFinished) != 0),
          round(roundsTaken) {
        // In between, positions only go one way on each axis.
        allInside = isInside(tCur + segment.stepT) && isInside(segment.tEnd);
        _mm_store_ps(values, _mm_setzero_ps());
    }
    ~PlainWalk() {
        segment.tCur = tCur;
        if (finished)
            segment.state |= kSegmentFinished;
        else if (round >= kMaxMarchRounds)
            segment.state |= kSegmentFinished | kSegmentStuck;
    }
    PlainWalk(const PlainWalk&) = delete;
    PlainWalk& operator=(const PlainWalk&) = delete;

    /// Looks at the next four steps, or as many as there are; false at the end.
    bool next() {
        const int steps = moveOn();
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
    TessUtils::Vector positionOf(int step) const {
        return {positions[step][0], positions[step][1], positions[step][2]};
    }
    /// Goes back to where that one of these steps is the next.
    void returnTo(int step) {
        round -= taken - step;
        finished = finished && clippedStep < step;
        tCur = step > 0 ? times[step - 1] : before;
    }
    int rounds() const { return round; }

private:
    static __m128 lanesOf(const TessUtils::Vector& v) { return _mm_setr_ps(v.x, v.y, v.z, 0.0f); }

    __m128 at(__m128 t) const { return _mm_add_ps(origin, _mm_mul_ps(dir, t)); }
    bool isInside(float t) const {
        const __m128 p = at(_mm_set1_ps(t - back));
        return insideBox(shader, {p[0], p[1], p[2]}, shader.wrapFlags);
    }

    /// Answers how many steps there are.
    int moveOn() {
        const float step = segment.stepT;
        before = tCur;
        const float t0 = tCur + step, t1 = t0 + step, t2 = t1 + step, t3 = t2 + step;
        if (!(t3 <= segment.tEnd) || round > kMaxMarchRounds - kLanes) [[unlikely]]
            return moveToEnd();
        tCur = t3;
        round += kLanes;
        taken = kLanes;
        clippedStep = -1;
        place(_mm_setr_ps(t0, t1, t2, t3));
        return kLanes;
    }

    [[gnu::noinline]] int moveToEnd() {
        taken = 0;
        clippedStep = -1;
        for (; taken < kLanes && round < kMaxMarchRounds; ++round, ++taken) {
            float t = tCur + segment.stepT;
            if (t > segment.tEnd) {
                if (finished)
                    break;
                t = segment.tEnd;
                finished = true;
                clippedStep = taken;
            }
            tCur = times[taken] = t;
        }
        if (taken == 0)
            return 0;
        for (int i = taken; i < kLanes; ++i)
            times[i] = tCur;
        place(_mm_load_ps(times));
        return taken;
    }

    void place(__m128 t) {
        _mm_store_ps(times, t);
        t = _mm_sub_ps(t, _mm_set1_ps(back));
        _mm_store_ps(positions[0], at(splat<0>(t)));
        _mm_store_ps(positions[1], at(splat<1>(t)));
        _mm_store_ps(positions[2], at(splat<2>(t)));
        _mm_store_ps(positions[3], at(splat<3>(t)));
    }

    void sample(int steps) {
        const GridChannelProxy<float>& channel = shader.channels[kSlotT];
        if (allInside) [[likely]]
            return kernel(channel, positions, steps, values);
        _mm_store_ps(values, _mm_setzero_ps());
        for (int i = 0; i < steps; ++i) {
            if (insideBox(shader, positionOf(i), shader.wrapFlags))
                kernel(channel, positions + i, 1, values + i);
        }
    }

    void findOpacities(int steps) {
        // One by one: a load of all waits until the single stores have left the pipeline.
        const __m128 sampled = _mm_setr_ps(values[0], values[1], values[2], values[3]);
        const __m128 t = normalized4(shader, kSlotT, sampled);
        const __m128 found = _mm_mul_ps(smokeOpacity4(shader, t, segment.stepLength), scale);
        _mm_store_ps(opacity, _mm_min_ps(found, _mm_set1_ps(1.0f)));
        shows = _mm_cmpnle_ps(found, _mm_set1_ps(segment.plan.clearBelow));
        if (steps < kLanes) [[unlikely]] {
            const __m128i there =
                _mm_cmplt_epi32(_mm_setr_epi32(0, 1, 2, 3), _mm_set1_epi32(steps));
            shows = _mm_and_ps(shows, _mm_castsi128_ps(there));
        }
    }

    RaySegment& segment;
    const VolumeShader& shader;
    const __m128 origin, dir;
    const __m128 scale;  // of the opacity
    const RunKernel kernel;
    float tCur;
    const float back;  // jitter
    bool finished;
    bool allInside;
    int round;
    // Of the steps at hand.
    int taken = 0;
    int clippedStep = -1;  // the one that the end cut short
    float before = 0;      // tCur ahead of them
    __m128 shows;
    alignas(16) float times[kLanes];
    alignas(16) float positions[kLanes][4];
    alignas(16) float values[kLanes];
    alignas(16) float opacity[kLanes];
};

}  // namespace nimbra
