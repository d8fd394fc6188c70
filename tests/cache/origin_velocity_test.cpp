// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/origin_velocity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "cache/frame_data.h"
#include "cache/test_grids.h"
#include "support/failing_allocations.h"

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
        frame.resetHeader(false);
        later.resetHeader(false);
        std::copy_n(kSize.data(), 3, frame.gridSize);
        std::copy_n(kLaterSize.data(), 3, later.gridSize);
        for (int a = 0; a < 3; ++a)
            frame.transform[a * 4] = later.transform[a * 4] = 2;
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
            const auto field = [a](int x, int y, int z) { return originAt(a, x, y, z); };
            later.channels[kAdvectionOriginX + a] = trees
                                                        ? treeChannel(kFloatTree, kLaterSize, field)
                                                        : denseChannel(kLaterSize, field);
            later.channelMask |= channelBit(kAdvectionOriginX + a);
        }
    }
    /// Gives the frame three channels of one value.
    void give(int firstChannel, float value) {
        for (int c = firstChannel; c < firstChannel + 3; ++c) {
            frame.channels[c] = denseChannel(kSize, [value](int, int, int) { return value; });
            frame.channelMask |= channelBit(c);
        }
    }
    void expectMade(int firstChannel) {
        constexpr int kOffset[3] = {-1, 0, 2};
        for (int a = 0; a < 3; ++a) {
            ASSERT_TRUE(frame.hasChannel(firstChannel + a));
            const auto field = [&](int x, int y, int z) {
                const int c[3] = {x + kOffset[0], y + kOffset[1], z + kOffset[2]};
                for (std::size_t i = 0; i < 3; ++i)
                    if (c[i] < 0 || c[i] >= kLaterSize[i])
                        return 0.0f;
                const float came =
                    static_cast<float>(kLaterSize[a]) * originAt(a, c[0], c[1], c[2]);
                const float in = std::min(static_cast<float>(kSize[a]), std::max(came, 0.0f));
                return (static_cast<float>(c[a]) - in) / 0.25f;
            };
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

TEST_F(OriginVelocity, NotAllChannels_Nothing) {
    later.freeChannel(kAdvectionOriginZ);
    EXPECT_FALSE(velocitiesFromOrigin(frame, later));
    EXPECT_EQ(frame.channelMask, 0u);
    later.channels[kAdvectionOriginZ] = denseChannel({2, 2, 2}, [](int, int, int) { return 1.f; });
    EXPECT_FALSE(velocitiesFromOrigin(frame, later)) << "of another size";
}

TEST_F(OriginVelocity, PlacesFarAway_AndGridsOfAnySize) {
    for (const float far : {3e9f, -1e30f, std::numeric_limits<float>::infinity(), std::nanf("")}) {
        NimbraFrameData still;
        std::copy_n(kSize.data(), 3, still.gridSize);
        still.transform[10] = far;
        EXPECT_TRUE(velocitiesFromOrigin(still, later));
        EXPECT_EQ(valuesOf(still.channels[kVelocityY]), std::vector<float>(60));
    }
    // Values that are no numbers count as the grid's edge.
    later.channels[kAdvectionOriginX] =
        denseChannel(kLaterSize, [](int, int, int) { return std::nanf(""); });
    std::copy_n(frame.transform, 12, later.transform);
    EXPECT_TRUE(velocitiesFromOrigin(frame, later));
    EXPECT_EQ(frame.channels[kVelocityX].read(3), 3 / frame.timeStep);
    NimbraFrameData huge;
    std::fill_n(huge.gridSize, 3, 1 << 20);
    EXPECT_FALSE(velocitiesFromOrigin(huge, later));
}

TEST_F(OriginVelocity, WithoutMemory_AllOrNothing) {
    int without = 0;
    failEachAllocation(
        39,
        [&] {
            auto made = std::make_unique<NimbraFrameData>();
            std::copy_n(kSize.data(), 3, made->gridSize);
            return std::pair(velocitiesFromOrigin(*made, later), std::move(made));
        },
        [&](const auto& result) {
            EXPECT_EQ(result.second->channelMask, result.first ? 7u << kVelocityX : 0u);
            without += !result.first;
        });
    EXPECT_GE(without, 3);
}

}  // namespace
}  // namespace nimbra
