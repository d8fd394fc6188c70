// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/ramps.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/golden.h"

namespace NMBUtils {
namespace {

using nimbra::test::expectGolden;
using nimbra::test::goldenCases;
using nimbra::test::Tolerance;
using TessUtils::Color;
using Type = MultiCurvePointType;

struct Point {
    float x, y;
    Type type = Type::Linear;
};

void set(RenderDiagramSamplerStandAlone& curve, const std::vector<Point>& points) {
    std::vector<float> xs, ys;
    std::vector<Type> types;
    for (const Point& p : points) {
        xs.push_back(p.x);
        ys.push_back(p.y);
        types.push_back(p.type);
    }
    ASSERT_TRUE(
        curve.setPoints(xs.data(), ys.data(), types.data(), static_cast<int>(points.size())));
}

void set(RenderGradientSamplerStandAlone& gradient, const std::vector<float>& positions,
         const std::vector<Color>& colors) {
    ASSERT_TRUE(gradient.setKeys(positions.data(), colors.data(), int(positions.size())));
}

void expectColor(const Color& got, const Color& expected, float tolerance = 1e-6f) {
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(got[i], expected[i], tolerance) << "channel " << i;
}

TEST(Ramps, GoldenCurvesAndGradients) {
    for (const auto& golden : goldenCases("ramps")) {
        const Tolerance tolerance(golden.json["tolerance"]);
        for (const auto& c : golden.json["curves"]) {
            std::vector<Point> points;
            for (const auto& p : c["points"])
                points.push_back({p[0], p[1], static_cast<Type>(p[2].get<int>())});
            RenderDiagramSamplerStandAlone curve;
            set(curve, points);
            for (std::size_t i = 0; i < c["x"].size(); ++i)
                expectGolden(golden, tolerance, curve.eval(c["x"][i], c["kind"]), c["y"][i],
                             "curve " + c["points"].dump() + " at " + c["x"][i].dump());
        }
        for (const auto& g : golden.json["gradients"]) {
            std::vector<float> positions;
            std::vector<Color> colors;
            for (const auto& k : g["keys"]) {
                positions.push_back(k[0]);
                colors.push_back({k[1], k[2], k[3]});
            }
            RenderGradientSamplerStandAlone gradient;
            gradient.type = g["type"];
            set(gradient, positions, colors);
            for (std::size_t i = 0; i < g["x"].size(); ++i)
                for (int channel = 0; channel < 3; ++channel)
                    expectGolden(golden, tolerance, gradient.eval(g["x"][i])[channel],
                                 g["rgb"][i][channel],
                                 "gradient " + g["keys"].dump() + " at " + g["x"][i].dump());
        }
    }
}

TEST(Curve, LinearEnds_GoOnWithTheirSlopeUnlessItGivesOpacity) {
    RenderDiagramSamplerStandAlone curve;
    set(curve, {{0, 1}, {1, 2}, {2, 5}});
    EXPECT_FLOAT_EQ(curve.eval(-1, 0), 0);
    EXPECT_FLOAT_EQ(curve.eval(3, 0), 8);
    EXPECT_EQ(curve.eval(-1, kOpacityCurve), 1);
    EXPECT_EQ(curve.eval(3, kOpacityCurve), 5);
    EXPECT_EQ(curve.yMin, 1);
    EXPECT_EQ(curve.yMax, 5);
}

TEST(Curve, OnePoint_HoldsEverywhere) {
    for (Type type : {Type::Linear, Type::Smooth, Type::Corner, Type::InHandle}) {
        RenderDiagramSamplerStandAlone curve;
        set(curve, {{0.5f, 3, type}});
        const float expected = type == Type::InHandle ? 0 : 3;
        for (float x : {-1.0f, 0.5f, 2.0f})
            EXPECT_EQ(curve.eval(x, 0), expected) << static_cast<int>(type);
    }
}

TEST(Curve, SmoothPoints_MeetTheirPointsWithoutAKink) {
    RenderDiagramSamplerStandAlone curve;
    set(curve, {{0, 0, Type::Smooth},
                {1, 4, Type::Smooth},
                {2.5f, 1, Type::Smooth},
                {4, 2, Type::Smooth}});
    for (auto [x, y] : {std::pair{0.0f, 0.0f}, {1.0f, 4.0f}, {2.5f, 1.0f}, {4.0f, 2.0f}})
        EXPECT_NEAR(curve.eval(x, 0), y, 1e-5f);
    // The slope from the left and from the right of a point differs by the curvature times the
    // step, some 0.2 here, and by rounding.
    const float h = 1e-2f;
    const float before = (curve.eval(1, 0) - curve.eval(1 - h, 0)) / h;
    const float behind = (curve.eval(1 + h, 0) - curve.eval(1, 0)) / h;
    EXPECT_NEAR(before, behind, 0.3f);
}

TEST(Curve, MixedKinds_AreMixedByDistance) {
    RenderDiagramSamplerStandAlone curve;
    // The linear points make the line 2x; the smooth ones the line 10 + x.
    set(curve, {{0, 0}, {1, 2}, {2, 12, Type::Smooth}, {3, 13, Type::Smooth}});
    EXPECT_NEAR(curve.eval(1.25f, 0), 0.75f * 2.5f + 0.25f * 12, 1e-5f);
    // A corner without handles beside a linear point answers the straight line to it.
    set(curve, {{0, 0}, {1, 2}, {2, 12, Type::Corner}});
    EXPECT_NEAR(curve.eval(1.5f, 0), 0.5f * 3 + 0.5f * 7, 1e-5f);
    // Beyond the corner the line from its neighbour goes on.
    EXPECT_NEAR(curve.eval(3, 0), 22, 1e-5f);
}

TEST(Gradient, Smooth_PassesThroughItsKeysAndOutsideHoldsTheEnds) {
    RenderGradientSamplerStandAlone gradient;
    gradient.type = kSmoothGradient;
    const std::vector<float> positions{0, 0.3f, 0.7f, 1};
    const std::vector<Color> colors{
        {0.1f, 0.5f, 0.9f}, {0.6f, 0.5f, 0.4f}, {0.7f, 0.5f, 0.2f}, {0.9f, 0.5f, 0.8f}};
    set(gradient, positions, colors);
    for (int i = 0; i < 4; ++i)
        expectColor(gradient.eval(positions[i]), colors[i], 1e-5f);
    expectColor(gradient.eval(-1), colors[0]);
    expectColor(gradient.eval(2), colors[3]);
    EXPECT_NEAR(gradient.eval(0.45f).g, 0.5f, 1e-6f);
    // Colours are clamped to the unit cube.
    gradient.type = 1;
    set(gradient, {0, 1}, {{-1, 2, 0.5f}, {-1, 2, 0.5f}});
    expectColor(gradient.eval(0.5f), {0, 1, 0.5f});
}

TEST(Ramps, Host_StandsInForPointsAndKeys) {
    struct Host : TessUtils::FloatRemapInterface, TessUtils::ColorRemapInterface {
        float evalFloat(float x, double time) const override {
            return x * 10 + static_cast<float>(time);
        }
        Color evalColor(float x, double) const override { return {x, 2 * x, 3 * x}; }
    } host;
    RenderDiagramSamplerStandAlone curve;
    set(curve, {{0, 0}, {1, 1}});
    curve.host = &host;
    curve.time = 3;
    EXPECT_EQ(curve.eval(2, kOpacityCurve), 23);
    RenderGradientSamplerStandAlone gradient;
    EXPECT_EQ(gradient.eval(0.5f), Color());
    gradient.host = &host;
    expectColor(gradient.eval(1), {1, 2, 3});
}

TEST(KolRamps, Interpolations_BecomePointTypes) {
    const float xs[] = {0, 1, 2, 3}, ys[] = {5, 7, 1, 4};
    RenderDiagramSamplerStandAlone curve;
    // No interpolation holds the value up to the next point.
    const int steps[] = {0, 0, 1};
    ASSERT_TRUE(KolRamps::makeCurve(curve, xs, 4, ys, 4, steps, 3));
    EXPECT_EQ(curve.eval(0.9f, 0), 5);
    EXPECT_EQ(curve.eval(1.5f, 0), 7);
    EXPECT_FLOAT_EQ(curve.eval(2.5f, 0), 2.5f);
    // Without codes all is linear; the shorter list counts.
    ASSERT_TRUE(KolRamps::makeCurve(curve, xs, 4, ys, 2, nullptr, 0));
    EXPECT_EQ(curve.count, 2);
    EXPECT_FLOAT_EQ(curve.eval(0.5f, 0), 6);
    const int bezier[] = {4, 7, 6, 5}, smooth[] = {2, 3, 2, 3};
    ASSERT_TRUE(KolRamps::makeCurve(curve, xs, 4, ys, 4, bezier, 4));
    EXPECT_EQ(curve.types[1], Type::OutHandle);
    EXPECT_EQ(curve.types[3], Type::LogCorner);
    ASSERT_TRUE(KolRamps::makeCurve(curve, xs, 4, ys, 4, smooth, 4));
    EXPECT_EQ(curve.types[0], Type::Smooth);
    EXPECT_NEAR(curve.eval(1, 0), 7, 1e-5f);
}

}  // namespace
}  // namespace NMBUtils
