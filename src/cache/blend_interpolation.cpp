// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_interpolation.h"

#include <algorithm>

namespace nimbra {
namespace {

void mixRuns(const float* __restrict a, const float* __restrict b, float weight, int count,
             float* __restrict out) {
    const float rest = 1.0f - weight;
    for (int i = 0; i < count; ++i)
        out[i] = rest * a[i] + weight * b[i];
}

struct Smoke {
    const float* a;
    const float* b;
};

/// Two loops, as compilers don't make vectors of a division that may not be wanted.
void mixColorRuns(const float* __restrict a, const float* __restrict b, Smoke smoke, float weight,
                  int count, float* __restrict out) {
    const float rest = 1.0f - weight;
    const float* __restrict const smokeA = smoke.a;
    const float* __restrict const smokeB = smoke.b;
    float sums[kLongestRun];
    for (int i = 0; i < count; ++i) {
        const float amount = weight * smokeB[i];
        sums[i] = rest * smokeA[i] + amount;
        out[i] = mixColor(a[i], b[i], amount, sums[i]);
    }
    for (int i = 0; i < count; ++i) {
        const float mixed = out[i];
        out[i] = sums[i] > kLeastColoredSmoke ? mixed : 0.0f;
    }
}

}  // namespace

ChannelMixer::ChannelMixer(const GridBlend& blend, int channel)
    : weight_(blend.weight),
      a_(blend.a.channels[channel], blend.shiftA),
      b_(blend.b.channels[channel], blend.shiftB),
      smokeA_(blend.a.channels[kSmoke], blend.shiftA),
      smokeB_(blend.b.channels[kSmoke], blend.shiftB),
      bySmoke_(channel >= kColorR && channel <= kColorB && blend.dst.channels[kSmoke].loaded),
      out_(blend.dst.channels[channel].denseVoxels()) {}

/// In parts that lie in both grids, where nothing is copied, and beside that.
void ChannelMixer::mix(const CellRun& run) const {
    const ShiftedChannel::Part a = a_.partInside(run), b = b_.partInside(run);
    int cuts[] = {a.begin, a.end, b.begin, b.end, run.count};
    std::sort(std::begin(cuts), std::end(cuts));
    int done = 0;
    for (int cut : cuts) {
        if (cut == done)
            continue;
        mixPart({run.index + done, run.x + done, run.y, run.z, cut - done});
        done = cut;
    }
}

void ChannelMixer::mixPart(const CellRun& run) const {
    float scratch[4][kLongestRun];
    const float* const a = a_.values(run, scratch[0]);
    const float* const b = b_.values(run, scratch[1]);
    float* const out = out_ + run.index;
    if (!bySmoke_)
        return mixRuns(a, b, weight_, run.count, out);
    const Smoke smoke = {smokeA_.values(run, scratch[2]), smokeB_.values(run, scratch[3])};
    mixColorRuns(a, b, smoke, weight_, run.count, out);
}

void MTLinInterpCache::interpolate() {
    for (int c = 0; c < kChannelSlots; ++c)
        if (blend_.has(c))
            interpolateChannel(c);
}

void MTLinInterpCache::interpolateChannel(int channel) {
    const ChannelMixer mixer(blend_, channel);
    mixer_ = &mixer;
    SplitRange(voxelCount(blend_.dst.gridSize));
    Start(0, blend_.stop);
}

void MTLinInterpCache::Run(NMBUtils::Job* job) {
    for (CellRuns runs(*this, blend_.dst.gridSize, job->rangeStart, job->rangeEnd); runs.next();)
        mixer_->mix(*runs);
}

}  // namespace nimbra
