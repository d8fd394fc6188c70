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

}  // namespace
}  // namespace nimbra
