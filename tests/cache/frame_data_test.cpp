// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/frame_data.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <barrier>
#include <cmath>
#include <cstring>
#include <thread>

#include "cache/prt_group.h"
#include "cache/sg_compressor.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "cache/test_log.h"
#include "foundation/parallel.h"
#include "support/threads.h"

namespace nimbra {
namespace {

constexpr int kNx = 5, kNy = 4, kNz = 3, kCells = kNx * kNy * kNz;

std::uint32_t colorWord(int cell) {
    return static_cast<std::uint32_t>(cell * 0x010305 + 0x7F00FF) ^ 0xAB000000u;
}

/// Words of a record: id, n, payload.
std::vector<std::int32_t> record(int id, const std::vector<std::int32_t>& payload) {
    std::vector<std::int32_t> words{id, static_cast<std::int32_t>(payload.size())};
    words.insert(words.end(), payload.begin(), payload.end());
    return words;
}

/// The payload of a packed colour record with these colours.
std::vector<std::int32_t> packedColor(const std::vector<std::uint32_t>& colors) {
    uLongf bytes = compressBound(colors.size() * 4);
    std::vector<unsigned char> stream(bytes);
    compress(stream.data(), &bytes, reinterpret_cast<const Bytef*>(colors.data()),
             colors.size() * 4);
    std::vector<std::int32_t> payload(2 + (bytes + 3) / 4);
    const std::int64_t length = static_cast<std::int64_t>(bytes);
    std::memcpy(payload.data(), &length, sizeof length);
    std::memcpy(payload.data() + 2, stream.data(), bytes);
    return payload;
}

std::vector<std::uint32_t> testColors() {
    std::vector<std::uint32_t> colors(kCells);
    for (int i = 0; i < kCells; ++i)
        colors[i] = colorWord(i);
    return colors;
}

void setSize(NimbraFrameData& frame) {
    frame.gridSize[0] = kNx;
    frame.gridSize[1] = kNy;
    frame.gridSize[2] = kNz;
}

void store(NimbraFrameData& frame, std::initializer_list<std::vector<std::int32_t>> records) {
    std::vector<std::int32_t> all;
    for (const auto& r : records)
        all.insert(all.end(), r.begin(), r.end());
    setSize(frame);
    ASSERT_TRUE(frame.allocateCompressed(static_cast<std::int32_t>(all.size())));
    std::copy(all.begin(), all.end(), frame.compressed);
}

void attach(NimbraFrameData& frame, int channel, test::Proxy proxy) {
    setSize(frame);
    frame.channels[channel] = std::move(proxy);
    frame.channelMask |= channelBit(channel);
}

test::Proxy dense(const test::CellField& field) {
    return test::denseChannel({kNx, kNy, kNz}, field, 4);
}

// ---- Which channels there are ------------------------------------------------------------------

TEST(HasChannel, DerivedAndPackedChannels) {
    NimbraFrameData frame;
    frame.channelMask = 1u << 2 | 1u << 18 | 1u << 23;
    EXPECT_TRUE(frame.hasChannel(2));
    EXPECT_FALSE(frame.hasChannel(1));
    EXPECT_FALSE(frame.hasChannel(18)) << "the packed form is invisible";
    EXPECT_TRUE(frame.hasChannel(7) && frame.hasChannel(8) && frame.hasChannel(9));
    EXPECT_FALSE(frame.hasChannel(-1));
    EXPECT_FALSE(frame.hasChannel(32));
    frame.channelMask |= 3u << 4;
    EXPECT_FALSE(frame.hasChannel(3));
    frame.channelMask |= 1u << 6;
    EXPECT_TRUE(frame.hasChannel(3));
    EXPECT_TRUE(frame.hasChannels(1u << 3 | 1u << 9));
    EXPECT_FALSE(frame.hasChannels(1u << 3 | 1u << 10));
    EXPECT_FALSE(frame.hasChannels(1u << 18));
    EXPECT_TRUE(frame.hasChannels(1u << 31 | 1u << 24)) << "the test ends at id 22";
}

TEST(GetChannel, IdsOutsideTheSlots) {
    NimbraFrameData frame;
    attach(frame, 0, dense([](int, int, int) { return 6.0f; }));
    // Another thread holds the lock: null must come without it.
    std::thread holder([&] { frame.lock(); });
    holder.join();
    EXPECT_EQ(frame.getChannelData(32), nullptr);
    EXPECT_EQ(frame.getChannelData(-1), nullptr);
    frame.lockOwner = 0;
    frame.lockWord = 0;
    EXPECT_EQ(&frame.getChannelProxy(-7), &frame.channels[0]);
    EXPECT_FALSE(frame.getChannelProxy(32).loaded);
    EXPECT_FALSE(frame.getChannelProxy(1000).loaded);
    float low, high;
    EXPECT_FALSE(frame.getChannelRange(32, low, high));
    EXPECT_FALSE(frame.getChannelRange(-1, low, high));
}

// ---- Expansion ---------------------------------------------------------------------------------

/// The payload of a record with these values, as whole words.
std::vector<std::int32_t> sequence(const std::vector<float>& values, int zones) {
    std::vector<std::uint8_t> stream;
    NMBUtils::ZoneEncoding exact;
    exact.bits = 0;
    exact.step = 0.25f;
    EXPECT_TRUE(NMBUtils::encodeStream(values.data(), values.size(), zones, exact, stream));
    std::vector<std::int32_t> payload((stream.size() + 3) / 4);
    std::memcpy(payload.data(), stream.data(), stream.size());
    return payload;
}

TEST(StoredChannels, ExpandWhenTheyAreFirstAskedFor) {
    std::vector<float> smoke(kCells), heat(kCells, 0.75f);
    for (int i = 0; i < kCells; ++i)
        smoke[i] = 0.25f * static_cast<float>(i % 7);
    for (const std::int32_t version : {5, 6, 0x7FFFFFFE}) {
        NimbraFrameData frame;
        store(frame, {record(kSmoke, sequence(smoke, 3)), record(kTemperature, sequence(heat, 1))});
        frame.fileVersion = version;
        frame.channelMask = 6;
        const test::Proxy& proxy = frame.getChannelProxy(kSmoke);
        ASSERT_TRUE(proxy.loaded);
        EXPECT_EQ(proxy.storage->voxels.size, kCells + 4);
        EXPECT_EQ(std::vector<float>(proxy.denseVoxels(), proxy.denseVoxels() + kCells), smoke);
        EXPECT_FALSE(frame.channels[kTemperature].loaded) << "nobody asked";
        EXPECT_EQ(frame.getChannelData(kTemperature)[kCells - 1], 0.75f);
        EXPECT_EQ(frame.getChannelData(kFuel), nullptr);
        EXPECT_TRUE(frame.compressor1D && !frame.compressor3D);
    }
    // Before version 5, and without one, a stream is a box; a constant zone is the same in both.
    for (const std::int32_t version : {4, 0x7FFFFFFF}) {
        NimbraFrameData frame;
        store(frame, {record(kTemperature, sequence(heat, 1))});
        frame.fileVersion = version;
        ASSERT_TRUE(frame.getChannelData(kTemperature));
        EXPECT_EQ(frame.getChannelData(kTemperature)[7], 0.75f);
        EXPECT_TRUE(frame.compressor3D && !frame.compressor1D);
    }
}

TEST(PackedColor, FirstSampling_MakesThreeChannelsAndDropsThePackedOne) {
    test::CaughtLog log;
    NimbraFrameData frame;
    store(frame, {record(40, {1, 2, 3}), record(kPackedColor, packedColor(testColors()))});
    frame.channelMask = channelBit(kPackedColor);
    frame.channels[kColorR].minValue = 0.125f;  // as a file states it
    frame.channels[kColorR].maxValue = 0.5f;
    const test::Proxy& green = frame.getChannelProxy(kColorG);
    ASSERT_TRUE(green.loaded);
    EXPECT_FALSE(frame.channels[kPackedColor].loaded);
    EXPECT_EQ(green.storage->voxels.size, kCells) << "no spare floats";
    for (int i = 0; i < kCells; ++i) {
        const std::uint32_t w = colorWord(i);
        EXPECT_EQ(frame.channels[kColorR].read(i), float(w >> 16 & 255) * 0.003921569f);
        EXPECT_EQ(frame.channels[kColorG].read(i), float(w >> 8 & 255) * 0.003921569f);
        EXPECT_EQ(frame.channels[kColorB].read(i), float(w & 255) * 0.003921569f);
    }
    float low, high;
    ASSERT_TRUE(frame.getChannelRange(kColorR, low, high));
    EXPECT_EQ(low, 0.125f);
    EXPECT_EQ(high, 0.5f);
    // A later request must not take the voxels from under those who sample them.
    const GridStorage* const storage = green.storage;
    EXPECT_FALSE(frame.getChannelProxy(kPackedColor).loaded);
    EXPECT_EQ(frame.channels[kColorG].storage, storage);
    EXPECT_EQ(log.take(), "");
}

TEST(PackedColor, ManyThreadsAtOnce_SeeOneExpansion) {
    constexpr int kThreads = 16;
    for (int round = 0; round < 20; ++round) {
        NimbraFrameData frame;
        store(frame, {record(kPackedColor, packedColor(testColors()))});
        std::barrier start(kThreads);
        std::atomic<int> wrong{0};
        test::onThreads(kThreads, [&](int t) {
            start.arrive_and_wait();
            const int channel = t % 4 == 3 ? kPackedColor : kColorR + t % 4;
            const test::Proxy& proxy = frame.getChannelProxy(channel);
            if (channel == kPackedColor)
                return;
            for (int i = 0; i < kCells; ++i)
                wrong += proxy.read(i) !=
                         float(colorWord(i) >> 8 * (kColorB - channel) & 255) * 0.003921569f;
        });
        EXPECT_EQ(wrong, 0);
    }
}

TEST(PackedColor, StreamsThatDoNotExpand_LeaveTheChannelAbsent) {
    test::CaughtLog log;
    auto tooShort = packedColor(testColors());
    tooShort[0] -= 1;
    auto damaged = packedColor(testColors());
    damaged[4] ^= 0x5A5A5A5A;
    for (const auto& payload : {tooShort, damaged, {1}, {0, 0}}) {
        NimbraFrameData frame;
        store(frame, {record(kPackedColor, payload)});
        EXPECT_FALSE(frame.getChannelProxy(kColorR).loaded);
        EXPECT_FALSE(frame.channels[kPackedColor].rangeKnown());
        const std::string text = log.take();
        EXPECT_EQ(text.find("[ERROR] Decompressing Zip (-"), 0u) << text;
        EXPECT_NE(text.find("Invalid cache file!!!\n"), std::string::npos) << text;
    }
    // zlib's own complaint comes first; more values than the grid has voxels are one too.
    NimbraFrameData frame;
    store(frame, {record(kPackedColor, packedColor(std::vector<std::uint32_t>(kCells + 1)))});
    frame.getChannelProxy(kPackedColor);
    EXPECT_EQ(log.take(), "[ERROR] Decompressing Zip (-5)\nInvalid cache file!!!\n");
}

TEST(Speed, IsTheLengthOfTheVelocity) {
    const test::Threads lent(3);
    NimbraFrameData frame;
    for (int c = kVelocityX; c <= kVelocityZ; ++c) {
        const auto field = [c](int x, int y, int z) { return test::noiseAt(x, y, z, c); };
        // One of the three is a tree.
        attach(
            frame, c,
            c == kVelocityY ? test::treeChannel(kFloatTree, {kNx, kNy, kNz}, field) : dense(field));
    }
    const test::Proxy& speed = frame.getChannelProxy(kSpeed);
    ASSERT_TRUE(speed.loaded);
    EXPECT_EQ(speed.storage->voxels.size, kCells);
    for (int i = 0; i < kCells; ++i) {
        const float x = frame.channels[4].read(i), y = frame.channels[5].read(i),
                    z = frame.channels[6].read(i);
        EXPECT_EQ(speed.read(i), std::sqrt(x * x + y * y + z * z));
    }
    NimbraFrameData without;
    attach(without, kVelocityX, dense([](int, int, int) { return 1.0f; }));
    EXPECT_FALSE(without.getChannelProxy(kSpeed).loaded);
    // Velocities of another grid can't be read by this one's cells.
    attach(without, kVelocityY, test::denseChannel({2, 2, 2}, [](int, int, int) { return 1.f; }));
    attach(without, kVelocityZ, dense([](int, int, int) { return 1.0f; }));
    EXPECT_FALSE(without.getChannelProxy(kSpeed).loaded);
}

TEST(Lock, IsRecursiveForItsOwnerAndHoldsOthersOff) {
    NimbraFrameData frame;
    frame.lock();
    frame.lock();
    frame.unlock();
    EXPECT_EQ(frame.lockWord, 1);
    std::atomic<int> order{0};
    std::thread other([&] {
        frame.lock();
        EXPECT_EQ(order.exchange(2), 1);
        frame.unlock();
    });
    std::this_thread::yield();
    EXPECT_EQ(order.exchange(1), 0);
    frame.unlock();
    other.join();
    EXPECT_EQ(frame.lockWord, 0);
    EXPECT_EQ(frame.lockOwner, 0u);
    // Unprotected counting, but for the lock.
    int counter = 0;
    test::onThreads(8, [&](int) {
        for (int i = 0; i < 2000; ++i) {
            const FrameLock outer(frame);
            const FrameLock inner(frame);
            ++counter;
        }
    });
    EXPECT_EQ(counter, 16000);
}

// ---- Ranges and reads --------------------------------------------------------------------------

TEST(Range, IsScannedOnceAndThenRemembered) {
    NimbraFrameData frame;
    attach(frame, 2, dense([](int x, int y, int z) { return float(x - y * z); }));
    frame.channels[2].storage->voxels[kCells] = 100;  // a spare float
    float low, high, span[2];
    ASSERT_TRUE(frame.getChannelRange(2, low, high));
    EXPECT_EQ(low, -6.0f);
    EXPECT_EQ(high, 4.0f);
    frame.channels[2].write(0, 99.0f);
    ASSERT_TRUE(frame.getChannelMinAndSpan(2, span));
    EXPECT_EQ(span[0], -6.0f);
    EXPECT_EQ(span[1], 10.0f);
    EXPECT_FALSE(frame.getChannelMinAndSpan(1, span));
    EXPECT_EQ(span[0], 0.0f);
    EXPECT_EQ(span[1], 1.0f);
    // All values below -1.18e-38 were an unknown range, but for the scan.
    attach(frame, 1, dense([](int, int, int) { return -2.0f; }));
    ASSERT_TRUE(frame.getChannelRange(1, low, high));
    EXPECT_EQ(high, -2.0f);
    EXPECT_TRUE(frame.channels[1].rangeKnown());
}

TEST(Read, RunsAndCells) {
    NimbraFrameData frame;
    const auto field = [](int x, int y, int z) { return float(x + 10 * y + 100 * z); };
    attach(frame, 4, dense(field));
    attach(frame, 5, test::treeChannel(kDoubleTree, {kNx, kNy, kNz}, field, {{7, -7, 0}, 1, 2}));
    float out[8];
    const int cell[3] = {3, 1, 2};
    EXPECT_EQ(frame.readChannelRun(cell, 4, 4, out), 1);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{213, 214, 220, 221}));
    EXPECT_EQ(frame.readChannelRun(cell, 5, 2, out), 1);
    EXPECT_EQ(std::vector<float>(out, out + 2), (std::vector<float>{426, 428}));
    std::fill_n(out, 8, 9.0f);
    EXPECT_EQ(frame.readChannelRun(cell, 6, 3, out), 0);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{0, 0, 0, 9}));
    // Beyond either end of the grid there is nothing to copy.
    const int before[3] = {-2, 0, 0}, end[3] = {4, 3, 2}, far[3] = {0, 0, 1 << 30};
    EXPECT_EQ(frame.readChannelRun(before, 4, 4, out), 1);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{0, 0, 0, 1}));
    EXPECT_EQ(frame.readChannelRun(end, 4, 3, out), 1);
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{234, 0, 0}));
    EXPECT_EQ(frame.readChannelRun(far, 4, 2, out), 1);
    EXPECT_EQ(out[0], 0.0f);

    EXPECT_EQ(frame.readChannelCells(cell, 4, 3, out), 1);
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{213, 426, 0}));
    EXPECT_EQ(frame.readChannelCells(far, 4, 1, out), 1);
    EXPECT_EQ(out[0], 200.0f);
    EXPECT_EQ(frame.readChannelCells(before, 4, 1, out), 1);
    EXPECT_EQ(out[0], 0.0f);
    out[1] = 9;
    EXPECT_EQ(frame.readChannelCells(cell, 2, 3, out), 0);
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{0, 0, 0}));
}

// ---- Header ------------------------------------------------------------------------------------

TEST(Groups, OnlyThoseWithPositions_AreCounted) {
    NimbraFrameData frame;
    frame.addGroup("Foam")->channelMask = 2;
    frame.addGroup("Liquid")->channelMask = 1;
    frame.addGroup("Liquid")->channelMask = 9;
    EXPECT_EQ(frame.getPrtGroupCount(), 2);
    EXPECT_EQ(frame.getPrtGroup(0), frame.groups[1]);
    EXPECT_EQ(frame.getPrtGroup(1), frame.groups[2]);
    EXPECT_EQ(frame.getPrtGroup(2), nullptr);
    EXPECT_EQ(frame.getPrtGroup(-1), nullptr);
    EXPECT_EQ(frame.getPrtGroupByName("Foam"), frame.groups[0]);
    EXPECT_EQ(frame.getPrtGroupByName("Liquid"), frame.groups[1]);
    EXPECT_EQ(frame.getPrtGroupByName("liquid"), nullptr);
    EXPECT_EQ(frame.getPrtGroupByName(nullptr), nullptr);
    frame.freeData();
    EXPECT_EQ(frame.groups.size, 0);
}

}  // namespace
}  // namespace nimbra
