// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The surface of a liquid of a million particles, against sorting the particles by half cell with
// as many threads.
#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include "cache/particles_to_grid.h"
#include "cache/prt_group.h"
#include "paired.h"

namespace {

using namespace nimbra;

constexpr int kParticles = 1000000;

enum Shape : std::int64_t {
    kPool,  // a basin with waves
    kBall,  // a ball: three times as much surface
};

struct Liquid {
    int size[3];
    std::vector<float> positions;
};

/// In no order, as particles are that come and go.
Liquid makeLiquid(Shape shape) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(0, 1);
    const int side = 64;
    const int height = shape == kPool ? 48 : 64;
    Liquid liquid{{side, side, height}, {}};
    while (liquid.positions.size() < std::size_t(kParticles) * 3) {
        const float x = uniform(random) * static_cast<float>(side);
        const float y = uniform(random) * static_cast<float>(side);
        const float z = uniform(random) * static_cast<float>(height);
        const float level = 30.5f + 3 * std::sin(x * 0.2f) * std::cos(y * 0.15f);
        const float r = std::hypot(x - 32, y - 32, z - 32);
        if (shape == kPool ? z < level : r < 31)
            liquid.positions.insert(liquid.positions.end(), {x, y, z});
    }
    return liquid;
}

const Liquid& liquidOf(Shape shape) {
    static const Liquid made[] = {makeLiquid(kPool), makeLiquid(kBall)};
    return made[shape];
}

/// Sorts pairs of half cell and particle: each job its share, then the shares are merged.
class SortByCell : public NMBUtils::NmbParallel {
public:
    explicit SortByCell(const Liquid& liquid) : liquid_(liquid), keys_(kParticles) {
        SplitRange(kParticles);
    }
    void Run(NMBUtils::Job* job) override {
        const int nx = (liquid_.size[0] + 1) / 2, ny = (liquid_.size[1] + 1) / 2;
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i) {
            const float* const p = liquid_.positions.data() + i * 3;
            const int h[3] = {int(p[0] / 2), int(p[1] / 2), int(p[2] / 2)};
            keys_[static_cast<std::size_t>(i)] = {(h[2] * ny + h[1]) * nx + h[0], int(i)};
        }
        std::sort(keys_.begin() + job->rangeStart, keys_.begin() + job->rangeEnd);
    }
    void sort() {
        Start();
        for (NMBUtils::Job* job = jobs()->next; job; job = job->next)
            std::inplace_merge(keys_.begin(), keys_.begin() + job->rangeStart,
                               keys_.begin() + job->rangeEnd);
        benchmark::DoNotOptimize(keys_.data());
    }

private:
    const Liquid& liquid_;
    std::vector<std::pair<int, int>> keys_;
};

/// Threads, Shape.
void BM_ParticlesToGrid(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(0)));
    const Liquid& liquid = liquidOf(static_cast<Shape>(state.range(1)));
    NimbraFrameData frame;
    std::copy_n(liquid.size, 3, frame.gridSize);
    NimbraFrameData::PGroup* const group = frame.addGroup("Liquid");
    group->count = kParticles;
    if (!frame.channels[kTemperature].allocate(liquid.size) ||
        !group->setChannel(kPrtPosition, liquid.positions.data()))
        return state.SkipWithError("no memory");
    SortByCell order(liquid);
    bench::compare(
        state, [] {},
        [&] {
            if (!liquidParticlesToGrid(frame))
                state.SkipWithError("nothing was made");
        },
        [&] { order.sort(); });
}

BENCHMARK(BM_ParticlesToGrid)
    ->ArgNames({"threads", "ball"})
    ->ArgsProduct({{1, 2}, {kPool, kBall}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(7)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
