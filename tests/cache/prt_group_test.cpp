// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/prt_group.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <cstring>
#include <random>
#include <vector>

#include "cache/sg_compressor.h"
#include "cache/test_grids.h"
#include "cache/test_log.h"
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

/// Particle-major words as a file stores them.
Bytes packedBy(PrtMethod method, const std::vector<std::uint32_t>& words, std::size_t components) {
    const std::size_t count = words.size() / components;
    Bytes plain(words.size() * 4);
    if (!words.empty())
        std::memcpy(plain.data(), words.data(), plain.size());
    switch (method) {
        case kPrtPlain:
            return plain;
        case kPrtZip:
            return zipped(plain);
        case kPrtSequence:
            return streamOf(words, 1);
        case kPrtPlanar: {
            std::vector<std::uint32_t> planar;
            for (std::size_t c = 0; c < components; ++c)
                for (std::size_t i = 0; i < count; ++i)
                    planar.push_back(words[i * components + c]);
            return streamOf(planar, count > 40 ? 3 : 1);
        }
        default: {
            const std::size_t planeWords = (count + 31) / 32;
            Bytes planes(components * 32 * planeWords * 4);
            for (std::size_t i = 0; i < count; ++i)
                for (std::size_t c = 0; c < components; ++c)
                    for (std::size_t b = 0; b < 32; ++b) {
                        const std::size_t word = (c * 32 + b) * planeWords + i / 32;
                        const unsigned bit = words[i * components + c] >> b & 1;
                        planes[word * 4 + i % 32 / 8] |= static_cast<std::uint8_t>(bit << i % 8);
                    }
            return zipped(planes);
        }
    }
}

void store(Group& group, int channel, int method, const Bytes& bytes) {
    ASSERT_TRUE(group.allocatePacked(channel, method, std::ssize(bytes)));
    if (!bytes.empty())
        std::memcpy(group.store[channel].packed.data, bytes.data(), bytes.size());
}

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

TEST(PrtGroup, EveryMethod_GivesTheStoredValues) {
    std::mt19937 random(7);
    for (const int count : {1, 31, 32, 33, 100, 1000})
        for (const int channel : {0, 2, 10, 17, 20})
            for (int method = kPrtPlain; method <= kPrtBitPlanes; ++method) {
                SCOPED_TRACE(testing::Message() << count << " " << channel << " " << method);
                const auto components = static_cast<std::size_t>(prtChannelWords(channel));
                std::vector<std::uint32_t> words(static_cast<std::size_t>(count) * components);
                // Of the size of 1, both signs: the encoder takes tiny differences for none.
                for (std::uint32_t& w : words)
                    w = (static_cast<std::uint32_t>(random()) & 0x80FFFFFF) | 0x3F000000;
                Group group;
                group.count = count;
                store(group, channel, method, packedBy(PrtMethod(method), words, components));
                const unsigned char* const data = group.channelData(channel);
                ASSERT_NE(data, nullptr);
                EXPECT_EQ(std::memcmp(data, words.data(), words.size() * 4), 0);
                EXPECT_EQ(group.store[channel].packed.data, nullptr);
                std::uint32_t last[3] = {};
                ASSERT_TRUE(group.getValue(count - 1, channel, last));
                EXPECT_EQ(last[components - 1], words.back());
            }
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
    Bytes cutZip = packedBy(kPrtZip, words, 3);
    cutZip.resize(cutZip.size() - 5);
    Bytes wrongMagic = packedBy(kPrtPlanar, words, 3);
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
        {"short zip", kPrtZip, 11, packedBy(kPrtZip, words, 3), kError},
        {"long zip", kPrtZip, 9, packedBy(kPrtZip, words, 3), kError},
        {"short planes", kPrtBitPlanes, 33, packedBy(kPrtBitPlanes, words, 3), kError},
        {"no stream", kPrtSequence, 10, {1}, kError},
        {"stream of another magic", kPrtPlanar, 10, wrongMagic, kError},
        {"stream above the count", kPrtSequence, 9, packedBy(kPrtSequence, words, 3), kError},
        {"particles beyond the zip", kPrtZip, kHuge, packedBy(kPrtZip, words, 3), kError},
        {"particles beyond the sequence", kPrtSequence, kHuge, packedBy(kPrtSequence, words, 3),
         kError},
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
        EXPECT_EQ(group.store[0].data.data, nullptr);
        EXPECT_EQ(group.store[0].packed.data, nullptr);
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
