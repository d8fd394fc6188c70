// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Damaged OpenVDB files: whatever the bytes, an answer, and no more memory than the file can
// justify.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "cache/vdb_info.h"
#include "cache/vdb_walk.h"
#include "support/mutated.h"
#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

/// A file with grids of several types, in each way of storing them.
VdbSpec manyGrids(std::uint32_t compression) {
    VdbSpec spec{.compression = compression, .numbers = {{"NimbraFrameTag", 3}}};
    for (const char* type : {"float", "vec3s", "int64", "double"}) {
        GridSpec g{.name = std::string("g_") + type, .type = type};
        g.voxels = ballOfVoxels({6, 7, 8}, 5);
        g.tiles = {{{128, 0, 0}, 1, 4}};
        g.half = g.type == "vec3s";
        g.map = g.type == "double" ? MapSpec::Frustum : MapSpec::Scale;
        spec.grids.push_back(g);
    }
    GridSpec mask{.name = "mask", .type = "bool", .voxels = ballOfVoxels({0, 0, 0}, 2)};
    spec.grids.push_back(mask);
    return spec;
}

class VdbDamage : public testing::Test {
protected:
    static constexpr const char* kMap =
        "2,g_float;4,g_vec3s(x);5,g_vec3s(y);6,g_vec3s(z);1,g_int64;10,g_double;";

    std::string bytesOf(const VdbSpec& spec) {
        writeVdb(folder / "sound.vdb", spec);
        return readFile(folder / "sound.vdb");
    }
    /// Imports and lists; true when all grids came through.
    bool survive(const std::string& bytes) {
        const std::string path = folder.write("damaged.vdb", bytes);
        NimbraFrameData frame;
        const int status = importVdb(path, frame, kMap, false);
        EXPECT_TRUE(status == kLoadOk || status == kLoadNotFound) << status;
        EXPECT_EQ(status == kLoadOk, lastImportProblem().empty());
        if (status == kLoadOk)
            readAll(frame);
        else
            EXPECT_EQ(frame.channelMask, 0u);
        NimbraFrameData header;
        importVdb(path, header, kMap, true);
        const VdbFileInfo info = readVdbInfo(path);
        for (const VdbGridInfo& g : info.grids)
            EXPECT_EQ(g.readable, g.problem.empty());
        return status == kLoadOk;
    }
    void readAll(NimbraFrameData& frame) {
        for (const int c : {1, 2, 4, 10}) {
            float low = 0, high = 0;
            frame.getChannelRange(c, low, high);
            const auto& proxy = frame.getChannelProxy(c);
            if (proxy.loaded && proxy.storage->cells > 0)
                proxy.read(proxy.storage->cells - 1);
        }
    }

    TempFolder folder;
};

TEST_F(VdbDamage, Truncated_FailsAtEveryLength) {
    const std::string sound = bytesOf(manyGrids(6));
    ASSERT_TRUE(survive(sound));
    const std::string path = folder.write("cut.vdb", sound);
    const std::size_t everyLength = 4096;
    for (std::size_t n = sound.size() - 1; n > 0; n -= n > everyLength ? 61 : 1) {
        std::filesystem::resize_file(path, n);
        NimbraFrameData frame;
        ASSERT_EQ(importVdb(path, frame, kMap, false), kLoadNotFound) << n;
        ASSERT_FALSE(readVdbInfo(path, false).readable) << n;
    }
}

TEST_F(VdbDamage, RandomMutations_AnswerAlways) {
    int loaded = 0, refused = 0;
    for (const std::uint32_t compression : {2u, 3u, 6u}) {
        const std::string sound = bytesOf(manyGrids(compression));
        std::mt19937_64 random(7u + compression);
        for (int round = 0; round < 100; ++round)
            ++(survive(mutated(sound, random)) ? loaded : refused);
    }
    // Most of the bytes are masks, whose damage shows, and values, where any bits will do.
    EXPECT_GT(loaded, 20);
    EXPECT_GT(refused, 20);
}

/// The smallest tree: each of its bytes is tried on its own.
TEST_F(VdbDamage, EveryByteOfTheStructure) {
    VdbSpec spec{.grids = {{.name = "g_float"}}, .compression = 2};
    spec.grids[0].voxels = {{{0, 0, 0}, {1, 0, 0}}, {{0, 0, 9}, {1, 0, 0}}};
    spec.grids[0].tiles = {{{8192, 0, 0}, 3, 1}};
    const std::string sound = bytesOf(spec);
    ASSERT_TRUE(survive(sound));
    const std::string path = folder.write("d.vdb", sound);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    const auto put = [&](std::size_t at, int value) {
        file.seekp(static_cast<std::streamoff>(at));
        file.put(static_cast<char>(value)).flush();
    };
    // The masks of the upper nodes are long and all alike.
    constexpr std::size_t kHead = 1500, kStep = 7;
    for (std::size_t at = 0; at < sound.size(); at += at < kHead ? 1 : kStep) {
        for (const int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            put(at, value);
            NimbraFrameData frame;
            importVdb(path, frame, "2,g_float;", false);
            ASSERT_FALSE(HasFailure()) << "byte " << at << " = " << value;
        }
        put(at, sound[at]);
    }
    NimbraFrameData frame;
    EXPECT_EQ(importVdb(path, frame, "2,g_float;", false), kLoadOk);
}

/// Where a value stands that a test changes: found by walking.
struct Marks {
    std::size_t grid = 0;        // the grid's first byte
    std::size_t rootCounts = 0;  // tiles, then children
    std::size_t firstChild = 0;  // its origin
};

Marks marksOf(const std::string& bytes) {
    const auto* const data = reinterpret_cast<const std::byte*>(bytes.data());
    BoundedReader in({data, bytes.size()});
    VdbHead head;
    VdbDescriptor descriptor;
    std::string problem;
    EXPECT_TRUE(walkHead(in, head, problem) && walkDescriptor(in, descriptor, problem)) << problem;
    Marks marks;
    marks.grid = descriptor.gridPosition;
    in.seek(descriptor.gridPosition);
    VdbGridHead grid;
    EXPECT_TRUE(walkGridHead(in, grid, problem)) << problem;
    marks.rootCounts = in.position() + 4 + 4;  // buffer count, background of floats
    marks.firstChild = marks.rootCounts + 8;
    return marks;
}

template <class T>
std::string with(std::string bytes, std::size_t at, T value) {
    std::memcpy(&bytes[at], &value, sizeof value);
    return bytes;
}

TEST_F(VdbDamage, Counts_AreBorneOutByBytes) {
    VdbSpec spec{.grids = {{.name = "g_float"}}};
    spec.grids[0].voxels = {{{0, 0, 0}, {1, 0, 0}}, {{5000, 0, 0}, {2, 0, 0}}};
    const std::string sound = bytesOf(spec);
    const Marks m = marksOf(sound);
    for (const std::uint32_t count : {1u, 3u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_FALSE(survive(with(sound, m.rootCounts, count))) << count;
        EXPECT_FALSE(survive(with(sound, m.rootCounts + 4, count))) << count;
    }
    // Not where a child can start; the place of the other one.
    EXPECT_FALSE(survive(with(sound, m.firstChild, std::int32_t(8))));
    EXPECT_FALSE(survive(with(sound, m.firstChild, std::int32_t(4096))));
    // A child and a value in one place: the first mask bit again in the second mask.
    const std::size_t children = m.firstChild + 12, values = children + 4096;
    EXPECT_FALSE(survive(with(sound, values, std::uint64_t(1))));
    // A child more than there is.
    EXPECT_FALSE(survive(with(sound, children, std::uint64_t(3))));
    // Buffer count, then compression, then a name longer than the file.
    EXPECT_FALSE(survive(with(sound, m.rootCounts - 8, std::int32_t(2))));
    EXPECT_FALSE(survive(with(sound, m.grid, std::uint32_t(8))));
    EXPECT_FALSE(survive(with(sound, m.grid + 8, std::uint32_t(0x7FFFFFFF))));
}

TEST_F(VdbDamage, ChunkSizes_AreThoseOfTheirValues) {
    for (const std::uint32_t compression : {1u, 4u}) {
        VdbSpec spec{.compression = compression};
        spec.grids = {{.name = "g_float"}};
        for (int i = 0; i < 512; ++i)
            spec.grids[0].voxels.push_back({{i >> 6, i >> 3 & 7, i & 7}, {double(i % 7), 0, 0}});
        const std::string sound = bytesOf(spec);
        // The last thing in the file is the leaf's chunk: mask, byte, size, data.
        std::size_t size = sound.size() - 8;
        std::int64_t stored = 0;
        for (;; --size) {
            std::memcpy(&stored, &sound[size], 8);
            if (stored == static_cast<std::int64_t>(sound.size() - size - 8))
                break;
            ASSERT_GT(size, 64u);
        }
        const std::int64_t plain = 512 * 4;
        for (const std::int64_t bad : {std::int64_t(0), stored - 1, stored + 1, -plain, -plain - 1,
                                       -plain * 1000, INT64_MAX, INT64_MIN})
            EXPECT_FALSE(survive(with(sound, size, bad))) << bad;
        if (compression == 4) {
            EXPECT_FALSE(survive(with(sound, size + 8 + 4, std::uint32_t(plain + 4))));
            EXPECT_FALSE(survive(with(sound, size + 8 + 12, std::uint32_t(0xFFFFFFF0))));
        }
        // Damage inside of the packed bytes is the decompressor's to find, and no crash.
        for (std::size_t at = size + 24; at < sound.size(); ++at)
            survive(with(sound, at, std::uint8_t(sound[at] ^ 0xFF)));
    }
}

TEST_F(VdbDamage, ListOfGrids_CannotLeadBackOrOut) {
    const std::string sound = bytesOf(manyGrids(0));
    const std::size_t grid = marksOf(sound).grid;
    const std::size_t positions = grid - 24;  // of the grid, of its buffers, of its end
    for (const std::int64_t bad : {std::int64_t(-1), std::int64_t(0), std::int64_t(grid - 1),
                                   std::int64_t(sound.size() + 1), INT64_MAX, INT64_MIN})
        for (const std::size_t at : {positions, positions + 16})
            EXPECT_FALSE(survive(with(sound, at, bad))) << bad;
    // Nothing needs the place of the buffers.
    EXPECT_TRUE(survive(with(sound, positions + 8, INT64_MAX)));
    EXPECT_TRUE(survive(with(sound, positions + 8, std::int64_t(grid + 5))));
}

TEST_F(VdbDamage, MetadataThatCountsForItself_IsNotFollowed) {
    // The library writes such an entry for grids above a size; here one is forged out of a text.
    GridSpec g{.name = "g_float", .voxels = ballOfVoxels({0, 0, 0}, 3)};
    g.texts = {{"zz", std::string("\xFF\xFF\xFF\x7F") + std::string(8, '\x01') + "tail"}};
    std::string bytes = bytesOf({.grids = {g}});
    const std::string before = std::string("zz") + std::string("\x06\0\0\0", 4) + "string";
    const std::size_t at = bytes.find(before);
    ASSERT_NE(at, std::string::npos);
    const std::string type = "__delayedload";
    std::string length(4, '\0');
    length[0] = static_cast<char>(type.size());
    bytes.replace(at, before.size(), "zz" + length + type);
    // The positions behind moved with it.
    const std::size_t shift = type.size() - 6;
    const std::size_t positions = marksOf(bytes).grid - 24;
    for (const std::size_t p : {positions + 8, positions + 16}) {
        std::int64_t value = 0;
        std::memcpy(&value, &bytes[p], 8);
        bytes = with(bytes, p, value + std::int64_t(shift));
    }
    EXPECT_TRUE(survive(bytes)) << lastImportProblem();
}

}  // namespace
}  // namespace nimbra
