// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/prt_group.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "cache/test_grids.h"
#include "cache/test_log.h"

namespace nimbra {
namespace {

using Group = NimbraFrameData::PGroup;

TEST(PrtGroup, Channels_HaveTheirLayout) {
    Group group;
    const int words[18] = {3, 3, 1, 1, 3, 1, 0, 0, 0, 1, 2, 1, 1, 1, 1, 1, 1, 1};
    const int types[18] = {10, 10, 10, 10, 10, 10, 0, 0, 0, 10, 7, 10, 6, 6, 6, 6, 6, 10};
    for (int c = 0; c < 18; ++c) {
        EXPECT_EQ(group.getChannelStride(c), words[c] * 4) << c;
        EXPECT_EQ(group.getChannelComponents(c), c == 10 ? 1 : words[c]) << c;
        EXPECT_EQ(group.getChannelType(c), types[c]) << c;
    }
    EXPECT_EQ(group.getChannelType(18), 0);
    EXPECT_EQ(group.getChannelComponents(31), 1);
}

TEST(PrtGroup, WithoutPositions_TheCountIs0) {
    Group group;
    group.count = 12;
    group.channelMask = 1u << kPrtSize;
    EXPECT_EQ(group.getCount(), 0);
    group.channelMask |= 1u << kPrtPosition;
    EXPECT_EQ(group.getCount(), 12);
}

TEST(PrtGroup, Values_ComeOutByParticle) {
    Group group;
    group.count = 3;
    const float positions[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    ASSERT_TRUE(group.setChannel(kPrtPosition, positions));
    float out[3] = {};
    ASSERT_TRUE(group.getValue(1, kPrtPosition, out));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{4, 5, 6}));
    EXPECT_FALSE(group.getValue(3, kPrtPosition, out));
    EXPECT_FALSE(group.getValue(-1, kPrtPosition, out));
    EXPECT_FALSE(group.getValue(0, kPrtAge, out));
    EXPECT_FALSE(group.getValue(0, 32, out));
}

TEST(PrtGroup, PlainChannels_AreTakenOverAsTheyAre) {
    test::CaughtLog log;
    Group group;
    group.count = 2;
    group.channelMask = 1u << kPrtSize | 1u << kPrtAge | 1u << kPrtColor;
    const float sizes[2] = {1.5f, 2.5f};
    auto& store = group.store[kPrtSize];
    ASSERT_TRUE(store.packed.SetSize(sizeof sizes));
    std::memcpy(store.packed.data, sizes, sizeof sizes);
    float out = 0;
    ASSERT_TRUE(group.getValue(1, kPrtSize, &out));
    EXPECT_EQ(out, 2.5f);
    EXPECT_EQ(store.packed.data, nullptr);
    // Shorter than its particles: what isn't there can't be read.
    auto& ages = group.store[kPrtAge];
    ASSERT_TRUE(ages.packed.SetSize(6));
    EXPECT_TRUE(group.getValue(0, kPrtAge, &out));
    EXPECT_FALSE(group.getValue(1, kPrtAge, &out));
    EXPECT_EQ(group.channelData(kPrtAge), nullptr);
    EXPECT_EQ(log.take(), "");
    float color[3];
    EXPECT_FALSE(group.getValue(0, kPrtColor, color));
    EXPECT_EQ(log.take(), "PGroup::decompressChannel failed: no compression data!\n");
    auto& colors = group.store[kPrtColor];
    colors.method = 1;
    ASSERT_TRUE(colors.packed.SetSize(6));
    EXPECT_FALSE(group.getValue(0, kPrtColor, color));
    const std::string text = log.take();
    EXPECT_NE(text.find("Error decompressing particle channel 4 with method 1\n"), text.npos);
    ASSERT_TRUE(colors.packed.SetSize(6));
    colors.method = 9;
    EXPECT_FALSE(group.getValue(0, kPrtColor, color));
    EXPECT_EQ(log.take(), "");
}

TEST(PrtGroup, FindById_InAnyOrder) {
    const std::vector<std::vector<std::int64_t>> lists = {
        {}, {5}, {1, 3, 3, 8, 1LL << 40}, {9, -4, 7, 0, 1LL << 40, 2}, {-3, 1, 2}};
    for (const auto& ids : lists) {
        Group group;
        group.count = static_cast<int>(ids.size());
        EXPECT_EQ(group.findById(5), -1) << "no channel";
        group.channelMask |= 1u << kPrtPosition;
        ASSERT_TRUE(group.setChannel(kPrtId, ids.data()));
        for (const std::int64_t id : ids) {
            const int found = group.findById(id);
            ASSERT_TRUE(found >= 0 && found < std::ssize(ids));
            EXPECT_EQ(ids[found], id);
        }
        EXPECT_EQ(group.findById(6), -1);
        EXPECT_EQ(group.findById(1LL << 41), -1);
        const bool sorted = std::is_sorted(ids.begin(), ids.end()) && (ids.empty() || ids[0] >= 0);
        EXPECT_EQ(group.idOrder.size, sorted ? 0 : group.count);
    }
}

TEST(PrtGroup, SearchesByManyThreads) {
    Group group;
    std::vector<std::int64_t> ids(5000);
    for (int i = 0; i < 5000; ++i)
        ids[i] = (i * 3163LL) % 5000;
    group.count = 5000;
    ASSERT_TRUE(group.setChannel(kPrtId, ids.data()));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int id = 0; id < 5000; id += 11)
                wrong += ids[static_cast<std::size_t>(group.findById(id))] != id;
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
}

TEST(PrtGroup, VelocityInTheGrid_IsSampledAtTheParticle) {
    NimbraFrameData frame;
    Group& group = *frame.addGroup("Liquid");
    group.count = 1;
    const float position[3] = {1.5f, 2, 2.25f};
    ASSERT_TRUE(group.setChannel(kPrtPosition, position));
    float out[3] = {9, 9, 9};
    EXPECT_FALSE(group.getValue(0, kPrtVelocity, out));
    EXPECT_EQ(out[0], 0.0f);
    group.flags = kPrtVelocityInGrid;
    EXPECT_FALSE(group.hasChannel(kPrtVelocity));
    EXPECT_FALSE(group.getValue(0, kPrtVelocity, out));
    const int size[3] = {4, 4, 4};
    std::copy_n(size, 3, frame.gridSize);
    frame.channels[kVelocityX] =
        test::denseChannel({4, 4, 4}, [](int x, int, int) { return float(x); });
    frame.channels[kVelocityY] =
        test::denseChannel({4, 4, 4}, [](int, int y, int) { return float(y); });
    frame.channels[kVelocityZ] =
        test::denseChannel({4, 4, 4}, [](int, int, int z) { return float(z); });
    frame.channelMask = 7u << kVelocityX;
    EXPECT_TRUE(group.hasChannel(kPrtVelocity));
    ASSERT_TRUE(group.getValue(0, kPrtVelocity, out));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{1.5f, 2, 2.25f}));
}

}  // namespace
}  // namespace nimbra
