// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/origin_velocity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "cache/frame_data.h"
#include "cache/test_grids.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

using namespace test;

constexpr Cell3 kSize = {5, 4, 3}, kLaterSize = {4, 5, 6};

/// Where the content of a cell came from, in shares of the grid; beyond it at some.
float originAt(int axis, int x, int y, int z) {
    return std::sin(static_cast<float>(x + 2 * y + 3 * z + axis)) * 1.2f;
}

class OriginVelocity : public testing::Test {
protected:
    OriginVelocity() {
        for (NimbraFrameData* f : {&frame, &later}) {
            f->resetHeader(false);
            std::copy_n((f == &frame ? kSize : kLaterSize).data(), 3, f->gridSize);
            for (int a = 0; a < 3; ++a)
                f->transform[a * 4] = 2;
        }
        giveOrigins(false);
        frame.timeStep = 0.25f;
        // The later grid begins a cell further along x and two before along z.
        frame.transform[9] = 10;
        later.transform[9] = 9.4f;
        frame.transform[11] = -1;
        later.transform[11] = 1;
    }
    void giveOrigins(bool trees) {
        for (int a = 0; a < 3; ++a) {
            const int c = kAdvectionOriginX + a;
            const auto field = [a](int x, int y, int z) { return originAt(a, x, y, z); };
            later.channels[c] = trees ? treeChannel(kFloatTree, kLaterSize, field)
                                      : denseChannel(kLaterSize, field);
            later.channelMask |= channelBit(c);
        }
    }
    /// Gives the frame three channels of one value.
    void give(int firstChannel, float value) {
        for (int c = firstChannel; c < firstChannel + 3; ++c) {
            frame.channels[c] = denseChannel(kSize, everywhere(value));
            frame.channelMask |= channelBit(c);
        }
    }
    void expectMade(int firstChannel) {
        for (int a = 0; a < 3; ++a) {
            const auto field = [&](int x, int y, int z) {
                const Cell3 c = {x - 1, y, z + 2};
                for (std::size_t i = 0; i < 3; ++i)
                    if (c[i] < 0 || c[i] >= kLaterSize[i])
                        return 0.0f;
                const float came =
                    static_cast<float>(kLaterSize[a]) * originAt(a, c[0], c[1], c[2]);
                return (static_cast<float>(c[a]) - std::clamp(came, 0.0f, float(kSize[a]))) / 0.25f;
            };
            ASSERT_TRUE(frame.hasChannel(firstChannel + a));
            EXPECT_EQ(valuesOf(frame.getChannelProxy(firstChannel + a)),
                      valuesOf(denseChannel(kSize, field)))
                << a;
        }
    }

    NimbraFrameData frame, later;
};

TEST_F(OriginVelocity, FillsTheVelocityChannels) {
    EXPECT_FALSE(hasOriginVelocities(frame));
    EXPECT_TRUE(velocitiesFromOrigin(frame, later));
    expectMade(kVelocityX);
    EXPECT_FALSE(frame.hasChannel(kAdvectionOriginX));
    // Asked again, nothing moves on to other channels.
    EXPECT_TRUE(hasOriginVelocities(frame));
    EXPECT_TRUE(velocitiesFromOrigin(frame, later));
    EXPECT_FALSE(frame.hasChannel(kAdvectionOriginX));
}

TEST_F(OriginVelocity, ReplacesTheOriginWhereThereAreVelocities) {
    giveOrigins(true);
    give(kVelocityX, 7);
    give(kAdvectionOriginX, 0.5f);
    EXPECT_TRUE(velocitiesFromOrigin(frame, later));
    expectMade(kAdvectionOriginX);
    EXPECT_EQ(frame.channels[kVelocityX].read(0), 7);
}

TEST_F(OriginVelocity, ItsOwnNextFrame) {
    give(kAdvectionOriginX, 0.5f);
    EXPECT_TRUE(velocitiesFromOrigin(frame, frame));
    EXPECT_EQ(frame.channels[kVelocityX].read(4), (4 - 2.5f) / 0.25f);
    EXPECT_EQ(frame.channels[kAdvectionOriginX].read(4), 0.5f);
}

TEST_F(OriginVelocity, ChannelsThatAreMissingOrOfAnotherSize_GiveNothing) {
    later.freeChannel(kAdvectionOriginZ);
    EXPECT_FALSE(velocitiesFromOrigin(frame, later));
    later.channels[kAdvectionOriginZ] = denseChannel({2, 2, 2}, everywhere(1));
    EXPECT_FALSE(velocitiesFromOrigin(frame, later));
    EXPECT_EQ(frame.channelMask, 0u);
}

TEST_F(OriginVelocity, PlacesFarAway_AndGridsOfAnySize) {
    for (const float far : {3e9f, -1e30f, std::numeric_limits<float>::infinity(), std::nanf("")}) {
        NimbraFrameData still;
        std::copy_n(kSize.data(), 3, still.gridSize);
        still.transform[10] = far;
        EXPECT_TRUE(velocitiesFromOrigin(still, later));
        EXPECT_EQ(valuesOf(still.channels[kVelocityY]), std::vector<float>(60));
    }
    NimbraFrameData huge;
    std::fill_n(huge.gridSize, 3, 1 << 20);
    EXPECT_FALSE(velocitiesFromOrigin(huge, later));
    // Values that are no numbers count as the grid's edge.
    later.channels[kAdvectionOriginX] = denseChannel(kLaterSize, everywhere(std::nanf("")));
    std::copy_n(frame.transform, 12, later.transform);
    EXPECT_TRUE(velocitiesFromOrigin(frame, later));
    EXPECT_EQ(frame.channels[kVelocityX].read(3), 3 / frame.timeStep);
}

TEST_F(OriginVelocity, WithoutMemory_AllOrNothing) {
    int without = 0;
    for (std::uint64_t n = 1; n <= 39; ++n) {
        NimbraFrameData made;
        std::copy_n(kSize.data(), 3, made.gridSize);
        getGlobalMemoryTracker()->failAllocation(n);
        const bool whole = velocitiesFromOrigin(made, later);
        getGlobalMemoryTracker()->failAllocation(0);
        EXPECT_EQ(made.channelMask, whole ? 7u << kVelocityX : 0u);
        without += !whole;
    }
    EXPECT_GE(without, 3);
}

}  // namespace
}  // namespace nimbra
