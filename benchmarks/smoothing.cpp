// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Smoothing of a channel of 256^3 voxels, all three iterations, against one plain pass of 27 points
// over the same grid with as many threads.
#include <algorithm>
#include <cmath>

#include "cache/mt_smooth.h"
#include "paired.h"

namespace {

using namespace nimbra;

constexpr int kSide = 256;
constexpr int kSize[3] = {kSide, kSide, kSide};
constexpr std::int64_t kCells = std::int64_t(kSide) * kSide * kSide;

/// A plume with billows.
std::vector<float> makeSmoke() {
    std::vector<float> voxels(kCells);
    for (std::size_t i = 0; i < voxels.size(); ++i) {
        const auto x = static_cast<float>(i % kSide), y = static_cast<float>(i / kSide % kSide);
        const auto z = static_cast<float>(i / kSide / kSide);
        const float swirl = std::sin(x * 0.21f + y * 0.17f) + std::sin(y * 0.3f - z * 0.11f);
        const float r = std::hypot(x - 128, y - 128) / (40 + z * 0.25f);
        voxels[i] = std::max(0.0f, 1.6f * (1 - r) + 0.25f * swirl);
    }
    return voxels;
}

/// out := mean of 3 x 3 x 3 cells.
class PlainPass : public NMBUtils::NmbParallel {
public:
    PlainPass(const float* in, float* out) : in_(in), out_(out) { SplitRange(kSide - 2); }
    void Run(NMBUtils::Job* job) override {
        for (std::int64_t z = job->rangeStart + 1; z < job->rangeEnd + 1; ++z)
            for (std::int64_t y = 1; y < kSide - 1; ++y)
                for (std::int64_t x = 1; x < kSide - 1; ++x) {
                    const float* const v = in_ + (z * kSide + y) * kSide + x;
                    float sum = 0;
                    for (int k = 0; k < 27; ++k)
                        sum += kMeanKernel[k] *
                               v[((k / 9 - 1) * kSide + k / 3 % 3 - 1) * kSide + k % 3 - 1];
                    out_[(z * kSide + y) * kSide + x] = sum * kMeanScale;
                }
    }

private:
    const float* in_;
    float* out_;
};

/// Threads, threshold in thousandths.
void BM_Smooth(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(0)));
    const float threshold = static_cast<float>(state.range(1)) / 1000;
    static const std::vector<float> smoke = makeSmoke();
    GridChannelProxy<float> channel;
    std::vector<float> out(kCells);
    if (!channel.allocate(kSize))
        return state.SkipWithError("no memory");
    PlainPass pass(smoke.data(), out.data());
    MTSmooth smooth;
    bench::compare(
        state, [&] { std::copy(smoke.begin(), smoke.end(), channel.denseVoxels()); },
        [&] { smooth.smoothChannel(3, channel, kSize, {}, threshold, 0, 0); },
        [&] { pass.Start(); });
    const float* const after = channel.denseVoxels();
    std::int64_t changed = 0;
    for (std::size_t i = 0; i < smoke.size(); ++i)
        changed += smoke[i] != after[i];
    state.counters["changed"] = static_cast<double>(changed) / static_cast<double>(kCells);
}

BENCHMARK(BM_Smooth)
    ->ArgNames({"threads", "threshold"})
    ->ArgsProduct({{1, 2}, {0, 5, 20, 50}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(7)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
