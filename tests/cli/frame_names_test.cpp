// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_names.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

#include "cache/file_patterns.h"

namespace nimbra::cli {
namespace {

TEST(FrameNames, Fill_TakesEveryForm) {
    EXPECT_EQ(fillFramePattern("a/s_####.vdb", 7), "a/s_0007.vdb");
    EXPECT_EQ(fillFramePattern("s_#.vdb", 7), "s_0007.vdb") << "one hash counts as four";
    EXPECT_EQ(fillFramePattern("s_##.vdb", 12345), "s_12345.vdb") << "wide numbers stay whole";
    EXPECT_EQ(fillFramePattern("s_@@@.vdb", 7), "s_007.vdb");
    EXPECT_EQ(fillFramePattern("s_%04d.vdb", -1), "s_-0001.vdb");
    EXPECT_EQ(fillFramePattern("s_%d.$F3.$F.vdb", 12), "s_12.012.12.vdb");
    EXPECT_EQ(fillFramePattern("s<frame04>.<frame>.vdb", 12), "s0012.12.vdb");
    EXPECT_EQ(fillFramePattern("a_##/s.vdb", 1), "a_##/s.vdb") << "folders are left alone";
    EXPECT_EQ(fillFramePattern("s_100%.vdb", 1), "s_100%.vdb");
    EXPECT_EQ(toHashPattern("x/s_%04d.$F.vdb"), "x/s_####.#.vdb");
    EXPECT_TRUE(hasFramePattern("s.$F.exr"));
    EXPECT_FALSE(hasFramePattern("#dir/s.exr"));
    EXPECT_EQ(plainName("shot#1$F"), "shot_1_F");
    EXPECT_EQ(plainName("50% $5"), "50% $5");
}

TEST(FrameNames, Output_NumbersSeveralFramesAndFindsClashes) {
    EXPECT_EQ(outputName("out/p.exr", 3, false), "out/p.exr");
    EXPECT_EQ(outputName("out/p.exr", 3, true), "out/p.0003.exr");
    EXPECT_EQ(outputName("p_##.png", 3, true), "p_03.png");
    EXPECT_EQ(outputName("p_##.png", 3, false), "p_03.png");
    EXPECT_FALSE(clashingOutput("p.exr", {1, 2}));
    EXPECT_EQ(clashingOutput("p.exr", {1, 1}), "p.0001.exr");
    const auto quarter = host::FrameNumber::ofUnits(-1'250'000);
    EXPECT_EQ(outputName("p.exr", quarter, true, 3), "p.-0001.250.exr");
    EXPECT_EQ(outputName("p_###.exr", quarter, true), "p_-001.25.exr");
    EXPECT_EQ(outputName("p_%d.exr", 7, true, 3), "p_7.000.exr");
    EXPECT_EQ(outputName("p.exr", quarter, false, 3), "p.exr");
}

class Sequences : public testing::Test {
protected:
    Sequences() {
        for (const char* name :
             {"smoke_0008.vdb", "smoke_0009.vdb", "smoke_0010.vdb", "other.vdb", "smoke_0009.txt",
              "w9.vdb", "w10.vdb", "n_-0001.vdb", "n_0000.vdb", "v/t_-003.vdb", "v/t_0004.vdb",
              "v/a_0001_v2.vdb", "v/a_0002_v2.vdb", "u/w8.vdb", "u/w10.vdb", "u/w11.vdb"})
            folder_.write(name, "x");
    }
    std::string in(const std::string& name) const { return (folder_ / name).string(); }
    test::TempFolder folder_;
};

TEST_F(Sequences, FilesFoldersAndPatterns_FindTheSameSequence) {
    const struct {
        const char *input, *pattern, *frames;
    } cases[] = {
        {"smoke_0009.vdb", "smoke_####.vdb", "8 9 10 "},
        {"smoke_####.vdb", "smoke_####.vdb", "8 9 10 "},
        {"smoke_%04d.vdb", "smoke_####.vdb", "8 9 10 "},
        {".", "./smoke_####.vdb", "8 9 10 "},
        {"w9.vdb", "w#.vdb", "9 10 "},
        {"u", "u/w#.vdb", "8 10 11 "},
        {"u/w10.vdb", "u/w#.vdb", "8 10 11 "},
        {"u/w%d.vdb", "u/w#.vdb", "8 10 11 "},
        {"u/w<frame>.vdb", "u/w#.vdb", "8 10 11 "},
        {"u/w$F.vdb", "u/w#.vdb", "8 10 11 "},
        {"v/t_0004.vdb", "v/t_####.vdb", "-3 4 "},
        {"v/t_-003.vdb", "v/t_####.vdb", "-3 4 "},
        {"v/a_%04d_v2.vdb", "v/a_####_v2.vdb", "1 2 "},
    };
    for (const auto& c : cases) {
        const auto found = findSequence(in(c.input), {".vdb"});
        ASSERT_TRUE(found) << c.input;
        EXPECT_EQ(found->pattern, in(c.pattern)) << c.input;
        std::string frames;
        for (std::size_t i = 0; i < found->frames.size(); ++i) {
            frames += std::to_string(found->frames[i]) + " ";
            // The cache that is given the pattern finds the files.
            EXPECT_EQ(FilePattern(found->pattern).fill(found->frames[i]), found->files[i]);
        }
        EXPECT_EQ(frames, c.frames) << c.input;
    }
    EXPECT_EQ(findSequence(in("n_0000.vdb"), {".vdb"})->frames, (std::vector<std::int64_t>{-1, 0}));
    EXPECT_TRUE(findSequence(in("other.vdb"), {".vdb"})->frames.empty());
    EXPECT_FALSE(findSequence(in("gone.vdb"), {".vdb"}));
    EXPECT_FALSE(findSequence(in("gone_##.vdb"), {".vdb"}));
}

}  // namespace
}  // namespace nimbra::cli
