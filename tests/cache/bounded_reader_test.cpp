// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/bounded_reader.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include "cache/input_file.h"
#include "support/temp_folder.h"

namespace nimbra {
namespace {

TEST(BoundedReader, ReadsStopAtTheEndAndStayStopped) {
    const std::array<std::byte, 6> bytes = {std::byte(1), std::byte(0), std::byte(0),
                                            std::byte(0), std::byte(7), std::byte(8)};
    BoundedReader in(bytes);
    EXPECT_EQ(in.get<std::uint32_t>(), 1u);
    EXPECT_EQ(in.remaining(), 2u);
    EXPECT_EQ(in.get<std::uint32_t>(), 0u);
    EXPECT_FALSE(in.ok());
    // What would fit is no longer read: the place it stands at means nothing.
    EXPECT_EQ(in.get<std::uint8_t>(), 0u);
    EXPECT_FALSE(in.seek(0));
    EXPECT_TRUE(in.text(1).empty());
}

TEST(BoundedReader, CountsThatOverflow_DoNotFit) {
    const std::array<std::byte, 8> bytes{};
    constexpr std::uint64_t kHuge = ~std::uint64_t{0};
    for (const auto& [count, size] : {std::pair{kHuge, kHuge},
                                      {kHuge / 2 + 1, std::uint64_t{2}},
                                      {std::uint64_t{9}, std::uint64_t{1}}}) {
        BoundedReader in(bytes);
        EXPECT_TRUE(in.require(8));
        EXPECT_TRUE(in.skip(4));
        EXPECT_FALSE(in.require(count, size));
        EXPECT_FALSE(in.ok());
    }
    BoundedReader in(bytes);
    EXPECT_TRUE(in.skip(8));
    EXPECT_FALSE(in.skip(kHuge));
    EXPECT_FALSE(BoundedReader().skip(1));
    EXPECT_TRUE(BoundedReader().skip(0));
}

TEST(Printable, CutAndWithoutControlCharacters) {
    EXPECT_EQ(printable(std::string("a\0b\n%s\x7F\xC3\xA9", 9)), "a?b?%s?\xC3\xA9");
    EXPECT_EQ(printable(std::string(1000, 'x')).size(), 256u);
}

class InputFileTest : public testing::Test {
protected:
    std::string read(std::uint64_t offset, std::size_t size) {
        std::string out(size, '\0');
        const bool ok = file.readAt(offset, std::as_writable_bytes(std::span(out)));
        return ok ? out : "failed: " + file.problem();
    }
    test::TempFolder folder;
    InputFile file;
};

TEST_F(InputFileTest, CutWhileOpen_FailsCleanly) {
    const std::string path = folder.write("a", "0123456789");
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.size(), 10u);
    EXPECT_EQ(read(2, 3), "234");
    std::filesystem::resize_file(path, 4);
    EXPECT_EQ(read(0, 4), "0123");
    EXPECT_EQ(read(0, 5), "failed: ends too early");
    EXPECT_EQ(read(~std::uint64_t{0} - 1, 3), "failed: ends too early");
}

TEST_F(InputFileTest, ReplacedWhileOpen_KeepsItsBytes) {
    const std::string path = folder.write("a", "old bytes");
    ASSERT_TRUE(file.open(path));
    std::filesystem::rename(folder.write("b", "new"), path);
    EXPECT_EQ(read(0, 9), "old bytes");
    ASSERT_TRUE(file.open(path));
    EXPECT_EQ(file.size(), 3u);
}

}  // namespace
}  // namespace nimbra
