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

using NimbraEnum::chooseFile;
using NimbraEnum::Mode;
using test::goldenNamed;
using test::isAmbiguous;
using test::TempFolder;

TEST(PatternGolden, NamesOfFramesEnvironmentAndNetworkPaths) {
    for (const auto& golden : goldenNamed("patterns")) {
        for (const auto& c : golden.json.at("fill")) {
            const FilePattern pattern(c.at("path"));
            EXPECT_EQ(pattern.hasNumber(), c.at("isPattern")) << c;
            const std::string got = pattern.fill(c.at("frame"));
            if (isAmbiguous(c))
                std::printf("ambiguous: %s, got '%s'\n", c.dump().c_str(), got.c_str());
            else
                EXPECT_EQ(got, c.at("filled")) << c;
        }
        for (const auto& [name, value] : golden.json.at("environment").items())
            setenv(name.c_str(), value.get<std::string>().c_str(), 1);
        for (const auto& c : golden.json.at("expandEnv"))
            EXPECT_EQ(expandEnvironment(c.at(0)), c.at(1));
        for (const auto& [name, value] : golden.json.at("environment").items())
            unsetenv(name.c_str());
        for (const auto& c : golden.json.at("network"))
            EXPECT_EQ(networkPath(c.at(0)), c.at(1));
    }
}

TEST(PatternGolden, Choose_TakesTheFileOfTheFrame) {
    for (const auto& golden : goldenNamed("patterns"))
        for (const auto& c : golden.json.at("choose")) {
            const TempFolder folder;
            for (const auto& name : c.at("files"))
                folder.write(name, "x");
            const std::string prefix = folder.path().string() + "/";
            const auto mode = c.at("mode") == "exact" ? Mode::Exact : Mode::Nearest;
            std::string path;
            std::int64_t frame = 0;
            const bool found = chooseFile(prefix + c.at("pattern").get<std::string>(),
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
        const auto find = [&](std::int64_t wanted, Mode mode) {
            std::string path;
            std::int64_t frame = -1;
            chooseFile(pattern, wanted, mode, path, frame);
            return frame;
        };
        // The only file that fits is taken for any frame, whatever its number.
        EXPECT_EQ(find(6, Mode::Nearest), 6);
        folder.write("sim-0010." + std::string(extension), "x");
        EXPECT_EQ(find(10, Mode::Nearest), -1) << "they are -1 and -10";
        EXPECT_EQ(find(10, Mode::Exact), 10);
        EXPECT_EQ(find(-1, Mode::Exact), -1);
        folder.write("sim--003." + std::string(extension), "x");
        EXPECT_EQ(find(0, Mode::Nearest), -3);
    }
}

TEST(EnumFiles, OnlyRegularFilesByTheirPlainNames) {
    const TempFolder folder;
    std::filesystem::create_directory(folder / "s_0001.vdb");
    for (const char* name : {"s_0009.vdb", "s_0010.vdb", "a*b_1.vdb", "axb_2.vdb"})
        folder.write(name, "x");
    std::string path;
    std::int64_t frame = 0;
    EXPECT_FALSE(chooseFile(folder / "s_####.vdb", 1, Mode::Exact, path, frame));
    ASSERT_TRUE(chooseFile(folder / "s_####.vdb", 1, Mode::Nearest, path, frame));
    EXPECT_EQ(frame, 9);
    // No glob: one name fits, and so it is taken for the wanted frame.
    ASSERT_TRUE(chooseFile(folder / "a*b_#.vdb", 5, Mode::Nearest, path, frame));
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
    EXPECT_TRUE(chooseFile(network, 3, Mode::Exact, path, frame));
}

}  // namespace
}  // namespace nimbra
