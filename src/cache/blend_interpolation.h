// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Plain interpolation of channels: each cell of the union is mixed from the same cell of both
// frames.
#pragma once

#include "cache/blend_grids.h"

namespace nimbra {

/// Mixes one channel into its dense voxels in dst. With weight w of b a cell becomes
/// (1 - w) * a + w * b; a frame counts as 0 outside of its grid. Where smoke is blended too, the
/// colour channels are weighted by how much smoke each frame brings, and are 0 where there is none.
class ChannelMixer {
public:
    ChannelMixer(const GridBlend& blend, int channel);
    void mix(const CellRun& run) const;

private:
    const float weight_;
    const ShiftedChannel a_, b_, smokeA_, smokeB_;
    const bool bySmoke_;
    float* const out_;
};

/// The weight of a colour where both frames bring smoke: `amount` is w * b's, `sum` that and
/// (1 - w) * a's.
inline float mixColor(float a, float b, float amount, float sum) {
    constexpr float kLeastSmoke = 0.0001f;
    // The part that a keeps isn't divided by the sum: files rendered so far rely on it.
    const float mixed = (amount / sum) * b + (1.0f - amount) * a;
    return sum > kLeastSmoke ? mixed : 0.0f;
}

/// Interpolates channels one after the other.
class MTLinInterpCache final : public NMBUtils::NmbParallel {
public:
    explicit MTLinInterpCache(const GridBlend& blend) : blend_(blend) {}
    const char* GetName() const override { return "MTLinInterpCache"; }
    void Run(NMBUtils::Job* job) override;

    /// All channels of the blend.
    void interpolate();
    /// One channel, which must be one of the blend's.
    void interpolateChannel(int channel);

private:
    const GridBlend& blend_;
    const ChannelMixer* mixer_ = nullptr;
};

}  // namespace nimbra
