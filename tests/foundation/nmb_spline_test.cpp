// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/nmb_spline.h"

#include <gtest/gtest.h>

#include <vector>

#include "foundation/bezier.h"
#include "support/golden.h"

namespace NMBUtils {
namespace {

using nimbra::test::expectGolden;
using nimbra::test::goldenCases;
using nimbra::test::Tolerance;

TEST(NmbSpline, GoldenValuesAndSolutions) {
    for (const auto& golden : goldenCases("ramps")) {
        const Tolerance tolerance(golden.json["tolerance"]);
        for (const auto& s : golden.json["splines"]) {
            std::vector<NmbSpline::Knot> knots;
            for (const auto& k : s["knots"])
                knots.push_back({k[0], k[1], k[2], k[3]});
            NmbSpline spline(s["mode"]);
            ASSERT_TRUE(spline.setKnots(knots.data(), int(knots.size())));
            for (std::size_t i = 0; i < s["u"].size(); ++i)
                expectGolden(golden, tolerance, spline.eval(s["u"][i]), s["value"][i],
                             "spline at " + s["u"][i].dump());
            for (const auto& q : s["solve"])
                expectGolden(golden, tolerance, spline.solve(q["value"]), q["u"],
                             "solution for " + q["value"].dump());
        }
    }
}

TEST(NmbSpline, OneKnot_HoldsItsValue) {
    const float value = 7;
    NmbSpline spline(NmbSpline::kExtrapolateSolve);
    EXPECT_EQ(spline.eval(1), 0);
    EXPECT_EQ(spline.solve(1), 0);
    ASSERT_TRUE(spline.setValues(&value, 1));
    for (float u : {-2.0f, 0.0f, 5.0f})
        EXPECT_EQ(spline.eval(u), 7);
    EXPECT_EQ(spline.solve(7), 0);
    EXPECT_EQ(spline.solve(9), 0);
}

TEST(NmbSpline, Solve_InvertsRisingAndFallingSplines) {
    for (const float sign : {1.0f, -1.0f})
        for (const std::uint32_t mode : {0u, std::uint32_t(NmbSpline::kExtrapolateSolve)}) {
            const bool extrapolates = mode != 0;
            const float values[] = {sign * 0, sign * 1, sign * 1.5f, sign * 4};
            NmbSpline spline(mode);
            ASSERT_TRUE(spline.setValues(values, 4));
            for (float u = 0; u <= 3; u += 0.125f)
                EXPECT_NEAR(spline.solve(spline.eval(u)), u, 1e-5f);
            EXPECT_NEAR(spline.solve(spline.eval(-2)), extrapolates ? -2 : 0, 1e-5f);
            EXPECT_NEAR(spline.solve(spline.eval(5)), extrapolates ? 5 : 3, 1e-5f);
        }
}

TEST(NmbSpline, Modes_OutsideOfTheKnots) {
    const float values[] = {0, 2, 1};
    NmbSpline clamped(NmbSpline::kClamp), closed(NmbSpline::kClosed);
    ASSERT_TRUE(clamped.setValues(values, 3) && closed.setValues(values, 3));
    EXPECT_EQ(clamped.eval(-1), 0);
    EXPECT_EQ(clamped.eval(7), 1);
    EXPECT_FLOAT_EQ(closed.eval(4.75f), clamped.eval(0.75f));
    EXPECT_FLOAT_EQ(closed.eval(-0.5f), clamped.eval(1.5f));
}

TEST(Bezier, OutsideTheKnots_TheTangentGoesOn) {
    const Bezier::Point p[6] = {{-1, 0}, {0, 0}, {1, 2}, {2, 0}, {3, 1}, {4, 2}};
    EXPECT_FLOAT_EQ(Bezier::eval(p, 6, -1), -2);
    EXPECT_FLOAT_EQ(Bezier::eval(p, 6, 4), 2);
    float u;
    EXPECT_EQ(Bezier::findSegment(p, 6, -1, u), Bezier::kBelow);
    EXPECT_EQ(Bezier::findSegment(p, 6, 3.5f, u), Bezier::kAbove);
    // Handles on their knots: the tangent is that of the curve as a whole.
    const Bezier::Point line[6] = {{0, 1}, {0, 1}, {0, 1}, {2, 5}, {2, 5}, {2, 5}};
    for (float x : {-1.0f, 0.5f, 1.7f, 3.0f})
        EXPECT_NEAR(Bezier::eval(line, 6, x), 1 + 2 * x, 1e-5f);
}

TEST(Bezier, WithoutASegment_IsZero) {
    const Bezier::Point p[6] = {{0, 3}, {0, 3}, {0, 3}, {1, 4}, {1, 4}, {1, 4}};
    EXPECT_EQ(Bezier::eval(p, 3, 0.5f), 0);
    EXPECT_EQ(Bezier::eval(p, 6, std::nanf("")), 0);
    // An upright tangent can't be followed.
    const Bezier::Point upright[6] = {{0, 3}, {0, 3}, {0, 9}, {1, 4}, {1, 4}, {1, 4}};
    EXPECT_EQ(Bezier::eval(upright, 6, -1), 3);
}

}  // namespace
}  // namespace NMBUtils
