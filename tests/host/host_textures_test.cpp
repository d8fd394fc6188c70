// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/texture_plugins.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/fake_library.h"
#include "host/planck_table.h"
#include "host/remap_plugins.h"
#include "host/scene.h"
#include "tessra/renderer.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using Knots = std::vector<KnotCurve::Knot>;

TEST(KnotCurve, Interpolations_MeetTheKnots) {
    const Knots knots{{2, 5}, {0, 1}, {4, 5}, {5, 0}};
    for (const auto kind :
         {KnotInterpolation::Step, KnotInterpolation::Linear, KnotInterpolation::Smooth}) {
        const KnotCurve curve(knots, kind);
        EXPECT_EQ(curve.eval(-10), 1);
        EXPECT_EQ(curve.eval(0), 1);
        EXPECT_EQ(curve.eval(2), 5);
        EXPECT_EQ(curve.eval(5), 0);
        EXPECT_EQ(curve.eval(1e30f), 0);
        EXPECT_TRUE(std::isfinite(curve.eval(NAN)));
    }
    EXPECT_EQ(KnotCurve(knots, KnotInterpolation::Step).eval(1.9f), 1);
    EXPECT_EQ(KnotCurve(knots, KnotInterpolation::Linear).eval(0.5f), 2);
    EXPECT_EQ(KnotCurve().eval(1), 0);
    // Two knots at one place make a jump.
    EXPECT_EQ(KnotCurve({{0, 0}, {1, 0}, {1, 8}, {2, 8}}, KnotInterpolation::Linear).eval(1), 8);
}

/// Host plug-ins of a scene, with parameters read for a frame.
class HostTextures : public ::testing::Test {
protected:
    struct Renderer final : TessraRenderer {
        TessraSequenceData sequence;
        TessraFrameData frame;
        const TessraSequenceData& getSequenceData() const override { return sequence; }
        const TessraFrameData& getFrameData() const override { return frame; }
    };
    void load(const std::string& body) {
        scene_ = registry_.scene(body);
        for (Plugin* plugin : scene_->dependencyOrder())
            dynamic_cast<TessraPlugin*>(plugin)->frameBegin(&renderer_);
    }
    AColor at(const char* name, TracePoint p) {
        TextureContext context;
        context.position = p;
        return dynamic_cast<TextureInterface*>(scene_->findPlugin(name))->getTexColor(context);
    }
    test::TestRegistry registry_;
    Renderer renderer_;
    std::unique_ptr<Scene> scene_;
};

TEST_F(HostTextures, SingularPlacement_StaysFinite) {
    load(R"("c": {"plugin": "TessraTexNoise", "transform": {"scale": [1, 0, 1]}})");
    const AColor color = at("c", {0.3, 0.3, 0.3});
    EXPECT_TRUE(std::isfinite(color.color.r));
    EXPECT_TRUE(std::isfinite(at("c", {1e300, NAN, 0}).color.r));
}

TEST_F(HostTextures, CurveAndGradient_FollowTimeBeforeAnyFrame) {
    load(R"("curve": {"plugin": "TessraCurve", "positions": [0, 1],
            "values": {"keys": [[0, [0, 1]], [10, [0, 3]]]}},
        "ramp": {"plugin": "TessraGradient", "positions": [0, 1, 2],
            "colors": [[0, 0, 0], [1, 0.5, 0]], "interpolation": "Step"})");
    const auto* curve = dynamic_cast<FloatRemapInterface*>(
        scene_->findPlugin("curve")->getInterface(ids::kFloatRemap));
    const auto* ramp = dynamic_cast<ColorRemapInterface*>(
        scene_->findPlugin("ramp")->getInterface(ids::kColorRemap));
    ASSERT_TRUE(curve && ramp);
    EXPECT_EQ(curve->evalFloat(0.5f, 0), 0.5f);
    EXPECT_EQ(curve->evalFloat(0.5f, 10), 1.5f);
    EXPECT_EQ(curve->evalFloat(0.5f, 0), 0.5f);
    EXPECT_EQ(ramp->evalColor(0.9f, 0), (Color{0, 0, 0}));
    // The third position has no colour.
    EXPECT_EQ(ramp->evalColor(5, 0), (Color{1, 0.5f, 0}));
}

}  // namespace
}  // namespace nimbra::host
