// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The colour loop: steps are blended front to back.
//   C += color * T,  T *= 1 - alpha
// T. Porter, T. Duff, "Compositing digital images", SIGGRAPH 1984 (the "over" operator with
// colour already multiplied by opacity).
#include <bit>

#include "volume/color_ops.h"
#include "volume/march_loop.h"
#include "volume/plain_walk.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;

namespace {

/// Blends one step. False when nothing behind it shows.
bool blend(ColorMarch& march, const RaySegment& segment, Illuminator& illuminator) {
    Color& T = march.transmittance;
    march.color += stepColor(segment, illuminator) * T;
    march.setDepth(segment, illuminator);
    march.addElements(illuminator, T);
    T *= transparencyOf(segment.alpha);
    illuminator.transmittance = T;
    if (!(largest(T) < segment.shader->stoptransp))
        return true;
    T = {};
    return false;
}

/// Whether stepSegment would do no more than blendSteps does.
bool goesAhead(const RaySegment& segment) {
    return segment.plan.gray && (segment.state & kSegmentColored) != 0 &&
           segment.shader->has(kVolumetric);
}

/// Shades and blends the steps that are left of a segment, sampled several at once.
bool blendSteps(ColorMarch& march, RaySegment& segment, Illuminator& illuminator) {
    PlainWalk walk(segment, illuminator);
    VoxelSample sample;
    int steps = 0;
    while (steps < kMaxMarchRounds && walk.next()) {
        for (unsigned left = walk.shown(); left != 0; left &= left - 1, ++steps) {
            const int step = std::countr_zero(left);
            ++illuminator.stepCounter;
            walk.accept(step);
            walk.lookAt(step, sample);
            segment.shader->shadeVoxel(segment, illuminator, false, sample);
            if (showsAnything(segment) && !blend(march, segment, illuminator))
                return false;
        }
    }
    if (steps >= kMaxMarchRounds)
        segment.state |= kSegmentFinished | kSegmentStuck;
    return true;
}

/// The same; a segment that gets no further is reported.
bool blendRest(ColorMarch& march, RaySegment& segment, Illuminator& illuminator) {
    if (!blendSteps(march, segment, illuminator))
        return false;
    if ((segment.state & kSegmentStuck) != 0)
        reportColorCycle(illuminator);
    return true;
}

}  // namespace

void marchColor(RayData& rayData, float time, Color& color, Color& alpha) {
    Illuminator& illuminator = *rayData.illuminator;
    ColorMarch march;
    march.begin(illuminator);
    walkNearestFirst(rayData, illuminator, time, [&](RaySegment& segment, bool alone) {
        if (!blend(march, segment, illuminator))
            return false;
        return !alone || !goesAhead(segment) || blendRest(march, segment, illuminator);
    });
    alpha = transparencyOf(march.transmittance);
    march.finish(illuminator, alpha);
    color = march.color;
}

}  // namespace nimbra
