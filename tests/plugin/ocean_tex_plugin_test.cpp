// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The ocean texture as a scene sees it: its rows, its time, its place and its colours.
#include "textures/ocean_tex_plugin.h"

#include <gtest/gtest.h>

#include <cmath>

#include "plugin/fake_host.h"
#include "tessra/shading.h"

namespace nimbra::test {
namespace {

using namespace TessUtils;

class OceanTex : public testing::Test {
protected:
    OceanTex() {
        renderer.frame.t = 12;
        renderer.frame.frameStart = 11;
        renderer.frame.frameEnd = 13;
        at_.position = {3, 4, -5};
    }
    void set(const char* name, ParamScalar value) { texture.set(name, std::move(value)); }
    void set(std::initializer_list<std::pair<const char*, ParamScalar>> rows) { texture.set(rows); }
    Color ask() {
        texture->frameBegin(&renderer);
        const AColor answer = texture->getTexColor(at_);
        EXPECT_EQ(answer.alpha, 1);
        return answer.color;
    }
    /// What a sea with the rows' defaults moves at a point of its own space.
    static Vector wave(float x, float y, float time = 11 / 30.0f, float filter = 0) {
        Ocean ocean;
        ocean.setup(OceanSettings());
        return ocean.evaluate(x, y, time, filter);
    }

    FakeRenderer renderer;
    Made<NimbraOceanTexPlugin> texture{"NmbShaderOceanTex"};
    TextureContext at_;
};

TEST_F(OceanTex, Defaults_SwapTheAxesAndMapThoseThatStandInXAndY) {
    const Vector v = wave(3, -5);
    EXPECT_EQ(ask(), (Color{(v.x + 1) * 0.5f, (v.z + 1) * 0.5f, v.y}));
    EXPECT_EQ(texture->getInterface(ids::kTexture), static_cast<TextureInterface*>(texture.get()));
}

TEST_F(OceanTex, Rows_EachReachTheirOwnSettingOfTheSea) {
    const struct {
        const char* name;
        ParamScalar value;
        float expected;
        float (*seen)(const Ocean&);
    } rows[] = {
        {"wind", 5.0f, 15, [](const Ocean& o) { return o.wind[0]; }},
        {"meter_scale", 3.0f, 3, [](const Ocean& o) { return o.meterScale; }},
        {"lod", 6, 6, [](const Ocean& o) { return float(o.waves.size); }},
        {"sharpness", 0.7f, 0.7f, [](const Ocean& o) { return o.sharpness; }},
        {"velmult", 1.5f, 1.5f * 8.5946f / 15, [](const Ocean& o) { return o.waves[0].omega; }},
        {"velcoh", 0.6f, -std::log(0.600001f), [](const Ocean& o) { return o.spread; }},
        {"rgbmult", 1.7f, 1.7f, [](const Ocean& o) { return o.heightScale; }},
        {"rgboffset", 0.125f, 0.125f, [](const Ocean& o) { return o.rgbOffset; }},
        {"seed", 99, 99, [](const Ocean& o) { return float(o.seed); }},
        {"bell", 0.4f, 1.1f, [](const Ocean& o) { return o.latticeDensity; }},
        {"animmode", 1, 1, [](const Ocean& o) { return float(o.animMode); }},
        {"directTime", 2.75f, 2.75f, [](const Ocean& o) { return o.directTime; }},
        {"loopLength", 3.5f, 3.5f, [](const Ocean& o) { return o.loopLength; }},
    };
    for (const auto& row : rows)
        set(row.name, row.value);
    ask();
    for (const auto& row : rows)
        EXPECT_NEAR(row.seen(texture->ocean()), row.expected, 1e-5f) << row.name;
    set("usewind", false);
    ask();
    EXPECT_EQ(texture->ocean().wind[0], 0.5f);
}

TEST_F(OceanTex, Time_FollowsTheShutterAndTheHostsFrames) {
    set("vector", false);
    at_.time = 0.5f;
    const Color byDefault = ask();
    EXPECT_NE(byDefault.r, 0);
    renderer.frame.frameStart = renderer.frame.frameEnd = 12;
    EXPECT_EQ(ask(), byDefault) << "the middle of the shutter is its only moment";
    FakeUnits units;
    units.seconds = 1.0f / 24;
    renderer.sequence.addInterface(&units, false);
    EXPECT_NE(ask(), byDefault);
    renderer.frame.frameStart = renderer.frame.frameEnd = 9.6;  // 0.4 s at either rate
    EXPECT_NEAR(ask().r, byDefault.r, 1e-6f);
    renderer.sequence.removeInterface(&units);
}

TEST_F(OceanTex, Filter_IsScaledLikeThePlaceAndIgnoredWhereTheRaySaysSo) {
    set({{"up_vector", 0}, {"meter_scale", 2.0f}});
    set("wind", 1.5f);  // times the scale the default
    set("rgboffset", 0.25f);
    at_.filterSize = 0.5f;
    const Vector coarse = wave(6, 8, 11 / 30.0f, 1), fine = wave(6, 8, 11 / 30.0f, -1);
    ASSERT_NE(coarse, fine);
    const auto color = [](const Vector& v) {
        return Color{(v.x / 2 + 1) * 0.5f, (v.y / 2 + 1) * 0.5f, v.z / 2 + 0.25f};
    };
    EXPECT_EQ(ask(), color(coarse));
    at_.rayFlags = kRayNoFilter;
    EXPECT_EQ(ask(), color(fine));
}

TEST_F(OceanTex, ScaleTexture_WorksAboutTheMiddleOfRedAndBlue) {
    const Color plain = ask();
    struct Scale : PluginOf<TextureInterface> {
        AColor getTexColor(const TextureContext&) override { return {{0.5f, 3, 2}, 1}; }
    } scale;
    set("scaletex", &scale);
    EXPECT_EQ(ask(),
              (Color{(plain.r - 0.5f) * 0.5f + 0.5f, plain.g * 3, (plain.b - 0.5f) * 2 + 0.5f}));
}

TEST_F(OceanTex, Placement_TurnsTheSeaWithTheWorldAndKeepsItThereUnderASceneOffset) {
    set("up_vector", 0);
    renderer.frame.sceneOffset = {100, -20, 0};
    at_.position = {-97, 24, -5};
    const Vector still = wave(3, 4);
    EXPECT_EQ(ask(), (Color{(still.x + 1) * 0.5f, (still.y + 1) * 0.5f, still.z}));

    // World x runs along the sea's y, world y against its x: the wind blows along -y.
    struct Placement : UvwGenInterface {
        Transform transform;
        Transform getUVWTransform(double) const override { return transform; }
    } placement;
    placement.transform = {{{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}}, {7, 0, 0}};
    texture->addInterface(&placement, false);
    const Vector turned = wave(7 - 4, 3);
    const Color color = ask();
    EXPECT_FLOAT_EQ(color.r, (turned.y + 1) * 0.5f);
    EXPECT_FLOAT_EQ(color.g, (-turned.x + 1) * 0.5f);
    EXPECT_FLOAT_EQ(color.b, turned.z);
    texture->removeInterface(&placement);
}

}  // namespace
}  // namespace nimbra::test
