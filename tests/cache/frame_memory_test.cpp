// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frames while memory runs out, with all of the program's memory from the host, as in the module.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "cache/nimbra_frame.h"
#include "foundation/memory.h"
#include "support/kol_sequence.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

using namespace test;

/// A load, what it has to show when all goes well, and with how many frames in the list.
struct Case {
    const char* name;
    std::int64_t ticks;
    int method;
    float smoke;
    int frames;
    std::function<void(NimbraFrame&)> prepare = [](NimbraFrame&) {};

    friend void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }
};

/// Changes nothing in channels of one value.
void smoothAll(NimbraFrame& holder) {
    holder.smoothMask = channelBit(kSmoke);
    std::fill(std::begin(holder.smoothRandomize), std::end(holder.smoothRandomize), 0.0f);
}

class FrameMemory : public testing::TestWithParam<Case> {
protected:
    FrameMemory() {
        for (const int n : {1, 2, 3}) {
            KolFrame f{{{kVelocityX, {0}}, {kVelocityY, {0}}, {kVelocityZ, {0}}}};
            f.channels[kSmoke] = {static_cast<float>(n)};
            f.group = "Foam";
            files.write(n, f);
        }
    }
    static int load(NimbraFrame& holder, std::int64_t ticks, const std::string& path, int method) {
        const int size[3] = {2, 2, 2};
        return holder.load(ticks, path, method, 1000, size, 1, false, true, 0, "");
    }
    static float smoke(const NimbraFrame& holder) {
        const auto& channel = holder.data->getChannelProxy(kSmoke);
        return channel.loaded ? channel.read(0) : -1;
    }

    KolSequence files;
};

// Whichever allocation fails: what is shown is right or nothing, the other holder keeps its frame,
// nothing is leaked or counted twice, and the next try works.
TEST_P(FrameMemory, AnyAllocationFails) {
    const Case& c = GetParam();
    const std::string path = files.pattern();
    auto& list = NimbraFrame::frameDataArray;
    auto* const tracker = getGlobalMemoryTracker();
    NimbraFrame other;
    load(other, 2000, path, 0);
    int without = 0;
    const auto isAsAlways = [&](std::uint64_t n) {
        NimbraFrame holder;
        c.prepare(holder);
        int status = -1;
        tracker->failAllocation(n);
        try {
            status = load(holder, c.ticks, path, c.method);
        } catch (const std::bad_alloc&) {
        }
        tracker->failAllocation(0);
        without += !holder.data;
        EXPECT_TRUE(holder.data || status != kFrameLoaded) << n;
        const bool same =
            holder.data && smoke(holder) == c.smoke && list.size == c.frames + 1 && status != -1;
        holder.fixedBlendWeight = -1;
        holder.smoothMask = 0;
        EXPECT_EQ(load(holder, 3000, path, c.method), kFrameLoaded) << n;
        EXPECT_EQ(smoke(other), 2) << n;
        return same;
    };
    // Sixty in a row that show what they should: all allocations had their turn.
    int same = 0;
    for (std::uint64_t n = 1; same < 60 && n < 5000; ++n) {
        isAsAlways(n);
        // What stays for good stays after the first time.
        const std::size_t blocks = tracker->currentBlocks();
        same = isAsAlways(n) ? same + 1 : 0;
        ASSERT_EQ(tracker->currentBlocks(), blocks) << n;
        ASSERT_EQ(list.size, 1) << n;
        ASSERT_EQ(list[0]->refCount, 1) << n;
    }
    EXPECT_EQ(same, 60);
#ifndef NIMBRA_SANITIZED  // only then is all memory the host's
    EXPECT_GT(without, 0);
#endif
}

INSTANTIATE_TEST_SUITE_P(Loads, FrameMemory,
                         testing::Values(Case{"Whole", 1000, 0, 1, 1},
                                         Case{"Interpolated", 1250, 0, 1.25f, 2},
                                         Case{"AlongVelocity", 1250, 1, 1, 2},
                                         Case{"CrossFaded", 1250, 256, 1.25f, 2},
                                         Case{"Overlap", 1000, 0, 2, 3,
                                              [](NimbraFrame& holder) {
                                                  holder.fixedBlendWeight = 0.5f;
                                                  holder.fixedBlendTarget = 3;
                                              }},
                                         Case{"StandIn", 3500, 0, 3, 1},
                                         Case{"SmoothedStandIn", 3500, 0, 3, 1, smoothAll},
                                         Case{"Smoothed", 1250, 0, 1.25f, 2, smoothAll}),
                         [](const auto& c) { return c.param.name; });

}  // namespace
}  // namespace nimbra
