// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_frames.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "cache/blend_header.h"
#include "cache/blend_interpolation.h"
#include "cache/blend_particles.h"
#include "cache/blend_tracing.h"
#include "cache/blend_velocity.h"
#include "cache/particles_to_grid.h"
#include "cache/process_memory.h"
#include "foundation/log.h"
#include "foundation/matrix34.h"

namespace nimbra {
namespace {

using NMBUtils::Matrix34;
using TessUtils::Vector;

bool deliversVector(NimbraFrameData& frame, int firstChannel) {
    return deliversChannel(frame, firstChannel) && deliversChannel(frame, firstChannel + 1) &&
           deliversChannel(frame, firstChannel + 2);
}

void fallBack(int& gridMethod, BlendResult& result) {
    NMBUtils::logLine(
        "Frame Blending - could not expand the velocity channel, falling back to "
        "Interpolation!\n");
    if (result.status == kFrameLoaded)
        result.status = kFrameVelocityFallback;
    gridMethod = kInterpolateGrids;
}

/// Asks for what the method needs of the first frame.
void checkMotion(NimbraFrameData& a, int& gridMethod, BlendResult& result) {
    if (gridMethod != kBlendAlongVelocity && gridMethod != kTracePrecisely)
        return;
    if (!deliversVector(a, kVelocityX))
        return fallBack(gridMethod, result);
    if (gridMethod == kTracePrecisely && !deliversVector(a, kAdvectionOriginX))
        NMBUtils::logLine(
            "Frame Blending - could not expand the advectionPos channel, blend quality may "
            "suffer!\n");
}

/// The axes of b, with the up axis as that of a: holders flip shared frames.
Matrix34 axesLike(const NimbraFrameData& a, const NimbraFrameData& b) {
    Matrix34 m = Matrix34::fromFloats(b.transform);
    m.offset = {0, 0, 0};
    if (a.upAxisFlipped != b.upAxisFlipped) {
        std::swap(m.axis[1], m.axis[2]);
        Vector& negated = m.axis[a.upAxisFlipped ? 2 : 1];
        negated = -negated;
    }
    return m;
}

/// Grids that are turned against each other differ as well.
bool scalesDiffer(const NimbraFrameData& a, const NimbraFrameData& b) {
    constexpr float kTolerance = 0.001f;
    Matrix34 back = inverse(Matrix34::fromFloats(a.transform));
    back.offset = {0, 0, 0};
    const Matrix34 m = compose(axesLike(a, b), back);
    constexpr Vector kOnes{1, 1, 1};
    const Vector c = m.applyVector(kOnes) - kOnes;
    return TessUtils::length(c) > kTolerance;
}

/// Sets the grid of dst to what covers both, on the cells of a; false for grids too far apart.
bool uniteGrids(GridBlend& blend) {
    constexpr float kFarthest = 1 << 30;
    const NimbraFrameData &a = blend.a, &b = blend.b;
    int size[3];
    for (int i = 0; i < 3; ++i) {
        // Cell 0 of b in cells of a. As the axes agree, the way over the object's space and back
        // leaves the difference of the offsets.
        const float offset = std::floor(a.transform[9 + i] - b.transform[9 + i] + 0.5f);
        if (!(std::fabs(offset) <= kFarthest))
            return false;
        const auto o = static_cast<std::int64_t>(offset);
        const std::int64_t low = std::min<std::int64_t>(0, o);
        const std::int64_t cells = std::max<std::int64_t>(a.gridSize[i], b.gridSize[i] + o) - low;
        if (cells < 0 || cells > INT32_MAX)
            return false;
        size[i] = static_cast<int>(cells);
        blend.shiftA[i] = static_cast<int>(low);
        blend.shiftB[i] = static_cast<int>(low - o);
    }
    if (voxelCount(size) < 0)
        return false;
    std::copy_n(size, 3, blend.dst.gridSize);
    std::copy_n(a.transform, 12, blend.dst.transform);
    blend.dst.upAxisFlipped = a.upAxisFlipped;
    for (int i = 0; i < 3; ++i)
        blend.dst.transform[9 + i] -= static_cast<float>(blend.shiftA[i]);
    return true;
}

/// Makes the channels that both frames deliver; false without memory for all of them.
bool allocateChannels(GridBlend& blend) {
    std::uint64_t wanted = 0;
    for (int c = 0; c < kChannelSlots; ++c)
        if (deliversChannel(blend.a, c) && deliversChannel(blend.b, c)) {
            blend.channels |= channelBit(c);
            wanted += static_cast<std::uint64_t>(voxelCount(blend.dst.gridSize)) * sizeof(float);
        }
    if (wanted > memoryOfProcess())
        return false;
    for (int c = 0; c < kChannelSlots; ++c)
        if (blend.has(c) && !blend.dst.channels[c].allocate(blend.dst.gridSize))
            return false;
    return true;
}

void blendGrids(const GridBlend& blend, int gridMethod, bool recompute,
                float* (&blendSource)[kChannelSlots], BlendResult& result) {
    if (gridMethod == kBlendAlongVelocity) {
        if (blendAlongVelocity(blend, recompute, blendSource))
            return;
        fallBack(gridMethod, result);
    }
    // Without channels, the union may have more cells than anybody could walk over.
    if (blend.channels == 0)
        return;
    if (gridMethod == kTracePrecisely)
        MTInterpPreciseTracing(blend).interpolate();
    else
        MTLinInterpCache(blend).interpolate();
}

BlendResult blendAll(GridBlend& blend, int method, bool recompute,
                     float* (&blendSource)[kChannelSlots]) {
    BlendResult result;
    int gridMethod = method & 255;
    checkMotion(blend.a, gridMethod, result);
    if (scalesDiffer(blend.a, blend.b)) {
        NMBUtils::logLine("Blending frames with different scale!\n");
        return {kFrameScaleMismatch, {}};
    }
    blend.dst.freeChannels();
    if (!uniteGrids(blend) || (gridMethod <= kTracePrecisely && !allocateChannels(blend)))
        return {kFrameScaleMismatch, {}};
    if (gridMethod == kBlendAlongVelocity && !blend.has(kVelocityX))
        fallBack(gridMethod, result);
    blend.dst.clearGroups();
    const BlendResult particles =
        blendParticles(blend.dst, blend.a, blend.b, blend.weight, method >> 8);
    if (result.status == kFrameLoaded)
        result.status = particles.status;
    result.message += particles.message;
    // The surface of a liquid is what its particles say.
    blend.channels &= ~liquidParticlesToGrid(blend.dst, blend.stop);
    blendGrids(blend, gridMethod, recompute, blendSource, result);
    blendHeaders(blend.dst, blend.a, blend.b, blend.weight);
    return result;
}

}  // namespace

BlendResult blendFrames(NimbraFrameData& dst, NimbraFrameData& a, NimbraFrameData& b, float weight,
                        int method, bool recompute, float* (&blendSource)[kChannelSlots],
                        TessUtils::ProgressCallback* stop) {
    GridBlend blend{.dst = dst, .a = a, .b = b, .weight = weight, .stop = stop};
    try {
        BlendResult result = blendAll(blend, method, recompute, blendSource);
        if (result.status != kFrameScaleMismatch)
            NimbraFrame::frameDataArray.acquireFrame(&dst, true);
        return result;
    } catch (const std::bad_alloc&) {
        return {kFrameScaleMismatch, {}};
    }
}

}  // namespace nimbra
