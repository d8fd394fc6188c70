// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/prt_group.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "cache/sg_compressor.h"
#include "cache/test_grids.h"
#include "support/caught_log.h"
#include "support/threads.h"

namespace nimbra {
namespace {

using Group = NimbraFrameData::PGroup;
using Bytes = std::vector<std::uint8_t>;

Bytes zipped(const Bytes& plain) {
    uLongf size = compressBound(plain.size());
    Bytes out(size);
    EXPECT_EQ(compress2(out.data(), &size, plain.data(), plain.size(), 6), Z_OK);
    out.resize(size);
    return out;
}

Bytes streamOf(const std::vector<std::uint32_t>& words, int zones) {
    constexpr int kRaw = 20;
    std::vector<float> values(words.size());
    if (!words.empty())
        std::memcpy(values.data(), words.data(), words.size() * 4);
    Bytes out;
    EXPECT_TRUE(NMBUtils::encodeStream(values.data(), values.size(), zones, {.bits = kRaw}, out));
    return out;
}

void store(Group& group, int channel, int method, const Bytes& bytes) {
    ASSERT_TRUE(group.allocatePacked(channel, method, std::ssize(bytes)));
    if (!bytes.empty())
        std::memcpy(group.store[channel].packed.data, bytes.data(), bytes.size());
}

TEST(PrtGroup, Channels_HaveTheirTypes) {
    const int types[19] = {10, 10, 10, 10, 10, 10, 0, 0, 0, 10, 7, 10, 6, 6, 6, 6, 6, 10, 0};
    for (int c = 0; c < 19; ++c)
        EXPECT_EQ(Group().getChannelType(c), types[c]) << c;
    EXPECT_EQ(Group().getChannelComponents(kPrtId), 1);
    EXPECT_EQ(Group().getChannelComponents(kPrtPosition), 3);
}

TEST(PrtGroup, DamagedChannels_AreAbsent) {
    struct Case {
        const char* what;
        int method, count;
        Bytes bytes;
        const char* log;
    };
    constexpr const char* kError = "Error decompressing particle channel 0 with method %d\n";
    const std::vector<std::uint32_t> words(30, 0x3F800000);
    const Bytes zip = zipped(Bytes(120, 0x3F)), stream = streamOf(words, 1);
    const Bytes cutZip(zip.begin(), zip.end() - 5);
    Bytes wrongMagic = stream;
    wrongMagic[0] = 0x77;
    constexpr int kHuge = 2000000000;
    const Case cases[] = {
        {"nothing stored",
         kPrtZip,
         10,
         {},
         "PGroup::decompressChannel failed: no compression data!\n"},
        {"unknown method", 9, 10, {1, 2, 3}, ""},
        {"cut zip", kPrtZip, 10, cutZip, kError},
        {"short zip", kPrtZip, 11, zip, kError},
        {"long zip", kPrtZip, 9, zip, kError},
        {"short planes", kPrtBitPlanes, 33, zip, kError},
        {"no stream", kPrtSequence, 10, {1}, kError},
        {"stream of another magic", kPrtPlanar, 10, wrongMagic, kError},
        {"stream above the count", kPrtSequence, 9, stream, kError},
        {"particles beyond the zip", kPrtZip, kHuge, zip, kError},
        {"particles beyond the sequence", kPrtSequence, kHuge, stream, kError},
    };
    test::CaughtLog log;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Group group;
        group.count = c.count;
        store(group, kPrtPosition, c.method, c.bytes);
        float out[3];
        EXPECT_FALSE(group.getValue(0, kPrtPosition, out));
        const std::string text = log.take();
        char expected[128];
        std::snprintf(expected, sizeof expected, c.log, c.method);
        EXPECT_TRUE(text.ends_with(expected)) << text;
        EXPECT_EQ(text.empty(), *c.log == 0);
        EXPECT_TRUE(!group.store[0].data.data && !group.store[0].packed.data);
        EXPECT_EQ(group.channelData(kPrtPosition), nullptr);
        log.take();
    }
}

TEST(PrtGroup, ShortChannels_AreReadAsFarAsTheyGo) {
    test::CaughtLog log;
    Group group;
    group.count = 2;
    store(group, kPrtAge, kPrtPlain, {0, 0, 0x80, 0x3F, 1, 1});
    float out = 0;
    EXPECT_TRUE(group.getValue(0, kPrtAge, &out));
    EXPECT_EQ(out, 1.0f);
    EXPECT_FALSE(group.getValue(1, kPrtAge, &out));
    EXPECT_EQ(group.channelData(kPrtAge), nullptr);
    store(group, kPrtSize, kPrtSequence, streamOf({0x40000000}, 1));
    EXPECT_TRUE(group.getValue(0, kPrtSize, &out));
    EXPECT_EQ(out, 2.0f);
    EXPECT_TRUE(group.getValue(1, kPrtSize, &out));
    EXPECT_EQ(out, 0.0f);
    EXPECT_EQ(log.take(), "");
    // A channel of no components.
    store(group, 6, kPrtSequence, streamOf({}, 1));
    EXPECT_TRUE(group.getValue(0, 6, &out));
    log.take();
    EXPECT_FALSE(group.allocatePacked(32, kPrtPlain, 4));
    EXPECT_FALSE(group.allocatePacked(-1, kPrtPlain, 4));
    EXPECT_FALSE(group.allocatePacked(kPrtSize, kPrtPlain, -4));
}

TEST(PrtGroup, SearchesByManyThreads) {
    Group group;
    std::vector<std::int64_t> ids(5000);
    for (int i = 0; i < 5000; ++i)
        ids[i] = (i * 3163LL) % 5000;
    group.count = 5000;
    ASSERT_TRUE(group.setChannel(kPrtId, ids.data()));
    std::atomic<int> wrong{0};
    test::onThreads(8, [&](int) {
        for (int id = 0; id < 5000; id += 11)
            wrong += ids[static_cast<std::size_t>(group.findById(id))] != id;
    });
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
    std::fill_n(frame.gridSize, 3, 4);
    for (int axis = 0; axis < 3; ++axis)
        frame.channels[kVelocityX + axis] =
            test::denseChannel({4, 4, 4}, [axis](int x, int y, int z) {
                return float(axis == 0 ? x : axis == 1 ? y : z);
            });
    frame.channelMask = 7u << kVelocityX;
    EXPECT_TRUE(group.hasChannel(kPrtVelocity));
    ASSERT_TRUE(group.getValue(0, kPrtVelocity, out));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{1.5f, 2, 2.25f}));
}

}  // namespace
}  // namespace nimbra
