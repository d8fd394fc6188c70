// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Edge-gated blur of a channel: a Sobel gradient tells which voxels are touched, and only these get
// the mean of their surroundings. Flat regions stay as they are, steps lose their stair shape.
#pragma once

#include <cstdint>

#include "cache/grid_channel.h"
#include "cache/smoothing_kernels.h"
#include "foundation/array.h"
#include "foundation/matrix34.h"
#include "foundation/parallel.h"

namespace nimbra {

/// Smooths channels one after the other, on a frame that nobody else shares.
class MTSmooth final : public NMBUtils::NmbParallel {
public:
    using Proxy = GridChannelProxy<float>;

    /// Scaled gradient length of each voxel; undefined in the outer shell, which is never smoothed.
    NMBUtils::NmbArray<float, long long> gradient;
    /// The channel being smoothed.
    Proxy* channel = nullptr;
    std::int32_t size[3] = {0, 0, 0};
    NMBUtils::Matrix34 gridToObject;
    /// Gradient length from which a voxel is touched; grows in each iteration.
    float threshold = 0;
    /// Meant for the sums over a tree's cells; they are the same as those over dense ones.
    float similarity = 0;
    /// Amount of multiplicative noise.
    float randomize = 0;
    /// New values of the touched voxels, in scan order.
    NMBUtils::NmbArray<float, long long> results;
    /// Where the results of each job begin.
    NMBUtils::NmbArray<std::int32_t> jobOffsets;

    /// `stop` may be null: asked for an abort in the long passes.
    explicit MTSmooth(TessUtils::ThreadManager* threads = nullptr,
                      TessUtils::ProgressCallback* stop = nullptr)
        : NmbParallel(threads), stop_(stop) {}

    const char* GetName() const override { return "MTSmooth"; }
    /// Phase 0: gradients. Phase 1: new values.
    void Run(NMBUtils::Job* job) override;

    /// `iterations` steps on a loaded channel of cellCounts cells, then makes its range unknown.
    /// gridToObjectTm: cells to object space. Without memory the channel stays as it was.
    void smoothChannel(int iterations, Proxy& target, const int cellCounts[3],
                       const NMBUtils::Matrix34& gridToObjectTm, float firstThreshold,
                       float similarityOfTree, float noise);

private:
    class Planes;

    bool sizeStores();
    void iterate();
    bool deriveOffsets();
    void writeBack();
    void findGradients(NMBUtils::Job* job);
    void findMeans(NMBUtils::Job* job);
    void countRange(NMBUtils::Job* job);
    std::int64_t rowStart(std::int64_t y, std::int64_t z) const {
        return (z * size[1] + y) * size[0];
    }

    TessUtils::ProgressCallback* stop_;
    /// Three planes for each job, into which those of a tree are read.
    NMBUtils::NmbArray<float, long long> treePlanes_;
};

}  // namespace nimbra
