// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Blending along velocities: for each cell it is searched where, in the earlier frame, the value
// came from that the later frame has there. Values then move from there to the cell as the weight
// grows, in place of fading out here and in there.
#pragma once

#include <atomic>

#include "cache/blend_grids.h"

namespace nimbra {

/// Finds the sources of one channel after the other.
class MTCalcBlendSource final : public NMBUtils::NmbParallel {
public:
    explicit MTCalcBlendSource(const GridBlend& blend);
    const char* GetName() const override { return "MTCalcBlendSource"; }
    void Run(NMBUtils::Job* job) override;

    /// sources: 3 floats for each cell of dst, a position in cells of a. False when stopped.
    bool search(int channel, float* sources);

private:
    struct Field;
    void searchRun(const Field& field, const CellRun& run) const;

    const GridBlend& blend_;
    const ShiftedChannel velocity_[3];
    int channel_ = 0;
    float* sources_ = nullptr;
    std::atomic<std::int64_t> nextCell_{0};
};

/// Fills all channels of the blend that have sources.
class MTInterpUsingVelocity final : public NMBUtils::NmbParallel {
public:
    MTInterpUsingVelocity(const GridBlend& blend, const float* const* sources)
        : blend_(blend), sources_(sources) {}
    const char* GetName() const override { return "MTInterpUsingVelocity"; }
    void Run(NMBUtils::Job* job) override;
    void interpolate();

private:
    void sampleRun(int channel, const CellRun& run) const;

    const GridBlend& blend_;
    const float* const* const sources_;
};

/// Blends all channels, searching for sources that aren't there, for all of them with `recompute`.
/// False without memory: no channel has a source then, and none is blended. When the search is
/// stopped, what it hasn't finished is given back.
bool blendAlongVelocity(const GridBlend& blend, bool recompute, float* (&sources)[kChannelSlots]);

}  // namespace nimbra
