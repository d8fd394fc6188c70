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
    void mixPart(const CellRun& run) const;

    const float weight_;
    const ShiftedChannel a_, b_, smokeA_, smokeB_;
    const bool bySmoke_;
    float* const out_;
};

/// With less smoke than this of both frames together, colours are 0.
inline constexpr float kLeastColoredSmoke = 0.0001f;

/// A colour where there is smoke: `amount` is w times b's smoke, `sum` that and (1 - w) times a's.
inline float mixColor(float a, float b, float amount, float sum) {
    // The part that a keeps isn't divided by the sum: renders made so far look that way.
    return (amount / sum) * b + (1.0f - amount) * a;
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
