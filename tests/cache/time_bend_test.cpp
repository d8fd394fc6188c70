// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/time_bend.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/golden.h"

namespace nimbra {
namespace {

using test::floatOf;
using test::goldenNamed;
using test::isAmbiguous;

TimeBend settingsOf(const nlohmann::json& c) {
    TimeBend s;
    s.mode = c.value("anim_mode", 0);
    s.loopOverlap = c.value("loop_overlap", 0);
    s.readOffset = c.value("read_offset", 0);
    s.playAt = c.value("play_at", 0);
    s.maxLength = c.value("max_length", 0);
    s.playSpeed = c.value("play_speed", 1.0f);
    s.frameIndex = c.value("t2f", 0.0f);
    s.loadNearest = c.value("load_nearest", false);
    return s;
}

TEST(TimeBendGolden, Cases) {
    for (const auto& golden : goldenNamed("timebend"))
        for (const auto& c : golden.json.at("cases")) {
            float blend = 7;
            int frame = 7;
            const std::int64_t ticks =
                timeBend(settingsOf(c), c.at("ticksIn"), c.at("TPF"), c.at("bend"), &blend, &frame);
            const auto expected = c.at("ticks").get<std::int64_t>();
            const bool nowhere = expected <= -2000000000;
            if (nowhere)
                EXPECT_LE(ticks, -2000000000) << c;
            else if (!isAmbiguous(c))
                EXPECT_EQ(ticks, expected) << c;
            else if (ticks != expected)
                std::printf("ambiguous: %lld, golden has %lld\n", static_cast<long long>(ticks),
                            static_cast<long long>(expected));
            EXPECT_NEAR(blend, floatOf(c.at("loopBlend")), 1e-5) << c;
            EXPECT_EQ(frame, c.at("loopFrame").get<int>()) << c;
        }
}

TEST(TimeBendGolden, TimesToTicks) {
    for (const auto& golden : goldenNamed("timebend"))
        for (const auto& c : golden.json.at("timeToTicks"))
            EXPECT_EQ(ticksOfTime(c.at(0), c.at(1)), c.at(2).get<std::int64_t>()) << c;
}

TEST(TimeBend, LoopFarAway_EndsAndStaysInside) {
    TimeBend s;
    s.mode = kPlayLoop;
    s.maxLength = 20;
    for (const std::int64_t ticks :
         {std::int64_t(-4000000000000), std::int64_t(4000000000000), INT64_MIN, INT64_MAX}) {
        const std::int64_t bent = timeBend(s, ticks, 1000, true);
        EXPECT_GE(bent, 0);
        EXPECT_LE(bent, 20000);
    }
    // A loop that is shorter than its own margins.
    s.playSpeed = 0.00001f;
    EXPECT_EQ(timeBend(s, 123456, 1000, true), 0);
}

TEST(TimeBend, NoSuchNumber_NoFrame) {
    TimeBend s;
    EXPECT_EQ(timeBend(s, 1000, 0, true), kNoTicks);
    s.mode = kPlayFrameIndex;
    s.frameIndex = std::numeric_limits<float>::infinity();
    EXPECT_EQ(timeBend(s, 1000, 1000, true), kNoTicks);
    s.frameIndex = std::nanf("");
    EXPECT_EQ(timeBend(s, 1000, 1000, true), kNoTicks);
    EXPECT_EQ(ticksOfTime(std::nan(""), 1000), kNoTicks);
    EXPECT_EQ(ticksOfTime(1e300, 1000), kNoTicks);
}

}  // namespace
}  // namespace nimbra
