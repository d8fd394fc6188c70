// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/frame_data.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cmath>
#include <cstring>
#include <thread>

#include "cache/prt_group.h"
#include "cache/sg_compressor.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "foundation/parallel.h"
#include "support/caught_log.h"
#include "support/threads.h"

namespace nimbra {
namespace {

constexpr int kNx = 5, kNy = 4, kNz = 3, kCells = kNx * kNy * kNz;

std::uint32_t colorWord(int cell) {
    return static_cast<std::uint32_t>(cell * 0x010305 + 0x7F00FF) ^ 0xAB000000u;
}

/// A record of packed colours: id, words, length, stream.
std::vector<std::int32_t> packedColor(int cells = kCells) {
    std::vector<std::uint32_t> colors;
    for (int i = 0; i < cells; ++i)
        colors.push_back(colorWord(i));
    uLongf bytes = compressBound(colors.size() * 4);
    std::vector<unsigned char> stream(bytes);
    compress(stream.data(), &bytes, reinterpret_cast<const Bytef*>(colors.data()),
             colors.size() * 4);
    std::vector<std::int32_t> record(4 + (bytes + 3) / 4);
    record[0] = kPackedColor;
    record[1] = static_cast<std::int32_t>(record.size()) - 2;
    const std::int64_t length = static_cast<std::int64_t>(bytes);
    std::memcpy(&record[2], &length, sizeof length);
    std::memcpy(&record[4], stream.data(), bytes);
    return record;
}

void setSize(NimbraFrameData& frame) {
    frame.gridSize[0] = kNx;
    frame.gridSize[1] = kNy;
    frame.gridSize[2] = kNz;
}

void store(NimbraFrameData& frame, const std::vector<std::int32_t>& records) {
    setSize(frame);
    ASSERT_TRUE(frame.allocateCompressed(static_cast<std::int32_t>(records.size())));
    std::copy(records.begin(), records.end(), frame.compressed);
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

TEST(HasChannels, DerivedOnesWithTheirSources) {
    NimbraFrameData frame;
    frame.channelMask = 1u << 18 | 1u << kPackedColor | 7u << kVelocityX;
    EXPECT_TRUE(frame.hasChannels(1u << kSpeed | 1u << kColorB));
    EXPECT_FALSE(frame.hasChannels(1u << kSpeed | 1u << kFuel));
    EXPECT_FALSE(frame.hasChannels(1u << 18)) << "the packed form is invisible";
    EXPECT_TRUE(frame.hasChannels(1u << 31 | 1u << 24)) << "the test ends at id 22";
    EXPECT_FALSE(frame.hasChannel(-1) || frame.hasChannel(32));
    frame.channelMask = 3u << kVelocityX;
    EXPECT_FALSE(frame.hasChannel(kSpeed));
}

TEST(GetChannel, IdsOutsideTheSlots) {
    NimbraFrameData frame;
    attach(frame, 0, dense(test::everywhere(6)));
    // Another thread holds the lock: null must come without it.
    std::thread holder([&] { frame.lock(); });
    holder.join();
    EXPECT_EQ(frame.getChannelData(32), nullptr);
    EXPECT_EQ(frame.getChannelData(-1), nullptr);
    frame.lockOwner = 0;
    frame.lockWord = 0;
    EXPECT_EQ(&frame.getChannelProxy(-7), &frame.channels[0]);
    EXPECT_FALSE(frame.getChannelProxy(32).loaded);
    float low, high;
    EXPECT_FALSE(frame.getChannelRange(32, low, high) || frame.getChannelRange(-1, low, high));
}

// ---- Expansion ---------------------------------------------------------------------------------

TEST(StoredChannels, BeforeVersion5AndWithoutOne_AreBoxes) {
    const std::vector<float> heat(kCells, 0.75f);
    std::vector<std::uint8_t> stream;
    ASSERT_TRUE(NMBUtils::encodeStream(heat.data(), heat.size(), 1, {}, stream));
    std::vector<std::int32_t> record(2 + (stream.size() + 3) / 4);
    record[0] = kTemperature;
    record[1] = static_cast<std::int32_t>(record.size()) - 2;
    std::memcpy(&record[2], stream.data(), stream.size());
    for (const std::int32_t version : {4, 5, 0x7FFFFFFE, 0x7FFFFFFF}) {
        NimbraFrameData frame;
        store(frame, record);
        frame.fileVersion = version;
        ASSERT_TRUE(frame.getChannelData(kTemperature));
        EXPECT_EQ(frame.getChannelData(kTemperature)[7], 0.75f);
        EXPECT_EQ(frame.compressor3D != nullptr, version == 4 || version == 0x7FFFFFFF);
    }
}

TEST(PackedColor, ManyThreadsAtOnce_SeeOneExpansion) {
    constexpr int kThreads = 16;
    for (int round = 0; round < 20; ++round) {
        NimbraFrameData frame;
        store(frame, packedColor());
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
        // A later request must not take the voxels from under those who sample them.
        const GridStorage* const storage = frame.channels[kColorG].storage;
        EXPECT_FALSE(frame.getChannelProxy(kPackedColor).loaded);
        EXPECT_EQ(frame.channels[kColorG].storage, storage);
    }
}

TEST(PackedColor, StreamsThatDoNotExpand_LeaveTheChannelAbsent) {
    test::CaughtLog log;
    auto tooShort = packedColor(), damaged = packedColor();
    tooShort[2] -= 1;
    damaged[6] ^= 0x5A5A5A5A;
    for (const auto& record : {tooShort, damaged, {kPackedColor, 1, 1}, {kPackedColor, 2, 0, 0}}) {
        NimbraFrameData frame;
        store(frame, record);
        EXPECT_FALSE(frame.getChannelProxy(kColorR).loaded);
        EXPECT_FALSE(frame.channels[kPackedColor].rangeKnown());
        const std::string text = log.take();
        EXPECT_EQ(text.find("[ERROR] Decompressing Zip (-"), 0u) << text;
        EXPECT_NE(text.find("Invalid cache file!!!\n"), std::string::npos) << text;
    }
    // zlib's own complaint comes first; more values than the grid has voxels are one too.
    NimbraFrameData frame;
    store(frame, packedColor(kCells + 1));
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
    attach(without, kVelocityX, dense(test::everywhere(1)));
    EXPECT_FALSE(without.getChannelProxy(kSpeed).loaded);
    // Velocities of another grid can't be read by this one's cells.
    attach(without, kVelocityY, test::denseChannel({2, 2, 2}, test::everywhere(1)));
    attach(without, kVelocityZ, dense(test::everywhere(1)));
    EXPECT_FALSE(without.getChannelProxy(kSpeed).loaded);
}

TEST(Lock, IsRecursiveForItsOwnerAndHoldsOthersOff) {
    NimbraFrameData frame;
    frame.lock();
    frame.lock();
    frame.unlock();
    EXPECT_EQ(frame.lockWord, 1);
    frame.unlock();
    int counter = 0;  // nothing else protects it
    test::onThreads(8, [&](int) {
        for (int i = 0; i < 2000; ++i) {
            const FrameLock outer(frame);
            { const FrameLock inner(frame); }
            if (i % 100 == 0)
                std::this_thread::yield();  // the others wait for long
            ++counter;
        }
    });
    EXPECT_EQ(counter, 16000);
    EXPECT_EQ(frame.lockWord, 0);
    EXPECT_EQ(frame.lockOwner, 0u);
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
    attach(frame, 1, dense(test::everywhere(-2)));
    ASSERT_TRUE(frame.getChannelRange(1, low, high));
    EXPECT_EQ(high, -2.0f);
    EXPECT_TRUE(frame.channels[1].rangeKnown());
}

TEST(Read, RunsAndCells) {
    NimbraFrameData frame;
    const auto field = [](int x, int y, int z) { return float(x + 10 * y + 100 * z); };
    attach(frame, 4, dense(field));
    attach(frame, 5, test::treeChannel(kDoubleTree, {kNx, kNy, kNz}, field, {{7, -7, 0}, 1, 2}));
    using Values = std::vector<float>;
    // Of so many floats, beyond which nothing may be written.
    const auto read = [&](bool run, std::array<int, 3> cell, int channel, int count, int found) {
        Values out(static_cast<std::size_t>(count) + 1, 9.0f);
        EXPECT_EQ(run ? frame.readChannelRun(cell.data(), channel, count, out.data())
                      : frame.readChannelCells(cell.data(), channel, count, out.data()),
                  found);
        EXPECT_EQ(out.back(), 9);
        out.pop_back();
        return out;
    };
    EXPECT_EQ(read(true, {3, 1, 2}, 4, 4, 1), (Values{213, 214, 220, 221}));
    EXPECT_EQ(read(true, {3, 1, 2}, 5, 2, 1), (Values{426, 428}));
    EXPECT_EQ(read(true, {3, 1, 2}, 6, 3, 0), (Values{0, 0, 0}));
    // Beyond either end of the grid there is nothing to copy.
    EXPECT_EQ(read(true, {-2, 0, 0}, 4, 4, 1), (Values{0, 0, 0, 1}));
    EXPECT_EQ(read(true, {4, 3, 2}, 4, 3, 1), (Values{234, 0, 0}));
    EXPECT_EQ(read(true, {0, 0, 1 << 30}, 4, 2, 1), (Values{0, 0}));

    EXPECT_EQ(read(false, {3, 1, 2}, 4, 3, 1), (Values{213, 426, 0}));
    EXPECT_EQ(read(false, {0, 0, 1 << 30}, 4, 1, 1), (Values{200}));
    EXPECT_EQ(read(false, {-2, 0, 0}, 4, 1, 1), (Values{0}));
    EXPECT_EQ(read(false, {3, 1, 2}, 2, 3, 0), (Values{0, 0, 0}));
}

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
