// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Points grids become particle groups, and never spoil the grids beside them.
#include "cache/vdb_points.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "cache/prt_group.h"
#include "cache/vdb_file.h"
#include "support/caught_log.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;
using Group = NimbraFrameData::PGroup;
using Position = std::array<float, 3>;

/// Places that half floats hold exactly, in several leaves and voxels with many points.
std::vector<std::array<double, 3>> places(int count) {
    std::mt19937 random(3);
    std::vector<std::array<double, 3>> out;
    for (int i = 0; i < count; ++i) {
        std::array<double, 3> p;
        for (double& v : p)
            v = static_cast<double>(random() % (40 * 16)) / 16 - 8;
        out.push_back(p);
    }
    return out;
}

VdbSpec smokeAndPoints(int count, const std::string& codec, std::uint32_t compression) {
    GridSpec smoke{.name = "density", .voxels = {{{-10, -9, -8}, {1}}, {{40, 40, 40}, {1}}}};
    GridSpec points{.name = "spray", .type = "points"};
    points.points = {places(count), codec};
    GridSpec flame{.name = "flame", .voxels = {{{3, 3, 3}, {5}}}};
    return {.grids = {smoke, points, flame}, .compression = compression};
}

constexpr const char* kMap = "2,density;10,flame;";

class VdbPointsTest : public testing::Test {
protected:
    std::string bytesOf(const VdbSpec& spec) {
        writeVdb(folder / "a.vdb", spec);
        return readFile(folder / "a.vdb");
    }
    int import(const std::string& bytes, bool headerOnly = false) {
        return importVdb(MemoryFile(bytes).path(), frame, kMap, headerOnly);
    }
    Group* group() { return frame.groups.size == 1 ? frame.groups[0] : nullptr; }
    template <class T>
    T value(int particle, int channel) {
        T out{};
        EXPECT_TRUE(group()->getValue(particle, channel, &out)) << particle << " " << channel;
        return out;
    }
    TempFolder folder;
    NimbraFrameData frame;
};

TEST_F(VdbPointsTest, EveryPoint_InEveryForm) {
    struct Form {
        std::uint32_t compression;
        std::string codec;
        bool stream;
        int count;
    };
    // Pages of Blosc hold a megabyte: the last form has several.
    const Form forms[] = {{0, "null", false, 500},  {4, "null", false, 500},
                          {6, "trnc", false, 500},  {1, "fxpt16", false, 500},
                          {4, "fxpt16", true, 500}, {0, "trnc", true, 3},
                          {4, "null", false, 1},    {4, "null", false, 100000}};
    for (const Form& f : forms) {
        SCOPED_TRACE(testing::Message() << f.compression << f.codec << f.stream << f.count);
        VdbSpec spec = smokeAndPoints(f.count, f.codec, f.compression);
        spec.asStream = f.stream;
        ASSERT_EQ(import(bytesOf(spec)), kLoadOk);
        EXPECT_EQ(frame.channelMask, 0x404u);
        ASSERT_NE(group(), nullptr);
        EXPECT_STREQ(group()->getName(), "spray");
        EXPECT_EQ(group()->channelMask, 0xFu);
        ASSERT_EQ(group()->getCount(), f.count);
        // In cells of the frame, whose lowest is (-10, -9, -8).
        std::vector<Position> got, expected;
        for (const auto& p : spec.grids[1].points.at)
            expected.push_back({float(p[0] + 10), float(p[1] + 9), float(p[2] + 8)});
        const float step = f.codec == "fxpt16" ? 1.0f / 65535 : 0.0f;
        for (int i = 0; i < f.count; ++i) {
            auto p = value<Position>(i, kPrtPosition);
            // Velocities of many digits are cut to half floats.
            EXPECT_NEAR(value<Position>(i, kPrtVelocity)[0], 2 * (p[0] - 10),
                        f.codec == "null" ? 0.0f : 0.05f);
            EXPECT_NEAR(value<float>(i, kPrtSize), p[0] - 9, step);
            EXPECT_EQ(value<float>(i, kPrtAge), 2.5f);
            // The codec moves a point by half a step at most: rounding finds its place again.
            for (float& v : p) {
                const float place = std::round(v * 16) / 16;
                EXPECT_NEAR(v, place, step);
                v = place;
            }
            got.push_back(p);
        }
        std::sort(got.begin(), got.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(got, expected);
        for (std::size_t a = 0; a < 3; ++a) {
            const auto less = [a](const Position& x, const Position& y) { return x[a] < y[a]; };
            const auto [low, high] = std::minmax_element(expected.begin(), expected.end(), less);
            EXPECT_NEAR(frame.bboxMin[a], (*low)[a], step);
            EXPECT_NEAR(frame.bboxMax[a], (*high)[a], step);
        }
    }
}

TEST_F(VdbPointsTest, HeaderOnly_NamesTheGroup) {
    ASSERT_EQ(import(bytesOf(smokeAndPoints(77, "trnc", 4)), true), kLoadOk);
    ASSERT_NE(group(), nullptr);
    EXPECT_EQ(group()->count, 77);
    EXPECT_EQ(group()->channelMask, 0xFu);
    EXPECT_EQ(group()->store[kPrtPosition].data.data, nullptr);
}

TEST_F(VdbPointsTest, PointsAlone_MakeTheFrame) {
    VdbSpec spec{.grids = {{.name = "spray", .type = "points"}}};
    spec.grids[0].points.at = {{3.25, 4, 5}, {6, 4, 9.5}};
    spec.grids[0].scale = {0.5, 0.5, 0.5};
    ASSERT_EQ(import(bytesOf(spec)), kLoadOk) << lastImportProblem();
    EXPECT_EQ(frame.channelMask, 0u);
    EXPECT_EQ(std::vector<int>(frame.gridSize, frame.gridSize + 3), (std::vector<int>{4, 1, 6}));
    EXPECT_EQ(frame.transform[0], 2.0f);
    EXPECT_EQ(frame.transform[9], -3.0f);
    ASSERT_EQ(group()->getCount(), 2);
    EXPECT_EQ(value<Position>(0, kPrtPosition), (Position{0.25f, 0, 0}));
    spec.grids[0].points.at = {};
    EXPECT_EQ(import(bytesOf(spec)), kLoadOk);
    ASSERT_NE(group(), nullptr);
    EXPECT_EQ(group()->getCount(), 0);
}

TEST_F(VdbPointsTest, DamagedPoints_SpoilNoOtherGrid) {
    const std::string sound = bytesOf(smokeAndPoints(400, "null", 4));
    VdbFile file;
    const MemoryFile memory(sound);
    ASSERT_TRUE(file.open(memory.path()));
    const VdbDescriptor& grid = file.grids().at(1);
    ASSERT_TRUE(isPointsType(grid.treeType));
    std::mt19937 random(5);
    int without = 0, with = 0;
    constexpr int kFiles = 400;
    for (int i = 0; i < kFiles; ++i) {
        std::string bytes = sound;
        // Half of the changes go to the buffers, where all but the voxels' masks is.
        const std::uint64_t from = random() % 2 ? grid.bufferPosition : grid.gridPosition;
        for (unsigned n = 1 + random() % 3; n > 0; --n) {
            const std::size_t at = from + random() % (grid.endPosition - 4 - from);
            const std::uint32_t values[] = {0, 0xFFFFFFFF, 0x7FFFFFFF, 1,
                                            static_cast<std::uint32_t>(random())};
            std::memcpy(&bytes[at], &values[random() % 5], random() % 2 ? 1 : 4);
        }
        ASSERT_EQ(import(bytes), kLoadOk) << lastImportProblem();
        ASSERT_EQ(frame.channelMask, 0x404u);
        ASSERT_EQ(frame.getChannelProxy(10).read(0), 0.0f);
        ++(group() ? with : without);
        for (int k = 0; group() && k < group()->getCount(); k += 50)
            value<Position>(k, kPrtPosition);
    }
    EXPECT_GT(with, kFiles / 20);
    EXPECT_GT(without, kFiles / 20);
}

TEST_F(VdbPointsTest, StatedCounts_TakeNoMoreThanTheFileCanHold) {
    CaughtLog log;
    const std::string sound = bytesOf(smokeAndPoints(1, "null", 0));
    const MemoryFile memory(sound);
    VdbFile file;
    ASSERT_TRUE(file.open(memory.path()));
    const VdbDescriptor grid = file.grids().at(1);
    VdbGridBytes gridBytes;
    VdbPoints points;
    std::string problem;
    ASSERT_TRUE(file.readPoints(grid, gridBytes, points, problem)) << problem;
    ASSERT_EQ(points.count, 1);
    EXPECT_EQ(points.attributes.size(), 5u);
    // The head of the positions' array: 12 bytes of values and 6 of its head, in a row of numbers.
    const std::string head("\x12\0\0\0\0\0\0\0", 8);
    const std::size_t at = sound.find(head, grid.bufferPosition);
    ASSERT_NE(at, sound.npos);
    const auto with = [&](std::size_t offset, std::uint32_t value, std::uint8_t form) {
        std::string bytes = sound;
        std::memcpy(&bytes[at + offset], &value, sizeof value);
        bytes[at + 9] = static_cast<char>(form);
        return bytes;
    };
    constexpr std::size_t kBytes = 0, kPoints = 10;
    constexpr std::uint8_t kUniform = 2;
    for (const auto& bytes :
         {with(kPoints, 0xFFFFFFFF, 0), with(kPoints, 0x7FFFFFFF, kUniform), with(kPoints, 2, 0),
          with(kPoints, 2, kUniform), with(kBytes, 5, 0), with(kBytes, 0xFFFFFFFF, 0),
          with(kBytes, 0x1000, 0), with(kPoints, 1, 16), with(kPoints, 1, 8)}) {
        ASSERT_EQ(import(bytes), kLoadOk);
        EXPECT_EQ(frame.channelMask, 0x404u);
        EXPECT_EQ(group(), nullptr);
        const std::string text = log.take();
        EXPECT_TRUE(text.starts_with("Points grid 'spray' is left out: ")) << text;
    }
}

}  // namespace
}  // namespace nimbra
