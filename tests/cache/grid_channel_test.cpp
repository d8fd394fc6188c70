// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/grid_channel.h"

#include <gtest/gtest.h>

#include <limits>

#include "cache/test_grids.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

TEST(GridChannelProxy, Allocate_GivesZerosAndSpareFloatsOrNothing) {
    test::Proxy proxy;
    const int size[3] = {3, 4, 5};
    ASSERT_TRUE(proxy.allocate(size, 4));
    EXPECT_EQ(proxy.storage->voxels.size, 64);
    EXPECT_EQ(proxy.storage->cells, 60);
    EXPECT_EQ(proxy.read(59), 0.0f);

    for (const auto& bad : {test::Cell3{-1, -1, 5}, test::Cell3{1 << 30, 1 << 30, 1 << 30},
                            test::Cell3{1 << 20, 1 << 20, 2}}) {
        EXPECT_FALSE(proxy.allocate(bad.data(), 4));
        EXPECT_FALSE(proxy.loaded);
    }
    ASSERT_TRUE(proxy.allocate(size, 0));
    getGlobalMemoryTracker()->failAllocation(1);
    EXPECT_FALSE(proxy.allocate(size, 0));
    EXPECT_FALSE(proxy.loaded);
    getGlobalMemoryTracker()->failAllocation(0);
}

TEST(GridStorage, LastCells_NeverLieBeyondTheGrid) {
    GridStorage s;
    // 2^24 + 2 cells: the last one's number has no float of its own.
    const int size[3] = {16777218, 1, 0};
    ASSERT_TRUE(s.setSize(size));
    EXPECT_EQ(s.lastCell[0], 16777217);
    EXPECT_EQ(s.lastCellFloat[0], 16777216.0f);
    EXPECT_EQ(s.lastCellFloat[2], 0.0f);
    EXPECT_EQ(s.cells, 0);
    const int longest[3] = {std::numeric_limits<int>::max(), 1, 1};
    ASSERT_TRUE(s.setSize(longest));
    EXPECT_LE(static_cast<double>(s.lastCellFloat[0]), 2147483646.0);
}

TEST(ScanRange, Tree_TakesActiveValuesWithTheScale) {
    // -33.3333 turns the order round; unstored cells don't count.
    test::TreeOptions options;
    options.scale = -33.3333f;
    for (int kind = kFloatTree; kind <= kVec3dTree; ++kind) {
        options.component = kind >= kVec3fTree ? 3 : 1;
        const test::Proxy tree = test::treeChannel(
            kind, {40, 3, 3}, [](int x, int, int) { return x < 20 ? 0.0f : 3.0f + float(x >= 39); },
            options);
        float min = 0, max = 0;
        ASSERT_TRUE(tree.scanRange(min, max));
        EXPECT_EQ(min, 4.0f * -33.3333f) << kind;
        EXPECT_EQ(max, 3.0f * -33.3333f) << kind;
    }
    const test::Proxy empty = test::treeChannel(kFloatTree, {4, 4, 4}, test::everywhere(0));
    float min = 1, max = 1;
    ASSERT_TRUE(empty.scanRange(min, max));
    EXPECT_EQ(min, 0.0f);
    EXPECT_EQ(max, 0.0f);
}

}  // namespace
}  // namespace nimbra
