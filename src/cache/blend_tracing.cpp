// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_tracing.h"

#include <algorithm>
#include <cmath>

#include "cache/blend_interpolation.h"

namespace nimbra {
namespace {

using TessUtils::Vector;
using Proxy = GridChannelProxy<float>;

constexpr std::uint32_t kVelocityBits = 7u << kVelocityX;
/// Temperature, smoke, colours and the wavelets' coordinates.
constexpr std::uint32_t kTracedBits =
    1u << kTemperature | 1u << kSmoke | 7u << kColorR | 7u << kWaveletU;

bool contains(const int size[3], const int cell[3]) {
    return cell[0] >= 0 && cell[0] < size[0] && cell[1] >= 0 && cell[1] < size[1] && cell[2] >= 0 &&
           cell[2] < size[2];
}

std::int64_t indexOf(const int size[3], const int cell[3]) {
    return (std::int64_t(cell[2]) * size[1] + cell[1]) * size[0] + cell[0];
}

/// The cell nearest to a way from a cell, limited to the grid, which isn't empty.
std::int64_t nearestCell(const int size[3], const int cell[3], const Vector& way) {
    int c[3];
    for (int i = 0; i < 3; ++i) {
        const float nearest = std::floor(static_cast<float>(cell[i]) + way[i] + 0.5f);
        const int last = size[i] - 1;
        c[i] = !(nearest > 0)                       ? 0
               : nearest < static_cast<float>(last) ? static_cast<int>(nearest)
                                                    : last;
    }
    return indexOf(size, c);
}

}  // namespace

MTInterpPreciseTracing::MTInterpPreciseTracing(const GridBlend& blend)
    : blend_(blend),
      weightOfMotion_(blend.weight * blend.weight),
      traced_(blend.channels & kTracedBits),
      originKnown_(deliversChannel(blend.b, kAdvectionOriginX) &&
                   deliversChannel(blend.b, kAdvectionOriginY) &&
                   deliversChannel(blend.b, kAdvectionOriginZ)) {
    if ((blend.channels & kVelocityBits) == kVelocityBits)
        vectors_ = blend.channels & (kVelocityBits | channelBit(kSpeed));
}

void MTInterpPreciseTracing::interpolate() {
    SplitRange(voxelCount(blend_.dst.gridSize));
    Start(0, blend_.stop);
}

void MTInterpPreciseTracing::Run(NMBUtils::Job* job) {
    for (CellRuns runs(*this, blend_.dst.gridSize, job->rangeStart, job->rangeEnd); runs.next();) {
        Motion motion;
        readMotion(*runs, motion);
        mixVelocities(*runs, motion);
        for (int c = 0; c < kChannelSlots; ++c)
            if (blend_.channels & ~vectors_ & channelBit(c))
                ChannelMixer(blend_, c).mix(*runs);
        trace(*runs, motion);
    }
}

void MTInterpPreciseTracing::readMotion(const CellRun& run, Motion& motion) const {
    const Proxy absent;
    const auto read = [&](const NimbraFrameData& frame, const int shift[3],
                          float(&out)[3][kLongestRun]) {
        for (int i = 0; i < 3; ++i) {
            const bool moves = frame.channels[kVelocityX].loaded;
            const ShiftedChannel v(moves ? frame.channels[kVelocityX + i] : absent, shift);
            v.limitedValues(run, out[i]);
        }
    };
    read(blend_.a, blend_.shiftA, motion.a);
    read(blend_.b, blend_.shiftB, motion.b);
}

void MTInterpPreciseTracing::mixVelocities(const CellRun& run, const Motion& motion) const {
    for (int i = 0; vectors_ && i < run.count; ++i) {
        const Vector v = motion.mixed(i, weightOfMotion_);
        const std::int64_t cell = run.index + i;
        for (int axis = 0; axis < 3; ++axis)
            blend_.dst.channels[kVelocityX + axis].write(cell, v[axis]);
        if (vectors_ & channelBit(kSpeed))
            blend_.dst.channels[kSpeed].write(cell, TessUtils::length(v));
    }
}

void MTInterpPreciseTracing::trace(const CellRun& run, const Motion& motion) const {
    constexpr float kLeastWay = 0.5f;
    const NimbraFrameData &a = blend_.a, &b = blend_.b;
    const int cell[3] = {run.x, run.y, run.z};
    int inA[3], inB[3];
    for (int axis = 0; axis < 3; ++axis) {
        inA[axis] = cell[axis] + blend_.shiftA[axis];
        inB[axis] = cell[axis] + blend_.shiftB[axis];
    }
    for (int i = 0; traced_ && i < run.count; ++i, ++inA[0], ++inB[0]) {
        const float wayA = TessUtils::length(motion.inA(i) * a.timeStep);
        const float wayB = TessUtils::length(motion.inB(i) * b.timeStep);
        if (!(wayA >= kLeastWay || wayB >= kLeastWay) || !contains(a.gridSize, inA) ||
            !contains(b.gridSize, inB))
            continue;
        Vector way = motion.inA(i) * (a.timeStep * (1.0f - weightOfMotion_)) +
                     motion.inB(i) * (b.timeStep * weightOfMotion_);
        if (originKnown_)
            way = way * (2.0f * reach(inB) / (wayA + wayB));
        mixTraced(run.index + i, nearestCell(a.gridSize, inA, way * (blend_.weight - 1.0f)),
                  nearestCell(b.gridSize, inB, way * blend_.weight));
    }
}

/// How far from a cell of b its matter was before.
float MTInterpPreciseTracing::reach(const int cellOfB[3]) const {
    const NimbraFrameData& b = blend_.b;
    const std::int64_t index = indexOf(b.gridSize, cellOfB);
    Vector way;
    for (int i = 0; i < 3; ++i) {
        const float origin = b.channels[kAdvectionOriginX + i].read(index);
        way[i] =
            static_cast<float>(cellOfB[i]) - std::trunc(origin * static_cast<float>(b.gridSize[i]));
    }
    return TessUtils::length(way);
}

void MTInterpPreciseTracing::mixTraced(std::int64_t to, std::int64_t fromA,
                                       std::int64_t fromB) const {
    const float weight = blend_.weight, rest = 1.0f - weight;
    float amount = 0, sum = 0;
    const bool bySmoke = blend_.dst.channels[kSmoke].loaded;
    if (bySmoke) {
        amount = weight * blend_.b.channels[kSmoke].read(fromB);
        sum = rest * blend_.a.channels[kSmoke].read(fromA) + amount;
    }
    for (int c = 0; c < kChannelSlots; ++c) {
        if (!(traced_ & channelBit(c)))
            continue;
        const float a = blend_.a.channels[c].read(fromA), b = blend_.b.channels[c].read(fromB);
        float mixed = rest * a + weight * b;
        if (bySmoke && c >= kColorR && c <= kColorB)
            mixed = sum > kLeastColoredSmoke ? mixColor(a, b, amount, sum) : 0.0f;
        blend_.dst.channels[c].write(to, mixed);
    }
}

}  // namespace nimbra
