// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/file_patterns.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "cache/enum_files.h"
#include "cache/env_path.h"
#include "support/golden.h"
#include "support/temp_folder.h"

namespace nimbra {
namespace {

using test::goldenNamed;
using test::isAmbiguous;
using test::TempFolder;

class PatternGolden : public testing::Test {
protected:
    static void check(const nlohmann::json& c, const std::string& got,
                      const std::string& expected) {
        if (!isAmbiguous(c))
            EXPECT_EQ(got, expected) << c;
        else if (got != expected)
            std::printf("ambiguous: '%s', golden has '%s'\n", got.c_str(), expected.c_str());
    }
};

TEST_F(PatternGolden, Fill_NamesOfFrames) {
    for (const auto& golden : goldenNamed("patterns"))
        for (const auto& c : golden.json.at("fill")) {
            const FilePattern pattern(c.at("path"));
            EXPECT_EQ(pattern.hasNumber(), c.at("isPattern")) << c;
            check(c, pattern.fill(c.at("frame")), c.at("filled"));
        }
}

TEST_F(PatternGolden, Environment_PutsValuesIn) {
    for (const auto& golden : goldenNamed("patterns")) {
        for (const auto& [name, value] : golden.json.at("environment").items())
            setenv(name.c_str(), value.get<std::string>().c_str(), 1);
        for (const auto& c : golden.json.at("expandEnv"))
            EXPECT_EQ(expandEnvironment(c.at(0)), c.at(1));
        for (const auto& [name, value] : golden.json.at("environment").items())
            unsetenv(name.c_str());
    }
}

TEST_F(PatternGolden, NetworkPath_TurnsSlashes) {
    for (const auto& golden : goldenNamed("patterns"))
        for (const auto& c : golden.json.at("network"))
            EXPECT_EQ(networkPath(c.at(0)), c.at(1));
}

TEST_F(PatternGolden, Choose_TakesTheFileOfTheFrame) {
    for (const auto& golden : goldenNamed("patterns"))
        for (const auto& c : golden.json.at("choose")) {
            const TempFolder folder;
            for (const auto& name : c.at("files"))
                folder.write(name, "x");
            const std::string prefix = folder.path().string() + "/";
            const auto mode =
                c.at("mode") == "exact" ? NimbraEnum::Mode::Exact : NimbraEnum::Mode::Nearest;
            std::string path;
            std::int64_t frame = 0;
            const bool found = NimbraEnum::chooseFile(prefix + c.at("pattern").get<std::string>(),
                                                      c.at("wanted"), mode, path, frame);
            ASSERT_EQ(found, !c.at("file").is_null()) << c;
            if (found) {
                EXPECT_EQ(path, prefix + c.at("file").get<std::string>()) << c;
                EXPECT_EQ(frame, c.at("frame").get<std::int64_t>()) << c;
            }
        }
}

TEST(FilePattern, Matches_TextsInOrderWithAnythingBetween) {
    const FilePattern two("a_##_b_%04d.vdb");
    EXPECT_TRUE(two.matches("a_1_b_1.vdb"));
    EXPECT_TRUE(two.matches("a__b_.vdb"));
    EXPECT_FALSE(two.matches("a_1.vdb"));
    EXPECT_FALSE(two.matches("a_1_b_1.vdb.tmp"));
    EXPECT_FALSE(two.matches("xa_1_b_1.vdb"));
    // The last text has to end the name, though it stands in it before.
    EXPECT_TRUE(FilePattern("s#.k.k").matches("s1.k.k.k"));
    EXPECT_FALSE(FilePattern("s#ab").matches("sa"));
    EXPECT_TRUE(FilePattern("#").matches(""));
}

TEST(FilePattern, NumbersOfNames_WhatMakesOne) {
    std::int64_t frame = 0;
    EXPECT_TRUE(frameNumberOfName("a1_0004.kol", frame));
    EXPECT_EQ(frame, 4);
    EXPECT_TRUE(frameNumberOfName("x-0012", frame));
    EXPECT_EQ(frame, -12);
    EXPECT_FALSE(frameNumberOfName("12_a.kol", frame));
    EXPECT_FALSE(frameNumberOfName("a99999999999999999999.kol", frame));
}

TEST(EnumFiles, DashBeforeTheNumber_IsItsSign) {
    for (const char* extension : {"vdb", "kol"}) {
        const TempFolder folder;
        const std::string pattern = folder / ("sim-####." + std::string(extension));
        folder.write("sim-0001." + std::string(extension), "x");
        const auto find = [&](std::int64_t wanted, NimbraEnum::Mode mode) {
            std::string path;
            std::int64_t frame = -1;
            NimbraEnum::chooseFile(pattern, wanted, mode, path, frame);
            return frame;
        };
        // The only file that fits is taken for any frame, whatever its number.
        EXPECT_EQ(find(6, NimbraEnum::Mode::Nearest), 6);
        folder.write("sim-0010." + std::string(extension), "x");
        EXPECT_EQ(find(10, NimbraEnum::Mode::Nearest), -1) << "they are -1 and -10";
        EXPECT_EQ(find(10, NimbraEnum::Mode::Exact), 10);
        EXPECT_EQ(find(-1, NimbraEnum::Mode::Exact), -1);
        folder.write("sim--003." + std::string(extension), "x");
        EXPECT_EQ(find(0, NimbraEnum::Mode::Nearest), -3);
    }
}

TEST(EnumFiles, OnlyRegularFiles) {
    const TempFolder folder;
    std::filesystem::create_directory(folder / "s_0001.vdb");
    folder.write("s_0009.vdb", "x");
    folder.write("s_0010.vdb", "x");
    std::string path;
    std::int64_t frame = 0;
    EXPECT_FALSE(
        NimbraEnum::chooseFile(folder / "s_####.vdb", 1, NimbraEnum::Mode::Exact, path, frame));
    ASSERT_TRUE(
        NimbraEnum::chooseFile(folder / "s_####.vdb", 1, NimbraEnum::Mode::Nearest, path, frame));
    EXPECT_EQ(frame, 9);
}

TEST(EnumFiles, PercentInFolderOrName_IsNoGlob) {
    const TempFolder folder;
    folder.write("a*b_1.vdb", "x");
    folder.write("axb_2.vdb", "x");
    folder.write("axb_3.vdb", "x");
    std::string path;
    std::int64_t frame = 0;
    // One name fits, and so it is taken for the wanted frame.
    ASSERT_TRUE(
        NimbraEnum::chooseFile(folder / "a*b_#.vdb", 5, NimbraEnum::Mode::Nearest, path, frame));
    EXPECT_EQ(path, (folder / "a*b_1.vdb").string());
}

TEST(NetworkPath, OpensWithSlashes) {
    EXPECT_EQ(nativePath("\\\\server\\share\\a.vdb"), "//server/share/a.vdb");
    EXPECT_EQ(nativePath("/a\\b.vdb"), "/a\\b.vdb");
    const TempFolder folder;
    folder.write("s_0003.vdb", "x");
    std::string path;
    std::int64_t frame = 0;
    const std::string network = networkPath("/" + (folder / "s_####.vdb").string());
    ASSERT_EQ(network.substr(0, 2), "\\\\");
    EXPECT_TRUE(NimbraEnum::chooseFile(network, 3, NimbraEnum::Mode::Exact, path, frame));
}

}  // namespace
}  // namespace nimbra
