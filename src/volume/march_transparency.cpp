// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The transparency loop of shadow rays: opacity alone, with or without the light that the smoke
// scatters forward.
#include <bit>
#include <cmath>

#include "foundation/log.h"
#include "volume/color_ops.h"
#include "volume/fast_exp.h"
#include "volume/march_loop.h"
#include "volume/plain_walk.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;

namespace {

/// The depth beyond which less than `stop` of the light gets through, for smoke of albedo `a`:
/// the inverse of the scatter factor below.
float depthLimit(float stop, float a, bool self) {
    if (stop < 1e-12f)
        return 1e22f;
    const float m = self ? a + 1 : 1;
    if (a > 0.99f)
        return m / stop - 1;
    return std::log(((1 - a) * m + a * stop) / stop) / (1 - a);
}

Color depthLimits(const VolumeShader& shader, bool self) {
    const Color& albedo = shader.simpleColor;
    const float r = depthLimit(shader.stoptransp, albedo.r, self);
    // Mostly gray, and a logarithm takes long for what a ray does but once.
    const float g = albedo.g == albedo.r ? r : depthLimit(shader.stoptransp, albedo.g, self);
    const float b = albedo.b == albedo.g ? g : depthLimit(shader.stoptransp, albedo.b, self);
    return {r, g, b};
}

/// Share of the light that passes an optical depth with the mean albedo `r`, single and multiple
/// scattering summed as a geometric series:
///   (1 - r) * m / (exp(depth * (1 - r)) - r),  for r -> 1: m / (depth + 1)
float scatterFactor(float depth, float r, bool self) {
    const float m = self ? r + 1 : 1;
    if (r > 0.99f)
        return m / (depth + 1);
    const float x = depth * (1 - r);
    return x >= 12 ? 0 : (1 - r) * m / (fastExp(x) - r);
}

class TransparencyMarch {
public:
    TransparencyMarch(RayData& data, float rayTime, bool isGI)
        : rayData(data), illuminator(*data.illuminator), time(rayTime), gi(isGI) {}

    /// The opacity of the whole ray.
    Color run() {
        for (RaySegment* segment = rayData.head; segment; segment = segment->next) {
            const bool blocked = scatters(*segment->shader) ? scatter(*segment) : absorb(*segment);
            if (blocked)
                return {1, 1, 1};
        }
        const Color factor = scattered();
        return transparencyOf(transmission * factor);
    }

private:
    bool scatters(const VolumeShader& shader) const {
        return shader.noscatter == kScatterApproximateShadows ||
               (shader.noscatter == kScatterApproximate && rayData.selfRay);
    }

    float strength(const VolumeShader& shader) const {
        return rayData.selfRay ? 1.0f : shader.shad_strength;
    }

    /// Advances the segment by a step; false at its end. Calls of one segment share `round`.
    bool step(RaySegment& segment, int round, Color* diffuse) {
        illuminator.selectShader(*segment.shader);
        return segment.shader->stepSegment(segment, illuminator, time, round == 0, diffuse);
    }

    /// How the opacity of a step counts.
    struct StepWeights {
        float shadow, scatter;
    };

    /// True when the segment lets no light through.
    bool scatter(RaySegment& segment) {
        const VolumeShader& shader = *segment.shader;
        const float transfer = gi ? shader.transfown : shader.transfext;
        const float squared = transfer * transfer;
        const float inverse = squared > 1e-6f ? 1 / squared : 0;
        const float shadow = strength(shader);
        const float weight = inverse * shadow;
        const Color limit = depthLimits(shader, rayData.selfRay);
        Color segmentDepth;
        int round = 0;
        for (; round < kMaxMarchRounds && (segment.state & kSegmentFinished) == 0; ++round) {
            Color diffuse;
            if (!step(segment, round, &diffuse))
                continue;
            segmentDepth += segment.alpha * shadow;
            scatteredDepth += diffuse * segment.alpha * weight;
            if (smallest(segmentDepth - limit * squared) > 0)
                return true;
            if (segment.plan.gray) {
                const float most = largest(limit) * squared;
                if (scatterGray(segment, {shadow, weight}, diffuse, most, segmentDepth))
                    return true;
            }
        }
        depth += segmentDepth * inverse;
        reportCycle(segment);
        return false;
    }

    /// The rest of a segment of gray smoke, whose depth is the same in all channels. True when it
    /// grows beyond `most`.
    bool scatterGray(RaySegment& segment, const StepWeights& weights, Color diffuse, float most,
                     Color& segmentDepth) {
        PlainWalk walk(segment, illuminator);
        const __m128 shadow = _mm_set1_ps(weights.shadow), scatter = _mm_set1_ps(weights.scatter);
        __m128 color = colorLanes(diffuse), scattering = colorLanes(scatteredDepth);
        float sum = segmentDepth.r;
        while (walk.next()) {
            if (walk.shown() == 0)
                continue;
            alignas(16) float opacity[PlainWalk::kLanes];
            _mm_store_ps(opacity, walk.opacities());
            const __m128 sums = addInTurn(sum, _mm_mul_ps(walk.opacities(), shadow));
            if (_mm_movemask_ps(_mm_cmpgt_ps(sums, _mm_set1_ps(most))) != 0)
                return true;
            for (unsigned left = walk.shown(); left != 0; left &= left - 1) {
                const int step = std::countr_zero(left);
                if (!segment.plan.plain)
                    color = diffuseAt(walk, step, segment);
                const __m128 part = _mm_mul_ps(color, _mm_set1_ps(opacity[step]));
                scattering = _mm_add_ps(scattering, _mm_mul_ps(part, scatter));
            }
        }
        scatteredDepth = colorOf(scattering);
        segmentDepth = {sum, sum, sum};
        return false;
    }

    /// Adds the lanes to `sum`, one after the other; answers what it was after each.
    static __m128 addInTurn(float& sum, __m128 lanes) {
        alignas(16) float part[4];
        _mm_store_ps(part, lanes);
        const float first = sum + part[0];
        const float second = first + part[1];
        const float third = second + part[2];
        sum = third + part[3];
        return _mm_setr_ps(first, second, third, sum);
    }

    __m128 diffuseAt(const PlainWalk& walk, int step, const RaySegment& segment) const {
        const VolumeShader& shader = *segment.shader;
        if (!shader.has(kDiffuse))
            return _mm_setzero_ps();
        if (segment.plan.gridColor)
            return walk.gridColorOf(step);
        VoxelSample sample;
        shader.sampleVoxel(walk.positionOf(step), sample, segment.plan.mask & ~kSampleT, nullptr,
                           time, segment.plan.filter);
        return colorLanes(shader.getDiffuse(sample));
    }

    bool absorb(RaySegment& segment) {
        const VolumeShader& shader = *segment.shader;
        const float shadow = strength(shader);
        Color L{1, 1, 1};
        int round = 0;
        for (; round < kMaxMarchRounds && (segment.state & kSegmentFinished) == 0; ++round) {
            if (!step(segment, round, nullptr))
                continue;
            L *= Color{1, 1, 1} - segment.alpha * shadow;
            if (largest(L) < shader.stoptransp)
                return true;
            if (segment.plan.gray && absorbGray(segment, shadow, shader.stoptransp, L))
                return true;
        }
        transmission *= L;
        reportCycle(segment);
        return false;
    }

    /// The rest of a segment of gray smoke. True when less than `stop` is left.
    bool absorbGray(RaySegment& segment, float shadow, float stop, Color& L) const {
        PlainWalk walk(segment, illuminator);
        float left = L.r;
        while (walk.next()) {
            alignas(16) float passed[PlainWalk::kLanes];
            _mm_store_ps(passed, _mm_sub_ps(_mm_set1_ps(1),
                                            _mm_mul_ps(walk.opacities(), _mm_set1_ps(shadow))));
            const float first = left * passed[0];
            const float second = first * passed[1];
            const float third = second * passed[2];
            left = third * passed[3];
            const __m128 all = _mm_setr_ps(first, second, third, left);
            if (_mm_movemask_ps(_mm_cmplt_ps(all, _mm_set1_ps(stop))) != 0)
                return true;
        }
        L = {left, left, left};
        return false;
    }

    void reportCycle(const RaySegment& segment) const {
        if ((segment.state & (kSegmentFinished | kSegmentStuck)) == kSegmentFinished)
            return;
        NMBUtils::logLine("#::Shade - alpha cycle! pt:%f %f t:%f\n", illuminator.screenPos[0],
                          illuminator.screenPos[1], segment.tCur);
    }

    Color scattered() const {
        if (largest(depth) < 1e-12f)
            return {1, 1, 1};
        Color factor;
        for (int i = 0; i < 3; ++i) {
            const float r = depth[i] != 0 ? scatteredDepth[i] / depth[i] : 0;
            factor[i] = scatterFactor(depth[i], r, rayData.selfRay);
        }
        return factor;
    }

    RayData& rayData;
    Illuminator& illuminator;
    float time;
    bool gi;
    Color transmission{1, 1, 1};
    Color depth;           // optical depth of the scattering segments
    Color scatteredDepth;  // the same, weighted by what the smoke scatters
};

}  // namespace

void marchTransparency(RayData& rayData, float time, bool isGI, Color& alpha) {
    Illuminator& illuminator = *rayData.illuminator;
    const std::uint32_t kind = illuminator.kind;
    illuminator.kind |= kKindTransparency;
    alpha = TransparencyMarch(rayData, time, isGI).run();
    illuminator.kind = (illuminator.kind & ~kKindTransparency) | (kind & kKindTransparency);
}

}  // namespace nimbra
