// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_range.h"

#include <gtest/gtest.h>

namespace nimbra::cli {
namespace {

using Frames = std::vector<std::int64_t>;

TEST(FrameRange, Grammar_GivesFramesInRenderOrder) {
    EXPECT_EQ(parseFrameRange("7"), (Frames{7}));
    EXPECT_EQ(parseFrameRange("3-6"), (Frames{3, 4, 5, 6}));
    EXPECT_EQ(parseFrameRange("6-3"), (Frames{6, 5, 4, 3}));
    EXPECT_EQ(parseFrameRange("-3--1,4"), (Frames{-3, -2, -1, 4}));
    EXPECT_EQ(parseFrameRange("1--1"), (Frames{1, 0, -1}));
    EXPECT_EQ(parseFrameRange("1-10x4"), (Frames{1, 5, 9}));
    EXPECT_EQ(parseFrameRange("10-1x4"), (Frames{10, 6, 2}));
    EXPECT_EQ(parseFrameRange("1-6y2"), (Frames{2, 4, 6}));
    EXPECT_EQ(parseFrameRange("1-9:4"), (Frames{1, 5, 9, 3, 7, 2, 4, 6, 8}));
    EXPECT_EQ(parseFrameRange("1-3,2-5"), (Frames{1, 2, 3, 4, 5})) << "each frame once";
}

TEST(FrameRange, InterleavedOrder_HoldsEveryFrameOnce) {
    for (int step = 1; step <= 9; ++step) {
        Frames frames = parseFrameRange("1-20:" + std::to_string(step));
        std::sort(frames.begin(), frames.end());
        EXPECT_EQ(frames, parseFrameRange("1-20")) << step;
    }
}

TEST(FrameRange, Decimals_AreExactAndCountedForNames) {
    const auto texts = [](const std::string& list) {
        std::string out;
        const FrameList parsed = parseFrameList(list);
        for (const host::FrameNumber f : parsed.frames)
            out += f.text() + " ";
        return out + "/" + std::to_string(parsed.decimals);
    };
    EXPECT_EQ(texts("0-1x0.25"), "0 0.25 0.5 0.75 1 /3");
    EXPECT_EQ(texts("1.5--0.7,-0.000001"), "1.5 0.5 -0.5 -0.000001 /6");
    EXPECT_EQ(texts("-1-0x.5,1.0"), "-1 -0.5 0 1 /3");
    EXPECT_EQ(texts("3-5"), "3 4 5 /0");
    EXPECT_EQ(texts("0.5-3.5:2"), "0.5 2.5 1.5 3.5 /3");
    EXPECT_EQ(texts("0.5-3.5y2"), "1.5 3.5 /3");
    const FrameList fine = parseFrameList("0-100000x0.1");
    ASSERT_EQ(fine.frames.size(), 1'000'001u);
    EXPECT_EQ(fine.frames[999'990].time(), 99999.0) << "steps add up to whole frames";
    EXPECT_EQ(host::FrameNumber::ofUnits(-250'000).whole(), -1);
    for (const char* bad : {".", "1.", "1-2x0.0", "1-2x0.0000001", "0-9:0.5", "0-9y1.5", "1.5.2",
                            "nan", "0-1000x0.0001", "1000000000.5", "1.1234567"})
        EXPECT_THROW(parseFrameList(bad), FrameRangeError) << bad;
    EXPECT_THROW(parseFrameRange("1.0"), FrameRangeError) << "of files";
}

TEST(FrameRange, BadText_NamesPlaceAndGrammar) {
    for (const char* bad : {"", "a", "1-", "1-5x0", "1-5x-2", "1-5z3", "1,,2", "1 2", "1-5:", "5x2",
                            "99999999999999999999", "1-20000000", "0-10000000"}) {
        try {
            parseFrameRange(bad);
            ADD_FAILURE() << "'" << bad << "' was taken";
        } catch (const FrameRangeError& e) {
            EXPECT_NE(std::string(e.what()).find("allowed are N, A-B, A-BxS"), std::string::npos);
            EXPECT_NE(std::string(e.what()).find("character"), std::string::npos);
        }
    }
    EXPECT_EQ(parseFrameRange("0-90000000x1000").size(), 90'001u) << "long, but sparse";
}

TEST(FrameRange, Describe_JoinsRuns) {
    EXPECT_EQ(describeFrames({5, 1, 2, 3, 9}), "1-3,5,9");
    EXPECT_EQ(describeFrames({-2, -1}), "-2--1");
    EXPECT_EQ(describeFrames({}), "");
    const auto quarters = parseFrameList("1-2x0.25,3").frames;
    EXPECT_EQ(describeFrames(quarters), "1,1.25,1.5,1.75,2-3");
}

TEST(FrameRange, Shares_CoverAllFramesOnce) {
    const Frames frames = parseFrameRange("1-10");
    for (std::int64_t tasks = 1; tasks <= 13; ++tasks) {
        Frames all;
        for (std::int64_t i = 0; i < tasks; ++i)
            for (const std::int64_t f : frameShare(frames, i, tasks))
                all.push_back(f);
        EXPECT_EQ(all, frames) << tasks;
    }
    EXPECT_THROW(frameShare(frames, 3, 3), std::invalid_argument);
}

}  // namespace
}  // namespace nimbra::cli
