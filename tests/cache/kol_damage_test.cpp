// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Damaged .kol files: whatever the bytes, an answer.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "support/kol_walk.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

using namespace test;

bool isStatus(int status) {
    return status == kLoadOk || status == kLoadNotFound || status == kLoadBroken ||
           status == kLoadNoFooter;
}

int walk(const std::string& bytes) {
    return walkKol(MemoryFile(bytes).path());
}

std::string golden(const char* name) {
    return readFile(std::filesystem::path(NIMBRA_TEST_DATA) / "golden/kol" / name);
}

// Small files that have, together, every section, chunk, tag and form of stream.
constexpr const char* kFiles[] = {"v2_plain_particles.kol",  "v3_compressed_particles.kol",
                                  "v5_damaged_channels.kol", "v5_damaged_particles.kol",
                                  "v5_header_fields.kol",    "v5_ranges.kol",
                                  "v5_raw_and_constant.kol", "v6_packed_colour.kol"};

class KolDamage : public testing::TestWithParam<const char*> {};

TEST_P(KolDamage, CutAnywhere_IsRefused) {
    const std::string sound = golden(GetParam());
    ASSERT_EQ(walk(sound), kLoadOk);
    for (std::size_t n = 0; n < sound.size(); ++n)
        ASSERT_EQ(walk(sound.substr(0, n)), n < 8 ? kLoadBroken : kLoadNoFooter) << n;
    // With its footer behind the cut, the damage is inside.
    const std::size_t footerBytes = GetParam()[1] < '4' ? 16 : 20;
    for (std::size_t n = 0; n + footerBytes < sound.size(); ++n)
        ASSERT_EQ(walk(sound.substr(0, n) + sound.substr(sound.size() - footerBytes)), kLoadBroken)
            << n;
}

TEST_P(KolDamage, AnyNumberAnywhere_GetsAnAnswer) {
    const std::string sound = golden(GetParam());
    constexpr std::uint32_t kNumbers[] = {0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, 0,
                                          0x00100000, 0x10000000, 14};
    int loaded = 0, refused = 0;
    for (std::size_t at = 0; at + 4 <= sound.size(); ++at) {
        std::string bytes = sound;
        std::memcpy(&bytes[at], &kNumbers[at % std::size(kNumbers)], 4);
        const int status = walk(bytes);
        ASSERT_TRUE(isStatus(status)) << at;
        ++(status == kLoadOk ? loaded : refused);
    }
    EXPECT_GT(loaded, 0);
    EXPECT_GT(refused, 0);
}

TEST_P(KolDamage, AnyAllocationThatFails_GetsAnAnswer) {
    const std::string sound = golden(GetParam());
    for (std::uint64_t n = 1; n <= 300; ++n) {
        getGlobalMemoryTracker()->failAllocation(n);
        const int status = walk(sound);
        getGlobalMemoryTracker()->failAllocation(0);
        ASSERT_TRUE(isStatus(status)) << n;
    }
    EXPECT_EQ(walk(sound), kLoadOk);
}

INSTANTIATE_TEST_SUITE_P(Files, KolDamage, testing::ValuesIn(kFiles), [](const auto& file) {
    std::string name = file.param;
    return name.substr(0, name.find('.'));
});

/// A file of version 4 with one group of 2 particles in a block of 6 words, positions at `offset`.
std::string particleFile(std::int32_t section, std::int32_t offset,
                         const std::vector<std::int32_t>& tags) {
    const auto words = [](const std::vector<std::int32_t>& values) {
        return std::string(reinterpret_cast<const char*>(values.data()), values.size() * 4);
    };
    std::vector<std::int32_t> offsets(32, -1);
    offsets[0] = offset;
    const std::string bytes = "KOLV" + words({section, 6, 0, 0, 0, 0, 0, 0, 1, 1}) + "G" +
                              words({2}) + words(offsets) + words(tags);
    const auto marker = static_cast<std::int32_t>(bytes.size());
    return bytes + words({0, 9999999, marker, 0, 4}) + "KOLV2NMB";
}

TEST(KolParticleBlock, OffsetsAndTagsThatLeadOutside_FailTheFile) {
    constexpr int kPlain = 7, kPacked = 13;
    EXPECT_EQ(walk(particleFile(kPlain, 0, {0})), kLoadOk);
    for (const std::int32_t offset : {1, 6, 7, INT32_MAX, -2, INT32_MIN})
        EXPECT_EQ(walk(particleFile(kPlain, offset, {0})), kLoadBroken) << offset;
    for (const std::int32_t offset : {7, INT32_MAX, -2, INT32_MIN})
        EXPECT_EQ(walk(particleFile(kPacked, offset, {0})), kLoadBroken) << offset;
    // A stream may end anywhere in the block; one that is none costs the channel.
    EXPECT_EQ(walk(particleFile(kPacked, 3, {0})), kLoadOk);
    for (const std::int32_t length : {-1, 1000, INT32_MAX})
        EXPECT_EQ(walk(particleFile(kPacked, 0, {2, length})), kLoadBroken);
    // IDs whose symbols are missing are left out.
    EXPECT_EQ(walk(particleFile(kPacked, 0, {2, 4, 0x20, 0})), kLoadOk);
}

}  // namespace
}  // namespace nimbra
