// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One march step of the generic shader.
#include "volume/step_segment.h"

#include <algorithm>
#include <bit>

#include "volume/plain_walk.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

namespace {

bool isProbabilistic(const VolumeShader& shader, bool colored, std::uint32_t kind) {
    if (shader.has(kProbPrimary))
        return colored || !shader.has(kLightCache);
    return shader.has(kProbBounces) && (kind & (kKindGI | kKindLightPass)) != 0;
}

/// The channels that a step looks at.
std::uint32_t pickMask(const VolumeShader& shader, std::uint32_t state, bool wantDiffuse) {
    const bool emissive = shader.has(kEmissive);
    std::uint32_t mask = 0;
    if ((state & kSegmentProbabilistic) == 0)
        mask = (state & kSegmentColored) != 0 ? shader.sampleMask : 0;
    else if (emissive && shader.fire_opacity_mode != kFireUsesSmoke)
        mask = kSampleE;
    const bool smokeCounts =
        shader.has(kDiffuse) || (emissive && shader.fire_opacity_mode == kFireUsesSmoke);
    if (smokeCounts && !shader.has(kTexOpacity))
        mask |= kSampleT;
    if (shader.has(kDiffuse) && wantDiffuse)
        mask |= (shader.sampleMask & ~kSampleE) | kSampleD;
    // Without a table nobody asks for the value.
    if (!shader.diffuseTable)
        mask &= ~kSampleD;
    if (!shader.emissionTable && !shader.fireOpacityTable)
        mask &= ~kSampleE;
    return mask;
}

/// Whether smoke decides alone which steps show: its opacity is looked up for one channel.
bool isGray(const VolumeShader& shader, const StepPlan& plan, bool colored) {
    if (plan.prob || (plan.mask & kSampleT) == 0 || shader.has(kTexOpacity | kModOpacity) ||
        !shader.has(kHasGrid))
        return false;
    if (shader.emptyMapCount != 0 || shader.softb > 0.5f)
        return false;
    // Heat haze stops at empty steps too, and samples may be taken from elsewhere.
    if (shader.has(kHeatHaze | kDisplaced | kOriginMotion) || shader.moving)
        return false;
    if (plan.mask != kSampleT && !shader.sameShape)
        return false;
    return !colored || !plan.emissive || shader.fire_opacity_mode == kFireUsesSmoke;
}

bool takesGridColor(const VolumeShader& shader, const StepPlan& plan) {
    return !shader.diffuseTable && shader.useGridColor &&
           (shader.sampleMask & plan.mask & kSampleColor) == kSampleColor &&
           !shader.has(kTexDiffuse | kModDiffuse);
}

StepPlan makePlan(const VolumeShader& shader, const RaySegment& segment, std::uint32_t kind,
                  bool wantDiffuse) {
    const bool colored = (segment.state & kSegmentColored) != 0;
    StepPlan plan;
    plan.ready = true;
    plan.prob = isProbabilistic(shader, colored, kind);
    plan.emissive = shader.has(kEmissive);
    plan.ownFire = plan.emissive && shader.fire_opacity_mode == kFireOwnOpacity;
    plan.filter = static_cast<std::uint8_t>(pickFilter(shader, kind));
    plan.mask = pickMask(shader, segment.state, wantDiffuse);
    plan.clearBelow = segment.stepLength * shader.skiptransp;
    plan.kernel = pickKernel(plan.filter, shader.wrapFlags);
    plan.gray = isGray(shader, plan, colored);
    plan.gridColor = takesGridColor(shader, plan);
    plan.plain = plan.gray && plan.mask == kSampleT && !shader.has(kTexDiffuse | kModDiffuse);
    return plan;
}

/// A sample position and what is there.
struct Look {
    Vector pos;
    VoxelSample sample;
};

/// One call of stepSegment. The look lies outside, so that all else can stay in registers.
class MarchStep {
public:
    MarchStep(const VolumeShader& owner, RaySegment& raySegment, Illuminator& rayIlluminator,
              float rayTime, Look& stepLook)
        : shader(owner),
          segment(raySegment),
          illuminator(rayIlluminator),
          look(stepLook),
          time(rayTime),
          colored((raySegment.state & kSegmentColored) != 0) {}

    bool isColored() const { return colored; }

    /// The random numbers of a segment's first step.
    void begin() {
        if (shader.has(kJitter))
            illuminator.jitter = illuminator.random();
        if (segment.plan.prob) {
            segment.threshold = illuminator.random();
            segment.throughput = {1, 1, 1};
        }
    }

    /// Moves on to the next sample position; false past the end.
    bool advance() {
        segment.tCur += segment.stepT;
        if (segment.tCur > segment.tEnd) {
            if ((segment.state & kSegmentFinished) != 0)
                return false;
            segment.tCur = segment.tEnd;
            segment.state |= kSegmentFinished;
        }
        // Jitter moves the sample backward inside its step, never the walk itself.
        const float back = shader.has(kJitter) ? segment.stepT * illuminator.jitter : 0;
        const float t = segment.tCur - back;
        look.pos = segment.origin + segment.dir * t;
        return !(t > segment.tEnd);
    }

    /// Samples the volume and finds the step's opacity; false for a step that shows nothing.
    bool findOpacity() {
        if (segment.plan.plain)
            return findPlainOpacity();
        onlyEmission = false;
        ownFire = false;
        if (shader.emptyMapCount != 0 && isMarkedEmpty(shader, look.pos))
            return false;
        shader.sampleVoxel(look.pos, look.sample, segment.plan.mask, nullptr, time,
                           segment.plan.filter);
        segment.alpha = shader.getOpacity(look.sample, segment.stepLength);
        if (!colored)
            segment.alpha = segment.alpha * shader.shadowDensityScale;
        if (!(segment.plan.ownFire && colored) && isClear()) {
            skip();
            if (!segment.plan.emissive || shader.fire_opacity_mode != kFireVisible)
                return false;
            onlyEmission = true;
        }
        limitOpacity();
        const bool random = segment.plan.prob || (segment.state & kSegmentProbabilistic) != 0;
        if (random && segment.plan.ownFire && colored)
            ownFire = shader.getFireOpacity(look.sample, segment.stepLength, segment.alpha);
        segment.invAlpha = segment.alpha.r > 1e-6f ? 1 / segment.alpha.r : 0;
        return !segment.plan.prob || interacts();
    }

    /// The same for plain smoke, which most steps of most rays meet.
    bool findPlainOpacity() {
        look.sample.position = look.pos;
        float opacity = plainOpacity(shader, segment, look.pos);
        if (!colored)
            opacity *= shader.shadowDensityScale;
        if (opacity <= segment.plan.clearBelow)
            return skip();
        opacity = std::min(opacity, 1.0f);
        segment.alpha = {opacity, opacity, opacity};
        segment.invAlpha = opacity > 1e-6f ? 1 / opacity : 0;
        return true;
    }

    /// Notes the sample as the segment's accepted step.
    void accept() {
        segment.time = time;
        segment.samplePos = look.pos;
        segment.stepWorld = segment.stepLength;
    }

    /// The answer of a step without colour; false when there is nothing but glow.
    bool giveDiffuse(Color* diffuseOut) const {
        if (onlyEmission)
            return false;
        if (diffuseOut && shader.has(kDiffuse))
            *diffuseOut = shader.getDiffuse(look.sample);
        return true;
    }

    /// The fire's own opacity and its glow; false when nothing is left to show.
    bool findFire() {
        if (!segment.plan.prob && segment.plan.ownFire && shader.fireOpacityTable) {
            ownFire = shader.getFireOpacity(look.sample, segment.stepLength, segment.alpha);
            if (!ownFire && isClear())
                return false;
        }
        if (shader.fire_opacity_mode == kFireVisible && !glow())
            return false;
        segment.hitFlag = ownFire ? 1.0f : 0.0f;
        return true;
    }

    void shade() {
        if ((segment.state & kSegmentProbabilistic) == 0)
            shader.shadeVoxel(segment, illuminator, segment.plan.prob, look.sample);
        // Keeps the last step from being dropped by the jitter.
        const bool surface = !shader.has(kHeatHaze | kVolumetric);
        if (surface && (segment.state & kSegmentFinished) != 0 && shader.has(kJitter))
            segment.tCur = std::min(segment.tCur, segment.tEnd - 0.02f * segment.stepT);
    }

    void clear() {
        segment.alpha = {};
        segment.color = {};
    }

    bool leave() {
        if (!shader.has(kVolumetric))
            clear();
        return false;
    }

    bool giveUp() {
        segment.state |= kSegmentFinished | kSegmentStuck;
        clear();
        return false;
    }

private:
    bool skip() {
        segment.alpha = {};
        if (colored)
            segment.color = {};
        return false;
    }

    bool isClear() const { return largest(segment.alpha) <= segment.plan.clearBelow; }

    /// Thins the smoke at the grid's border and keeps it at most opaque.
    void limitOpacity() {
        fade = borderFade(shader, look.pos);
        if (!onlyEmission)
            fadeOpacity(segment.alpha, fade);
        segment.alpha = {std::min(segment.alpha.r, 1.0f), std::min(segment.alpha.g, 1.0f),
                         std::min(segment.alpha.b, 1.0f)};
    }

    bool interacts() {
        if (shader.fire_opacity_mode == kFireVisible) {
            segment.alpha.r += 0.001f;
            segment.invAlpha = 1 / segment.alpha.r;
        }
        segment.throughput *= transparencyOf(segment.alpha);
        if (segment.throughput.r > segment.threshold)
            return skip();
        segment.alpha = {1, 1, 1};
        return true;
    }

    /// Emission here acts where smoke is absent, too. False when the step shows nothing at all.
    bool glow() {
        Color& color = segment.color;
        color = emissionForRay(shader, illuminator, look.sample, segment.stepLength);
        if (segment.plan.prob)
            color = color * segment.invAlpha;
        color = color * fade;
        if (onlyEmission && color.r + color.g + color.b <= shader.skiptransp)
            return false;
        color = color * segment.stepLength;
        return true;
    }

    const VolumeShader& shader;
    RaySegment& segment;
    Illuminator& illuminator;
    Look& look;
    const float time;
    const bool colored;

    float fade = 1;             // at the grid's border
    bool onlyEmission = false;  // a clear step that may still glow
    bool ownFire = false;       // its opacity is the fire's own
};

/// Goes on to where the next step that shows anything, or none, lies ahead. `round` and the answer
/// count steps.
[[gnu::noinline]] int passClearSteps(RaySegment& segment, const Illuminator& illuminator,
                                     int round) {
    PlainWalk walk(segment, illuminator, round);
    while (walk.next()) {
        if (walk.shown() != 0) {
            walk.returnTo(std::countr_zero(walk.shown()));
            break;
        }
    }
    return walk.rounds();
}

}  // namespace

bool VolumeShader::stepSegment(RaySegment& segment, Illuminator& illuminator, float time,
                               bool first, Color* diffuseOut) const {
    if (first || !segment.plan.ready)
        segment.plan = makePlan(*this, segment, illuminator.kind, diffuseOut != nullptr);
    Look look;
    MarchStep step(*this, segment, illuminator, time, look);
    if (first)
        step.begin();
    if (!(segment.stepT > 0))
        return step.giveUp();
    for (int round = 0; round < kMaxMarchRounds; ++round) {
        if (round > 0 && has(kHeatHaze)) {
            // Heat haze wants to see every step.
            step.clear();
            return true;
        }
        if (round > 0 && segment.plan.gray) {
            round = passClearSteps(segment, illuminator, round);
            if (round >= kMaxMarchRounds)
                break;
        }
        if (!step.advance())
            return step.leave();
        if (!step.findOpacity())
            continue;
        step.accept();
        if (!step.isColored()) {
            if (step.giveDiffuse(diffuseOut))
                return true;
            continue;
        }
        if (!step.findFire())
            continue;
        step.shade();
        return true;
    }
    return step.giveUp();
}

}  // namespace nimbra
