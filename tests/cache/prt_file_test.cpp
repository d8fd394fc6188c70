// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/prt_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <random>

#include "support/caught_log.h"
#include "support/golden.h"
#include "support/memory_file.h"
#include "support/mutated.h"
#include "support/prt_writer.h"
#include "support/temp_folder.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

using namespace test;
using PrtIO::PrtFile;

TEST(WidenHalf, EveryPattern_KeepsItsValue) {
    for (std::uint32_t h = 0; h < 0x10000; ++h) {
        const int exponent = static_cast<int>(h >> 10 & 31);
        const int mantissa = static_cast<int>(h & 1023);
        const float sign = h & 0x8000 ? -1.0f : 1.0f;
        const float got = PrtIO::widenHalf(static_cast<std::uint16_t>(h));
        if (exponent == 31 && mantissa) {
            ASSERT_TRUE(std::isnan(got)) << h;
            continue;
        }
        const float expected = exponent == 0    ? 0.0f
                               : exponent == 31 ? INFINITY
                                                : std::ldexp(1024.0f + mantissa, exponent - 25);
        ASSERT_EQ(std::bit_cast<std::uint32_t>(got), std::bit_cast<std::uint32_t>(sign * expected))
            << h;
    }
}

TEST(WidenHalf, GoldenPatterns) {
    for (const GoldenCase& golden : goldenNamed("halves"))
        for (const auto& pair : golden.json.at("widened")) {
            const auto half = std::stoul(pair[0].get<std::string>(), nullptr, 16);
            EXPECT_EQ(bitsOf(PrtIO::widenHalf(static_cast<std::uint16_t>(half))), pair[1]);
        }
}

class PrtFileTest : public testing::Test {
protected:
    int load(const std::string& bytes) { return file.load(MemoryFile(bytes).path().c_str()); }
    float position(int particle, int axis = 0) const {
        float v[3] = {-1, -1, -1};
        return file.readChannel(file.position, particle, v, sizeof v) ? v[axis] : -2;
    }
    TempFolder folder;
    PrtFile file;
};

TEST_F(PrtFileTest, Load_ReplacesTheFileBefore) {
    ASSERT_EQ(load(prtBytes(simplePrt(5))), 1);
    EXPECT_EQ(position(4, 2), 4.5f);
    EXPECT_EQ(file.header().identification, "Extensible Particle Format");
    EXPECT_EQ(file.load((folder / "none.prt").c_str()), 0);
    EXPECT_EQ(file.load(nullptr), 0);
    EXPECT_EQ(file.load(folder.path().c_str()), 0);
    EXPECT_EQ(file.problem(), "is a folder");
    EXPECT_TRUE(file.count == 0 && file.recordSize == 0 && file.position == -1);
    EXPECT_TRUE(!file.channels.data && !file.data);
}

TEST_F(PrtFileTest, ReadChannel_StaysInsideTheDataAndTheOutput) {
    PrtSpec spec = simplePrt(3);
    for (const PrtChannel& further : {PrtChannel{"the next particle's", 4, 1, 24},
                                      {"outside", 4, 1, 1 << 30},
                                      {"the last word of the record before", 4, 1, -4},
                                      {"more than a vector", 4, 5, 0},
                                      {"negative", 3, -5, 0},
                                      {"none", 4, 0, 0}})
        spec.channels.push_back(further);
    ASSERT_EQ(load(prtBytes(spec)), 1);
    // The records' size takes all channels in.
    ASSERT_EQ(file.recordSize, 24 + 3 * 4 + 5 * 4 - 5 * 2);
    float v[5] = {9, 9, 9, 9, 9};
    const struct {
        int channel, particle;
        std::size_t room;
        int read;
    } cases[] = {{3, 2, 4, 1},  {4, 0, 4, 0},   {5, 0, 4, 0},  {5, 1, 4, 1},
                 {6, 0, 12, 1}, {7, 0, 12, 0},  {8, 0, 12, 1}, {-1, 0, 12, 0},
                 {9, 0, 12, 0}, {0, -1, 12, 0}, {0, 3, 12, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(file.readChannel(c.channel, c.particle, v, c.room), c.read)
            << c.channel << " " << c.particle;
    EXPECT_EQ(v[2], 0.5f);
    EXPECT_EQ(v[3], 9.0f);
}

TEST_F(PrtFileTest, DamagedStreams_LeaveWhatTheyGave) {
    CaughtLog log;
    std::string bytes = prtBytes(simplePrt(2000));
    const std::size_t stream = 68 + 3 * 44;
    bytes[stream + 3000] = static_cast<char>(bytes[stream + 3000] ^ 0x40);
    ASSERT_EQ(load(bytes), 1);
    EXPECT_EQ(log.take(), "[ERROR] Decompressing Zip (-3)\n");
    EXPECT_EQ(file.count, 2000);
    EXPECT_EQ(position(10), 10.0f);
    EXPECT_EQ(file.problem(), "has a damaged stream of particles");
    ASSERT_EQ(load(bytes.substr(0, stream + 2000)), 1);
    EXPECT_EQ(log.take(), "");
    EXPECT_EQ(file.count, 2000);
    EXPECT_EQ(position(10), 10.0f);
    EXPECT_EQ(position(1999), 0.0f);
    EXPECT_EQ(file.problem(), "ends inside its particles");
    // More particles in the stream than in the header: those stated are there.
    PrtSpec longer = simplePrt(6000);
    longer.particles = 1500;
    longer.level = 0;
    ASSERT_EQ(load(prtBytes(longer)), 1);
    EXPECT_EQ(log.take(), "[ERROR] Decompressing Zip (-5)\n");
    EXPECT_EQ(position(1499), 1499.0f);
}

TEST_F(PrtFileTest, StatedSizes_TakeNoMoreThanTheFileCanHold) {
    constexpr std::int64_t k32 = std::int64_t(1) << 32;
    struct Case {
        const char* what;
        std::int64_t particles, statedChannels;
        PrtChannel further;
        int loads, count;
    };
    const Case cases[] = {
        {"2^31 - 1 particles", 0x7FFFFFFF, -1, {}, 0, 0},
        {"negative count", -1, -1, {}, 0, 0},
        {"count beyond 64 bits", INT64_MAX, -1, {}, 0, 0},
        {"count of 2^32 + 3", k32 + 3, -1, {}, 0, 0},
        {"2^31 - 1 channels", 3, 0x7FFFFFFF, {}, 0, 0},
        {"one channel too many", 3, 1000, {}, 0, 0},
        {"huge arity", 3, -1, {"x", 4, 0x7FFFFFFF, 0}, 0, 0},
        {"negative arity", 3, -1, {"x", 4, -0x7FFFFFFF, 0}, 0, 0},
        {"types that don't exist", 3, -1, {"x", 77, 1000, 0}, 1, 3},
        {"no channels", 3, 0, {}, 1, 3},
        {"no channels, 2^31 - 1 particles", 0x7FFFFFFF, 0, {}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PrtSpec spec = simplePrt(3);
        spec.particles = c.particles;
        spec.statedChannels = c.statedChannels;
        if (!c.further.name.empty())
            spec.channels.push_back(c.further);
        if (c.statedChannels == 0)
            spec.channels.clear();
        EXPECT_EQ(load(prtBytes(spec)), c.loads);
        EXPECT_EQ(file.count, c.count);
        EXPECT_EQ(file.problem().empty(), c.loads == 1);
    }
    CaughtLog log;
    for (const char* sign : {"", "-"}) {
        PrtSpec bomb = simplePrt(1);
        bomb.particles = *sign ? -100000000 : 100000000;
        EXPECT_EQ(load(prtBytes(bomb)), 0);
        EXPECT_EQ(log.take(),
                  std::string("[ERROR] newArray failed to allocate ") + sign + "2400000000\n");
    }
}

TEST_F(PrtFileTest, AnyAllocationThatFails_GetsAnAnswer) {
    CaughtLog log;
    const std::string bytes = prtBytes(simplePrt(2000));
    int refused = 0;
    for (std::uint64_t n = 1; n <= 300; ++n) {
        getGlobalMemoryTracker()->failAllocation(n);
        refused += load(bytes) == 0;
        getGlobalMemoryTracker()->failAllocation(0);
    }
    EXPECT_GT(refused, 0);
    EXPECT_EQ(load(bytes), 1);
    EXPECT_EQ(position(10), 10.0f);
}

TEST_F(PrtFileTest, TruncatedAnywhere_Answers) {
    const std::string sound = prtBytes(simplePrt(40));
    const std::size_t stream = 68 + 3 * 44;
    for (std::size_t size = 0; size < sound.size(); ++size) {
        ASSERT_EQ(load(sound.substr(0, size)), size >= stream) << size;
        ASSERT_EQ(file.count, size >= stream ? 40 : 0);
        // All particles may be there without the last bytes.
        ASSERT_TRUE(!file.problem().empty() || size >= sound.size() - 8) << size;
    }
}

/// Reads whatever the file says it has.
double sumOfAll(const PrtFile& file) {
    double sum = 0;
    for (int c = -1; c <= file.channels.size && c < 40; ++c)
        for (int i = -1; i < std::min(file.count, 50); ++i) {
            float v[4] = {};
            if (file.readChannel(c, i, v, sizeof v))
                sum += v[0] + v[3];
        }
    return sum;
}

TEST_F(PrtFileTest, BrokenFiles_AnswerAsTheyShould) {
    const std::filesystem::path data = NIMBRA_TEST_DATA "/prt_broken";
    const GoldenCase answers = loadGolden(data / "answers.json");
    const auto& expected = answers.json.at("files");
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(data)) {
        if (entry.path().extension() != ".prt")
            continue;
        SCOPED_TRACE(entry.path().filename());
        const auto& answer = expected.at(entry.path().filename().string());
        EXPECT_EQ(file.load(entry.path().c_str()), answer.at("load").get<int>());
        EXPECT_EQ(file.count, answer.at("count").get<int>());
        EXPECT_TRUE(std::isfinite(sumOfAll(file)));
        ++found;
    }
    EXPECT_EQ(found, static_cast<int>(expected.size()));
}

TEST_F(PrtFileTest, MutatedFiles_Answer) {
    std::mt19937_64 random(11);
    const std::string sound = prtBytes(simplePrt(60));
    int loaded = 0;
    constexpr int kFiles = 20000;
    for (int i = 0; i < kFiles; ++i) {
        loaded += load(mutated(sound, random));
        sumOfAll(file);
    }
    EXPECT_GT(loaded, kFiles / 8);
    EXPECT_LT(loaded, kFiles);
}

}  // namespace
}  // namespace nimbra
