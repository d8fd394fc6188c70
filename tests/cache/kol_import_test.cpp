// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// .kol files that the writer makes, and files that somebody else uses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <thread>
#include <vector>

#include "cache/external_readers.h"
#include "cache/kol_stream.h"
#include "cache/nimbra_frame.h"
#include "cache/test_log.h"
#include "kol_writer/kol_writer.h"

namespace nimbra {
namespace {

using namespace test;

constexpr std::int32_t kSize[3] = {12, 9, 7};
constexpr float kTransform[12] = {2, 0, 0, 0, 2, 0, 0, 0, 2, 6, 4.5f, 0};

std::vector<float> waves(float low, float high) {
    std::vector<float> v(12 * 9 * 7);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = low + (high - low) * (0.5f + 0.5f * std::sin(static_cast<float>(i) * 0.1f));
    return v;
}

class ImportKolFile : public testing::Test {
protected:
    ImportKolFile() { kolPatience = {3, 1}; }
    ~ImportKolFile() override { kolPatience = {}; }

    std::string write(const KolWriter& writer) {
        std::string problem;
        const std::string path = folder / "frame_0005.kol";
        EXPECT_TRUE(writer.writeFile(path, problem)) << problem;
        return path;
    }
    std::string writeSmoke() {
        KolWriter writer;
        writer.setGrid(kSize, kTransform);
        EXPECT_TRUE(writer.addChannel(kSmoke, waves(0, 2), {}));
        return write(writer);
    }

    TempFolder folder;
};

TEST_F(ImportKolFile, WrittenGrid_ComesBackWithinHalfAStep) {
    KolWriter writer;
    writer.frameNumber = 17;
    writer.description = "smoke";
    writer.simInfo.setSimTime(1.25);
    writer.simInfo.setSimStep(30);
    writer.setGrid(kSize, kTransform);
    const auto smoke = waves(0, 2), heat = waves(290, 1700), fuel = waves(-1, 1);
    EXPECT_TRUE(writer.addChannel(kSmoke, smoke, {.encoding = {.bits = 8}, .storeRange = true}));
    EXPECT_TRUE(
        writer.addChannel(kTemperature, heat, {.encoding = {.bits = 0, .step = 0.5f}, .zones = 3}));
    EXPECT_TRUE(writer.addChannel(kFuel, fuel, {.encoding = {.bits = 20}}));
    EXPECT_FALSE(writer.addChannel(kFuel, fuel, {})) << "there already";
    EXPECT_FALSE(writer.addChannel(kVelocityX, std::span(fuel).first(5), {})) << "too short";
    EXPECT_FALSE(writer.addChannel(kChannelSlots, fuel, {}));
    const std::vector<std::uint32_t> colors(fuel.size(), 0x00FF8000);
    EXPECT_TRUE(writer.addPackedColor(colors));

    NimbraFrameData frame;
    ASSERT_EQ(frame.load(write(writer), "", 99, -1, true, false), kLoadOk);
    EXPECT_EQ(frame.frameNumber, 17);
    EXPECT_EQ(frame.description, "smoke");
    EXPECT_EQ(frame.simInfo.simTime(), 1.25) << "the file knows its time";
    EXPECT_EQ(frame.simInfo.simStep(), 30);
    EXPECT_EQ(frame.transform[9], 6);
    const auto near = [&](int channel, const std::vector<float>& expected, float error) {
        const float* const got = frame.getChannelData(channel);
        ASSERT_TRUE(got) << channel;
        for (std::size_t i = 0; i < expected.size(); ++i)
            ASSERT_NEAR(got[i], expected[i], error) << channel << " " << i;
    };
    // One channel is used: the others stay as they are stored.
    near(kSmoke, smoke, 2 / 256.0f * 0.501f);
    for (int c = 0; c < kChannelSlots; ++c)
        EXPECT_EQ(frame.channels[c].loaded != 0, c == kSmoke) << c;
    near(kTemperature, heat, 0.2502f);
    near(kFuel, fuel, 0);
    near(kColorR, std::vector<float>(fuel.size(), 1.0f), 1e-6f);
    near(kColorG, std::vector<float>(fuel.size(), 128 / 255.0f), 1e-6f);
}

TEST_F(ImportKolFile, WrittenGroups_ComeBackInEveryForm) {
    constexpr int kCount = 70;
    std::vector<float> positions, sizes;
    std::vector<std::int64_t> ids;
    for (int i = 0; i < kCount; ++i) {
        const auto f = static_cast<float>(i);
        positions.insert(positions.end(), {f, f * 0.5f, 3 - f});
        sizes.push_back(f * f);
        ids.push_back((i * 37) % kCount + (std::int64_t(1) << 40));
    }
    KolWriter writer;
    const PrtMethod methods[] = {kPrtPlain, kPrtZip, kPrtSequence, kPrtPlanar, kPrtBitPlanes};
    for (const PrtMethod m : methods)
        EXPECT_TRUE(writer.addGroup(
            {.name = std::to_string(m),
             .count = kCount,
             .flags = m,
             .channels = {{kPrtPosition, m, std::as_bytes(std::span(positions)), {.bits = 20}},
                          {kPrtSize, m, std::as_bytes(std::span(sizes)), {.bits = 20}},
                          {kPrtId, kPrtZip, std::as_bytes(std::span(ids)), {}}}}));
    EXPECT_FALSE(
        writer.addGroup({.name = "short", .count = 3, .channels = {{kPrtSize, kPrtZip, {}, {}}}}));
    const std::string path = write(writer);

    NimbraFrameData frame, header;
    ASSERT_EQ(frame.load(path, "", 0, -1, true, false), kLoadOk);
    ASSERT_EQ(header.load(path, "", 0, -1, true, true), kLoadOk);
    ASSERT_EQ(frame.getPrtGroupCount(), std::ssize(methods));
    ASSERT_EQ(header.getPrtGroupCount(), std::ssize(methods));
    EXPECT_EQ(frame.bboxMax[1], (kCount - 1) * 0.5f);
    EXPECT_EQ(header.compressedInts, 1);
    for (int g = 0; g < frame.groups.size; ++g) {
        INimbraPrtGroup& group = *frame.groups[g];
        SCOPED_TRACE(group.getName());
        ASSERT_EQ(group.getCount(), kCount);
        float p[3], size;
        std::int64_t id;
        for (const int i : {0, 1, 31, 32, kCount - 1}) {
            ASSERT_TRUE(group.getValue(i, kPrtPosition, p) && group.getValue(i, kPrtSize, &size) &&
                        group.getValue(i, kPrtId, &id));
            EXPECT_EQ(p[2], positions[static_cast<std::size_t>(i) * 3 + 2]);
            EXPECT_EQ(size, sizes[static_cast<std::size_t>(i)]);
            EXPECT_EQ(group.findById(id), i);
        }
        EXPECT_EQ(header.groups[g]->channelMask, frame.groups[g]->channelMask);
        EXPECT_FALSE(header.groups[g]->getValue(0, kPrtPosition, p)) << "without particles";
    }
}

TEST_F(ImportKolFile, WhatIsNoFile_IsNotWaitedFor) {
    kolPatience = {30, 60000};  // a wait would end the test
    const std::string pipe = folder / "pipe.kol";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_directory(folder / "folder.kol");
    for (const std::string& path :
         {std::string(), pipe, std::string(folder / "folder.kol"), std::string(folder / "no.kol")})
        for (const bool noRetry : {false, true}) {
            NimbraFrameData frame;
            EXPECT_EQ(frame.ImportKol(path, noRetry, false), kLoadNotFound) << path;
            EXPECT_EQ(lastImportProblem().empty(), path.empty());
        }
}

TEST_F(ImportKolFile, FileThatSomebodyWrites_IsRefusedForGood) {
    const std::string path = writeSmoke();
    const int writer = open(path.c_str(), O_RDWR);
    ASSERT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0);
    NimbraFrameData frame;
    EXPECT_EQ(frame.ImportKol(path, false, false), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("is being written"), std::string::npos);
    close(writer);
    // The path stays marked as being read.
    EXPECT_EQ(frame.ImportKol(path, false, false), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("is being read"), std::string::npos);
    // Another name for the same file is another path.
    EXPECT_EQ(frame.ImportKol(folder / "./frame_0005.kol", false, false), kLoadOk);
}

TEST_F(ImportKolFile, LockedOnlyWhileItIsRead_AlsoByThreadsInTurn) {
    const std::string path = writeSmoke();
    kolPatience = {1000, 1};
    std::vector<std::thread> threads;
    std::atomic<int> loaded{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                NimbraFrameData frame;
                loaded += frame.ImportKol(path, false, i % 2 != 0) == kLoadOk;
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(loaded, 80);
    const int writer = open(path.c_str(), O_RDWR);
    EXPECT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0) << "left locked";
    close(writer);
}

TEST_F(ImportKolFile, FramesOfCaches_AreFoundByTheirNumbers) {
    writeSmoke();
    NimbraFrame holder;
    const int size[3] = {1, 1, 1};
    const std::string pattern = folder / "frame_####.kol";
    ASSERT_EQ(holder.load(5000, pattern, 0, 1000, size, 1, false, true, 0, ""), kFrameLoaded);
    EXPECT_TRUE(holder.data->getChannelProxy(kSmoke).loaded);
    // A file without its footer is known as damaged.
    std::filesystem::resize_file(folder / "frame_0005.kol", 200);
    NimbraFrame second;
    EXPECT_EQ(second.load(5000, pattern, 0, 1000, size, 1, false, true, 0, ""), kFrameDamaged);
    EXPECT_EQ(second.failStatus, kLoadNoFooter);
}

}  // namespace
}  // namespace nimbra
