// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/black_body.h"

#include <gtest/gtest.h>

#include <cmath>

namespace TessUtils {
namespace {

TEST(BlackBody, Luminance_IsThatOfTheOldCandela) {
    // Until 1979 a black body at the freezing point of platinum, 2041.4 K on today's scale, defined
    // 60 cd/cm2. The fit of the luminosity is good to about 1 %.
    EXPECT_NEAR(blackBodyLuminance(2041.4), 6.0e5, 0.01 * 6.0e5);
    // The sun's mean luminance outside of the air is close to that of a body of 5778 K: 1.9e9.
    EXPECT_NEAR(blackBodyLuminance(5778), 1.88e9, 0.03e9);
}

TEST(BlackBody, Luminance_RisesFromNothing) {
    EXPECT_EQ(blackBodyLuminance(0), 0);
    EXPECT_EQ(blackBodyLuminance(-5), 0);
    EXPECT_EQ(blackBodyLuminance(std::nan("")), 0);
    double before = 0;
    for (int kelvin = 150; kelvin < 10000; kelvin += 50) {
        const double now = blackBodyLuminance(kelvin);
        ASSERT_TRUE(std::isfinite(now));
        ASSERT_GT(now, before);
        before = now;
    }
}

TEST(BlackBody, Color_TurnsFromRedOverWhiteToBlue) {
    const Color ember = blackBodyColor(1200), daylight = blackBodyColor(6504),
                sky = blackBodyColor(9999);
    EXPECT_EQ(ember.b, 0);
    EXPECT_GT(ember.r, 3 * ember.g);
    // The white of the primaries lies beside the locus, on its green side.
    EXPECT_NEAR(daylight.r / daylight.b, 1, 0.03);
    EXPECT_NEAR(daylight.r / daylight.g, 1, 0.05);
    EXPECT_GT(sky.b, sky.r);
    EXPECT_FLOAT_EQ(daylight.g, float(blackBodyLuminance(6504) / kLuminousEfficacy));
}

}  // namespace
}  // namespace TessUtils
