// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Blending of grids: interpolation against a plain pass that reads two arrays and writes one, the
// first weight between two frames against the second one, tracing against interpolation.
#include <cmath>
#include <memory>

#include "cache/blend_frames.h"
#include "cache/blend_interpolation.h"
#include "foundation/memory.h"
#include "paired.h"

namespace {

using namespace nimbra;

/// A plume with billows, which rises and turns; air is at rest.
struct Plume : NimbraFrameData {
    Plume(int side, float time, float offset = 0) : side_(side) {
        resetHeader(false);
        std::fill_n(gridSize, 3, side);
        std::fill_n(transform + 9, 3, offset);
        timeStep = 1;
        for (int c : {2, 4, 5, 6, 7})
            if (channels[c].allocate(gridSize))
                fill(c, time);
    }

private:
    void fill(int channel, float time) {
        float* out = channels[channel].denseVoxels();
        const float scale = 256.0f / static_cast<float>(side_);
        for (int z = 0; z < side_; ++z)
            for (int y = 0; y < side_; ++y)
                for (int x = 0; x < side_; ++x)
                    *out++ =
                        value(channel, static_cast<float>(x) * scale, static_cast<float>(y) * scale,
                              static_cast<float>(z) * scale, time) /
                        (channel >= kVelocityX && channel <= kVelocityZ ? scale : 1);
    }
    static float value(int channel, float x, float y, float z, float time) {
        const float dx = x - 128, dy = y - 128, body = 1 - std::hypot(dx, dy) / (40 + z * 0.25f);
        const float up = z - 4 * time;
        if (channel == kVelocityX)
            return body > 0 ? -0.02f * dy : 0;
        if (channel == kVelocityY)
            return body > 0 ? 0.02f * dx : 0;
        if (channel == kVelocityZ)
            return body > 0 ? 4 : 0;
        const float swirl = std::sin(x * 0.21f + y * 0.17f) + std::sin(y * 0.3f - up * 0.11f);
        const float smoke = std::max(0.0f, 1.6f * body + 0.25f * swirl);
        return channel == kSmoke ? smoke : 0.3f + 0.1f * swirl;
    }

    int side_;
};

/// Reads two arrays and writes one.
class PlainPass : public NMBUtils::NmbParallel {
public:
    PlainPass(const Plume& a, const Plume& b, float* out)
        : a_(a.channels[kSmoke].denseVoxels()), b_(b.channels[kSmoke].denseVoxels()), out_(out) {
        SplitRange(voxelCount(a.gridSize));
    }
    void Run(NMBUtils::Job* job) override {
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i)
            out_[i] = a_[i] + b_[i];
    }

private:
    const float* __restrict a_;
    const float* __restrict b_;
    float* __restrict out_;
};

enum Scene : int { kSameGrid, kShiftedGrid, kColorBySmoke };

/// Threads, scene. One channel of 256^3.
void BM_Interpolate(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(0)));
    const auto scene = static_cast<Scene>(state.range(1));
    const int shift = scene == kShiftedGrid ? 3 : 0;
    Plume a(256, 0), b(256, 1, static_cast<float>(-shift));
    NimbraFrameData dst;
    GridBlend blend{.dst = dst, .a = a, .b = b, .weight = 0.3f};
    const int channel = scene == kColorBySmoke ? kColorR : kSmoke;
    for (int i = 0; i < 3; ++i) {
        dst.gridSize[i] = 256 + shift;
        blend.shiftB[i] = -shift;
    }
    dst.channels[kSmoke].allocate(dst.gridSize);
    if (!dst.channels[channel].allocate(dst.gridSize))
        return state.SkipWithError("no memory");
    blend.channels = channelBit(channel);
    std::vector<float> out(static_cast<std::size_t>(voxelCount(a.gridSize)));
    PlainPass pass(a, b, out.data());
    MTLinInterpCache job(blend);
    job.interpolate();
    bench::compare(
        state, [] {}, [&] { job.interpolate(); }, [&] { pass.Start(); });
    benchmark::DoNotOptimize(out.data());
}

BENCHMARK(BM_Interpolate)
    ->ArgNames({"threads", "scene"})
    ->ArgsProduct({{1, 2}, {kSameGrid, kShiftedGrid, kColorBySmoke}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(21)
    ->UseManualTime();

/// Two frames and the sources between them, as a holder keeps them.
class Pair {
public:
    explicit Pair(int side) : a_(side, 0), b_(side, 1) {}
    ~Pair() {
        for (float* s : sources_)
            NMBUtils::freeMem(s);
    }
    void blend(float weight, int method, bool recompute) {
        auto made = std::make_unique<NimbraFrameData>();
        made->resetHeader(false);
        if (blendFrames(*made, a_, b_, weight, method, recompute, sources_, nullptr).status ==
            kFrameLoaded)
            NimbraFrame::frameDataArray.releaseFrame(made.release());
    }

private:
    Plume a_, b_;
    float* sources_[kChannelSlots] = {};
};

/// Threads. The ratio tells how much faster the second weight comes.
void BM_FirstWeight(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(0)));
    Pair pair(128);
    pair.blend(0.25f, kBlendAlongVelocity, true);
    bench::compare(
        state, [] {}, [&] { pair.blend(0.25f, kBlendAlongVelocity, true); },
        [&] { pair.blend(0.75f, kBlendAlongVelocity, false); });
}

BENCHMARK(BM_FirstWeight)
    ->ArgNames({"threads"})
    ->ArgsProduct({{1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(7)
    ->UseManualTime();

void BM_Trace(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(0)));
    Pair pair(128);
    bench::compare(
        state, [] {}, [&] { pair.blend(0.3f, kTracePrecisely, true); },
        [&] { pair.blend(0.3f, kInterpolateGrids, true); });
}

BENCHMARK(BM_Trace)
    ->ArgNames({"threads"})
    ->ArgsProduct({{1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(7)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
