// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Blending by tracing: where the grid moves by half a cell and more between the frames, a cell is
// mixed from the places along its motion in both of them. No search, unlike in blend_velocity.h.
#pragma once

#include "cache/blend_grids.h"
#include "tessra/math.h"

namespace nimbra {

/// Blends all channels in one run. Velocities mix by the square of the weight; what isn't traced is
/// interpolated.
class MTInterpPreciseTracing final : public NMBUtils::NmbParallel {
public:
    explicit MTInterpPreciseTracing(const GridBlend& blend);
    const char* GetName() const override { return "MTInterpPreciseTracing"; }
    void Run(NMBUtils::Job* job) override;
    void interpolate();

private:
    /// Velocities in both frames, for the cells of a run.
    struct Motion {
        float a[3][kLongestRun], b[3][kLongestRun];
        TessUtils::Vector inA(int i) const { return {a[0][i], a[1][i], a[2][i]}; }
        TessUtils::Vector inB(int i) const { return {b[0][i], b[1][i], b[2][i]}; }
        TessUtils::Vector mixed(int i, float weight) const {
            return inA(i) * (1.0f - weight) + inB(i) * weight;
        }
    };

    void readMotion(const CellRun& run, Motion& motion) const;
    void mixVelocities(const CellRun& run, const Motion& motion) const;
    void trace(const CellRun& run, const Motion& motion) const;
    float reach(const int cellOfB[3]) const;
    void mixTraced(std::int64_t to, std::int64_t fromA, std::int64_t fromB) const;

    const GridBlend& blend_;
    const float weightOfMotion_;
    /// Bits of the channels of each way.
    std::uint32_t vectors_ = 0, traced_ = 0;
    bool originKnown_;
};

}  // namespace nimbra
