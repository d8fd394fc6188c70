// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A million particles between two frames, matched by their IDs, against sorting the IDs of both
// frames on one thread.
#include <algorithm>
#include <numeric>
#include <random>
#include <utility>

#include "cache/blend_particles.h"
#include "cache/prt_group.h"
#include "paired.h"

namespace {

using namespace nimbra;

constexpr int kParticles = 1000000;

/// How the second frame's particles lie in memory.
enum Order : std::int64_t {
    kRising,    // by ID
    kShuffled,  // in no order, as particles that are sorted by place again and again
};
/// The first weight between two frames has to find the order of the IDs.
enum Request : std::int64_t { kFirstWeight, kSecondWeight };

/// A twentieth of the IDs is in one frame only.
std::vector<std::int64_t> makeIds(int first, Order order) {
    std::vector<std::int64_t> ids(kParticles);
    std::iota(ids.begin(), ids.end(), first);
    if (order == kShuffled)
        std::shuffle(ids.begin(), ids.end(), std::mt19937(static_cast<unsigned>(first)));
    return ids;
}

void fill(NimbraFrameData& frame, const std::vector<std::int64_t>& ids) {
    frame.clearGroups();
    NimbraFrameData::PGroup& group = *frame.addGroup("Liquid");
    group.count = kParticles;
    std::vector<float> values(std::size_t(kParticles) * 3);
    std::iota(values.begin(), values.end(), 0.0f);
    group.setChannel(kPrtId, ids.data());
    for (const int channel : {kPrtPosition, kPrtVelocity, kPrtSize, kPrtAge})
        group.setChannel(channel, values.data());
}

void BM_BlendById(benchmark::State& state) {
    const bench::Threads threads(static_cast<int>(state.range(2)));
    const Order order = Order(state.range(0));
    const std::vector<std::int64_t> ids[2] = {makeIds(0, order), makeIds(kParticles / 20, order)};
    NimbraFrameData a, b, result;
    NimbraFrameData* const frames[2] = {&a, &b};
    std::vector<std::pair<std::int64_t, int>> keys(kParticles);
    bench::compare(
        state,
        [&] {
            result.clearGroups();
            for (const int f : {0, 1})
                fill(*frames[f], ids[f]);
            if (state.range(1) == kSecondWeight)
                for (const int f : {0, 1})
                    frames[f]->groups[0]->buildIdOrder();
        },
        [&] { blendParticles(result, a, b, 0.5f, kBlendById); },
        [&] {
            for (const int f : {0, 1}) {
                for (int i = 0; i < kParticles; ++i)
                    keys[static_cast<std::size_t>(i)] = {ids[f][static_cast<std::size_t>(i)], i};
                std::sort(keys.begin(), keys.end());
                benchmark::DoNotOptimize(keys.data());
            }
        });
}
BENCHMARK(BM_BlendById)
    ->ArgNames({"shuffled", "second_weight", "threads"})
    ->ArgsProduct({{kRising, kShuffled}, {kFirstWeight, kSecondWeight}, {1, 2}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
