// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A walk through smoke whose opacity is that of one channel (StepPlan::gray), four steps at a time:
// the grid is read for each, the look-ups are shared. Shadow rays go all their way by it, others
// pass the clear steps between those that show.
#pragma once

#include <algorithm>

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
          kernel(kernelOf(kFourKernels)),
          tCur(raySegment.tCur),
          back(shader.has(kJitter) ? raySegment.stepT * illuminator.jitter : 0),
          finished((raySegment.state & kSegmentFinished) != 0),
          round(roundsTaken) {
        // In between, positions only go one way on each axis.
        allInside = isInside(at(tCur + segment.stepT)) && isInside(at(segment.tEnd));
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
        moveOn();
        if (taken == 0)
            return false;
        findOpacities(sample());
        return true;
    }
    /// The opacities of these steps, 0 where nothing shows.
    __m128 opacities() const { return _mm_and_ps(opacity, shows); }
    /// A bit for each step that shows anything.
    unsigned shown() const { return static_cast<unsigned>(_mm_movemask_ps(shows)); }
    /// What else the grid's colour channels hold at a step, which must be a shown one.
    __m128 gridColorOf(int step) const {
        const __m128 position = positions[step];
        if (!allInside && !isInside(position)) [[unlikely]]
            return _mm_setzero_ps();
        return finiteOrZero4(kernelOf(kThreeKernels)(shader.channels + kSlotColor, position));
    }
    /// What shading asks for at a shown step beside its opacity.
    void lookAt(int step, VoxelSample& sample) const {
        const std::uint32_t others = segment.plan.mask & ~kSampleT;
        const TessUtils::Vector position = positionOf(step);
        sample.position = position;
        if (others == kSampleColor)
            sample.gridColor = colorOf(gridColorOf(step));
        else if (others != 0)
            shader.sampleVoxel(position, sample, others, nullptr, segment.time,
                               segment.plan.filter);
    }
    /// Makes a shown step the one at which the segment stands. Rounds count from here on.
    void accept(int step) {
        const float alpha = laneOf(opacity, step);
        segment.tCur = laneOf(times, step);
        segment.alpha = {alpha, alpha, alpha};
        segment.invAlpha = alpha > 1e-6f ? 1 / alpha : 0;
        segment.samplePos = positionOf(step);
        round = taken - step - 1;
    }
    TessUtils::Vector positionOf(int step) const {
        alignas(16) float p[4];
        _mm_store_ps(p, positions[step]);
        return {p[0], p[1], p[2]};
    }
    /// Goes back to where that one of these steps is the next.
    void returnTo(int step) {
        round -= taken - step;
        finished = finished && clippedStep < step;
        tCur = step > 0 ? laneOf(times, step - 1) : before;
    }
    int rounds() const { return round; }

private:
    static __m128 lanesOf(const TessUtils::Vector& v) { return _mm_setr_ps(v.x, v.y, v.z, 0.0f); }
    static float laneOf(__m128 v, int lane) {
        alignas(16) float lanes[4];
        _mm_store_ps(lanes, v);
        return lanes[lane];
    }

    template <class Kernel>
    Kernel kernelOf(const Kernel (&kernels)[24]) const {
        return kernels[segment.plan.filter * 8 + static_cast<int>(shader.wrapFlags / kSampleWrapX)];
    }

    /// The position of t in all lanes.
    __m128 at(__m128 t) const { return _mm_add_ps(origin, _mm_mul_ps(dir, t)); }
    __m128 at(float t) const { return at(_mm_set1_ps(t - back)); }
    bool isInside(__m128 p) const {
        return insideBox(shader, {p[0], p[1], p[2]}, shader.wrapFlags);
    }

    void moveOn() {
        const float step = segment.stepT;
        before = tCur;
        const float t0 = tCur + step, t1 = t0 + step, t2 = t1 + step, t3 = t2 + step;
        times = _mm_setr_ps(t0, t1, t2, t3);
        taken = kLanes;
        clippedStep = -1;
        if (t3 <= segment.tEnd && round <= kMaxMarchRounds - kLanes) [[likely]]
            tCur = t3;
        else
            stopAtEnd();
        round += taken;
        place(_mm_sub_ps(times, _mm_set1_ps(back)));
    }

    /// Shortens these steps to those up to the segment's end.
    void stopAtEnd() {
        alignas(16) float t[kLanes];
        _mm_store_ps(t, times);
        const int most = std::min(kLanes, kMaxMarchRounds - round);
        for (taken = 0; taken < most; ++taken) {
            if (t[taken] > segment.tEnd) {
                if (finished)
                    break;
                t[taken] = segment.tEnd;
                finished = true;
                clippedStep = taken;
            }
            tCur = t[taken];
        }
        times = _mm_load_ps(t);
    }

    void place(__m128 t) {
        positions[0] = at(splat<0>(t));
        positions[1] = at(splat<1>(t));
        positions[2] = at(splat<2>(t));
        positions[3] = at(splat<3>(t));
    }

    __m128 sample() const {
        const __m128 values = kernel(shader.channels[kSlotT], taken, positions[0], positions[1],
                                     positions[2], positions[3]);
        if (allInside) [[likely]]
            return values;
        const auto inside = [this](int step) { return isInside(positions[step]) ? -1 : 0; };
        const __m128i mask = _mm_setr_epi32(inside(0), inside(1), inside(2), inside(3));
        return _mm_and_ps(values, _mm_castsi128_ps(mask));
    }

    void findOpacities(__m128 sampled) {
        const __m128 t = normalized4(shader, kSlotT, sampled);
        const __m128 found = _mm_mul_ps(smokeOpacity4(shader, t, segment.stepLength), scale);
        opacity = _mm_min_ps(found, _mm_set1_ps(1.0f));
        const __m128i there = _mm_cmplt_epi32(_mm_setr_epi32(0, 1, 2, 3), _mm_set1_epi32(taken));
        shows = _mm_and_ps(_mm_cmpnle_ps(found, _mm_set1_ps(segment.plan.clearBelow)),
                           _mm_castsi128_ps(there));
    }

    RaySegment& segment;
    const VolumeShader& shader;
    const __m128 origin, dir;
    const __m128 scale;  // of the opacity
    const FourKernel kernel;
    float tCur;
    const float back;  // jitter
    bool finished;
    bool allInside;
    int round;
    // Of the steps at hand, lane by lane.
    int taken = 0;
    int clippedStep = -1;  // the one that the end cut short
    float before = 0;      // tCur ahead of them
    __m128 times;
    __m128 positions[kLanes];
    __m128 opacity, shows;
};

}  // namespace nimbra
