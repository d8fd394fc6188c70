// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/tree_access.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <vector>

#include "cache/grid_samplers.h"
#include "cache/test_grids.h"
#include "cache/thread_slot.h"
#include "support/threads.h"

namespace nimbra {
namespace {

using test::patchyNoise;
using test::treeChannel;

TEST(WriteTree, AllKinds_ReadBackWhatWasWritten) {
    const test::Cell3 size{20, 20, 20};
    for (int kind = kFloatTree; kind <= kVec3dTree; ++kind) {
        const int component = kind >= kVec3fTree ? 2 : 1;
        test::Proxy tree = treeChannel(kind, size, patchyNoise, {{-3, 0, 5}, component, 0.5f});
        // Cells in leaves, in tiles and in the background; a filter reads around each before, so
        // that the cursor knows the place in its old state.
        for (int i = 0; i < 8000; i += 37) {
            const float position[3] = {float(i % 20), float(i / 20 % 20), float(i / 400)};
            float out = 0;
            kSampleKernels[kSphericalSampler * 8](&tree, position, &out, 1, 1, 0);
            tree.write(i, float(i % 100) - 50);
            ASSERT_EQ(tree.read(i), float(i % 100) - 50) << "kind " << kind << ", cell " << i;
        }
        std::vector<float> all(8000), run(31);
        tree.readRun(0, 8000, all.data());
        for (int i = 0; i < 8000; ++i)
            ASSERT_EQ(all[i], i % 37 == 0 ? float(i % 100) - 50
                                          : patchyNoise(i % 20, i / 20 % 20, i / 400) * 0.5f)
                << "kind " << kind << ", cell " << i;
        for (const int first : {0, 5, 19, 200, 7970}) {
            run.back() = -1;
            tree.readRun(first, 30, run.data());
            EXPECT_TRUE(std::equal(run.begin(), run.end() - 1, all.begin() + first)) << first;
            EXPECT_EQ(run.back(), -1);
        }
    }
}

TEST(WriteTree, WholeNumbers_AreRoundedAndLimited) {
    test::Proxy tree = treeChannel(kInt32Tree, {4, 4, 4}, test::everywhere(1));
    for (const auto& [written, read] : {std::pair{2.6f, 3.0f},
                                        {1e20f, 2147483647.0f},
                                        {-1e20f, -2147483648.0f},
                                        {std::numeric_limits<float>::quiet_NaN(), 0.0f}}) {
        tree.write(0, written);
        EXPECT_EQ(tree.read(0), read) << written;
    }
}

TEST(NewTreeHolder, UnsoundSources_GiveNone) {
    TreeSource source;
    EXPECT_EQ(newTreeHolder(source), nullptr);
    source.grid = std::make_shared<int>(1);  // never looked into
    for (const int kind : {7, 0}) {
        source.kind = kind;
        EXPECT_EQ(newTreeHolder(source), nullptr);
    }
    source.kind = 1;
    source.origin[1] = 2147483600;
    source.size[1] = 100;
    EXPECT_EQ(newTreeHolder(source), nullptr);
    EXPECT_EQ(liveTreeHolders(), 0);
}

// ---- Threads -----------------------------------------------------------------------------------

float patchAt(const test::Proxy& tree, float x, float y, float z) {
    const float position[3] = {x, y, z};
    float out = -1;
    kSampleKernels[kLinearSampler * 8](&tree, position, &out, 1, 1, 0);
    return out;
}

TEST(TreeThreads, FirstTouchByManyThreadsAtOnce) {
    constexpr int kThreads = 72;
    const test::Cell3 size{30, 30, 30};
    std::vector<test::Proxy> trees;
    for (int kind = kFloatTree; kind <= kVec3dTree; ++kind)
        trees.push_back(treeChannel(kind, size, patchyNoise, {{0, 0, 0}, 1, 1}));
    const test::Proxy dense = test::denseChannel(size, patchyNoise);
    std::barrier start(kThreads);
    std::atomic<int> wrong{0};
    test::onThreads(kThreads, [&](int t) {
        start.arrive_and_wait();
        for (int i = 0; i < 200; ++i) {
            const float x = float((i * 7 + t) % 29), y = float((i * 3 + t) % 29);
            for (const test::Proxy& tree : trees)
                wrong += patchAt(tree, x, y, 5) != patchAt(dense, x, y, 5);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(TreeThreads, ThousandsOfChannels_UseFewSlotsAgain) {
    const std::int64_t holdersBefore = liveTreeHolders();
    const std::uint32_t slotsBefore = ThreadSlot::numbersInUse();
#ifdef NIMBRA_SANITIZED
    constexpr int kRounds = 60;
#else
    constexpr int kRounds = 300;
#endif
    constexpr int kThreads = 8, kAtOnce = 4;
    // A few threads make, sample and drop channels of their own, while all of them sample one that
    // lives long.
    const auto longLived =
        treeChannel(kFloatTree, {9, 9, 9}, [](int x, int, int) { return float(x); });
    std::atomic<int> wrong{0};
    test::onThreads(kThreads, [&](int t) {
        for (int round = 0; round < kRounds; ++round) {
            test::Proxy mine[kAtOnce];
            for (int i = 0; i < kAtOnce; ++i) {
                const float value = float(1 + t * 100000 + round * 10 + i);
                mine[i] = treeChannel(kFloatTree, {4, 1, 1}, test::everywhere(value));
                wrong += patchAt(mine[i], 1, 0, 0) != value;
            }
            wrong += patchAt(longLived, float(round % 8), 1, 1) != float(round % 8);
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(liveTreeHolders(), holdersBefore + 1);
    EXPECT_LE(ThreadSlot::numbersInUse(), slotsBefore + 1 + kThreads * kAtOnce);
}

}  // namespace
}  // namespace nimbra
