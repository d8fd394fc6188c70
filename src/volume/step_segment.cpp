// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One march step of the generic shader.
#include "volume/step_segment.h"

#include <algorithm>

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

VolumeShader::Step::Step(const VolumeShader& owner, RaySegment& raySegment,
                         Illuminator& rayIlluminator, float rayTime)
    : shader(owner),
      segment(raySegment),
      illuminator(rayIlluminator),
      time(rayTime),
      colored((raySegment.state & kSegmentColored) != 0),
      emissive(owner.has(kEmissive)),
      prob(isProbabilistic()),
      filter(pickFilter()),
      mask(pickMask()) {}

/// Whether the step looks for one random interaction point instead of blending.
bool VolumeShader::Step::isProbabilistic() const {
    if (shader.has(kProbPrimary))
        return colored || !shader.has(kLightCache);
    return shader.has(kProbBounces) && (illuminator.kind & (kKindGI | kKindLightPass)) != 0;
}

int VolumeShader::Step::pickFilter() const {
    if ((illuminator.kind & (kKindGI | kKindLightPass)) != 0)
        return 0;
    const bool cheap = (illuminator.kind & kKindTransparency) != 0;
    return cheap ? std::min(shader.sampler, 1) : shader.sampler;
}

std::uint32_t VolumeShader::Step::pickMask() const {
    std::uint32_t wanted = 0;
    if ((segment.state & kSegmentProbabilistic) == 0)
        wanted = colored ? shader.sampleMask : 0;
    else if (emissive && shader.fire_opacity_mode != kFireUsesSmoke)
        wanted = kSampleE;
    const bool smokeCounts =
        shader.has(kDiffuse) || (emissive && shader.fire_opacity_mode == kFireUsesSmoke);
    if (smokeCounts && !shader.has(kTexOpacity))
        wanted |= kSampleT;
    return wanted;
}

void VolumeShader::Step::askForDiffuse() {
    if (shader.has(kDiffuse))
        mask |= shader.sampleMask | kSampleD;
}

void VolumeShader::Step::begin() {
    if (shader.has(kJitter))
        illuminator.jitter = illuminator.random();
    if (prob) {
        segment.threshold = illuminator.random();
        segment.throughput = {1, 1, 1};
    }
}

bool VolumeShader::Step::advance() {
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
    pos = segment.origin + segment.dir * t;
    return !(t > segment.tEnd);
}

bool VolumeShader::Step::leave() {
    if (!shader.has(kVolumetric))
        clear();
    return false;
}

void VolumeShader::Step::clear() {
    segment.alpha = {};
    segment.color = {};
}

bool VolumeShader::Step::skip() {
    segment.alpha = {};
    if (colored)
        segment.color = {};
    return false;
}

bool VolumeShader::Step::findOpacity() {
    onlyEmission = false;
    ownFire = false;
    if (shader.emptyMapCount != 0 && isMarkedEmpty(shader, pos))
        return false;
    shader.sampleVoxel(pos, sample, mask, nullptr, time, filter);
    segment.alpha = shader.getOpacity(sample, segment.stepLength);
    if (!colored)
        segment.alpha = segment.alpha * shader.shadowDensityScale;

    const bool fireDecides = emissive && shader.fire_opacity_mode == kFireOwnOpacity && colored;
    if (!fireDecides && isClear()) {
        skip();
        if (!emissive || shader.fire_opacity_mode != kFireVisible)
            return false;
        onlyEmission = true;
    }
    fade = shader.softb > 0.5f ? borderFade(shader, pos) : 1.0f;
    if (fade < 1.0f && !onlyEmission)
        fadeOpacity(segment.alpha, fade);
    segment.alpha = {std::min(segment.alpha.r, 1.0f), std::min(segment.alpha.g, 1.0f),
                     std::min(segment.alpha.b, 1.0f)};

    if ((prob || (segment.state & kSegmentProbabilistic) != 0) && colored && hasOwnFire())
        ownFire = shader.getFireOpacity(sample, segment.stepLength, segment.alpha);
    segment.invAlpha = segment.alpha.r > 1e-6f ? 1 / segment.alpha.r : 0;
    return !prob || interacts();
}

bool VolumeShader::Step::hasOwnFire() const {
    return emissive && shader.fire_opacity_mode == kFireOwnOpacity && shader.fireOpacityTable;
}

bool VolumeShader::Step::isClear() const {
    return segment.alpha.maxComponent() <= segment.stepLength * shader.skiptransp;
}

bool VolumeShader::Step::interacts() {
    if (shader.fire_opacity_mode == kFireVisible) {
        segment.alpha.r += 0.001f;
        segment.invAlpha = 1 / segment.alpha.r;
    }
    segment.throughput *= {std::max(1 - segment.alpha.r, 0.0f), std::max(1 - segment.alpha.g, 0.0f),
                           std::max(1 - segment.alpha.b, 0.0f)};
    if (segment.throughput.r > segment.threshold)
        return skip();
    segment.alpha = {1, 1, 1};
    return true;
}

void VolumeShader::Step::accept() {
    segment.time = time;
    segment.samplePos = pos;
    segment.stepWorld = segment.stepLength;
}

bool VolumeShader::Step::giveDiffuse(Color* diffuseOut) const {
    if (onlyEmission)
        return false;
    if (diffuseOut && shader.has(kDiffuse))
        *diffuseOut = shader.getDiffuse(sample);
    return true;
}

bool VolumeShader::Step::findFire() {
    if (!prob && hasOwnFire()) {
        ownFire = shader.getFireOpacity(sample, segment.stepWorld, segment.alpha);
        if (!ownFire && isClear())
            return false;
    }
    if (shader.fire_opacity_mode == kFireVisible && !glow())
        return false;
    segment.hitFlag = ownFire ? 1.0f : 0.0f;
    return true;
}

/// Emission here acts where smoke is absent, too. False when the step shows nothing at all.
bool VolumeShader::Step::glow() {
    Color& color = segment.color;
    color = emissionForRay(shader, illuminator, sample, segment.stepWorld);
    if (prob)
        color = color * segment.invAlpha;
    color = color * fade;
    if (onlyEmission && color.r + color.g + color.b <= shader.skiptransp)
        return false;
    color = color * segment.stepWorld;
    return true;
}

void VolumeShader::Step::shade() {
    if ((segment.state & kSegmentProbabilistic) == 0)
        shader.shadeVoxel(segment, illuminator, prob, sample);
    // Keeps the last step from being dropped by the jitter.
    const bool surface = !shader.has(kHeatHaze | kVolumetric);
    if (surface && (segment.state & kSegmentFinished) != 0 && shader.has(kJitter))
        segment.tCur = std::min(segment.tCur, segment.tEnd - 0.02f * segment.stepT);
}

bool VolumeShader::Step::giveUp() {
    segment.state |= kSegmentFinished | kSegmentStuck;
    clear();
    return false;
}

bool VolumeShader::stepSegment(RaySegment& segment, Illuminator& illuminator, float time,
                               bool first, Color* diffuseOut) const {
    Step step(*this, segment, illuminator, time);
    if (diffuseOut)
        step.askForDiffuse();
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
        if (!step.advance())
            return step.leave();
        if (!step.findOpacity())
            continue;
        step.accept();
        if (!step.colored) {
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
