// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From the curves, gradients and plain tables of a scene to the shading tables of a frame.
#include "plugin/sim_tables.h"

#include <gtest/gtest.h>

#include <cmath>

#include "cache/test_grids.h"
#include "plugin/fake_host.h"
#include "tessra/texture.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::makeFrame;
using test::SimFixture;

class SimTables : public ::testing::Test {
protected:
    SimTables() { f.cache.frame = makeFrame(2, 2, 2); }

    /// Fire of temperature from 0 to 1 over the normalised input, as white as its strength.
    void setFire() {
        f.set("normalized_positions", 1);
        f.setList("elum_positions", paramtype_float, {0.0f, 1.0f});
        f.setList("elum_values", paramtype_float, {0.0f, 1.0f});
        f.setList("elum_interpolations", paramtype_int, {1, 1});
        f.setList("ecolor_positions", paramtype_float, {0.0f, 1.0f});
        f.setList("ecolor_colors", paramtype_color,
                  {Color{0.5f, 0.5f, 0.5f}, Color{0.5f, 0.5f, 0.5f}});
    }
    NimbraVolumeRenderLUTholder& build() {
        f.sim->preFrameBegin(&f.renderer);
        return *f.sim;
    }
    float emission(int entry, int channel = 0) {
        return build().emission[static_cast<std::size_t>(3 * entry + channel)];
    }

    SimFixture f;
};

TEST_F(SimTables, FireBrightness_IsTheCurveTimesItsScales) {
    setFire();
    f.set("emult", 3.0f);
    f.set("etmult", 2.0f);
    // Brightness doesn't depend on the colour's own: 0.5 grey gives the curve's value.
    EXPECT_NEAR(emission(4000), 0.5f * 3, 1e-5);
    f.set("fire_opacity_mode", 1);
    EXPECT_NEAR(emission(4000), 0.5f * 3 * 2 * 0.01f, 1e-6);
    test::FakeEngine engine;
    engine.progressive = true;
    f.renderer.sequence.addInterface(&engine, false);
    f.renderer.sequence.isInteractive = 1;
    EXPECT_NEAR(emission(4000), 0.5f * 3, 1e-5);
}

TEST_F(SimTables, OwnOpacity_TakesItsMultiplierAndTheDensityScale) {
    setFire();
    f.set("fire_opacity_mode", 2);
    f.set("etmult", 0.5f);
    f.set("alphaunitscale", true);
    f.set("basedensityscale", 4.0f);
    const NimbraVolumeRenderLUTholder& tables = build();
    ASSERT_NE(tables.fireOpacity, nullptr);
    EXPECT_NEAR(tables.fireOpacity[4000], std::log(1 - 0.5f * 0.5f) * 4, 1e-4);
    EXPECT_NEAR(tables.emission[3 * 4000], 0.5f * 3.5f, 1e-5);
}

TEST_F(SimTables, BlackBody_ReadsTheHostsTable) {
    setFire();
    struct Planck : PlanckTableInterface {
        Color at{0, 0.001f, 0}, elsewhere;
        const Color& entry(int kelvin) const override { return kelvin == 2000 ? at : elsewhere; }
    } planck;
    f.renderer.addInterface(&planck, false);
    // The temperature channel counts in kelvin, here from 0 to 4000.
    f.set("normalized_positions", 0);
    f.cache.frame->channels[kTemperature].allocate(f.cache.frame->gridSize);
    f.cache.frame->channelMask |= channelBit(kTemperature);
    f.cache.frame->channels[kTemperature].write(0, 4000);
    f.setList("elum_positions", paramtype_float, {0.0f, 4000.0f});
    f.set("blackbody", 0.25f);
    EXPECT_NEAR(emission(4000), 0.5f * 0.5f * (0.001f * 683 * 0.25f + 0.75f), 1e-5);
    EXPECT_NEAR(emission(2000), 0.5f * 0.25f * 0.75f, 1e-5);
}

TEST_F(SimTables, InputRange_IsTheChannelsOrTheRows) {
    f.cache.frame->channels[kSmoke].write(0, -2);
    f.cache.frame->channels[kSmoke].write(1, 6);
    f.set("earg", 2);
    f.set("darg", 2);
    f.set("targ", 2);
    f.set("ecolor_offset", 10.0f);
    f.set("dcolor_scale", 20.0f);
    f.set("transp_offset", 30.0f);
    EXPECT_EQ(build().eRange.start, -2);
    EXPECT_EQ(build().eRange.width, 8);
    EXPECT_EQ(build().tRange.width, 8);
    f.set("normalized_positions", 1);
    EXPECT_EQ(build().eRange.start, 10);
    EXPECT_EQ(build().eRange.width, 1);
    EXPECT_EQ(build().dRange.width, 20);
    EXPECT_EQ(build().tRange.start, 30);
    // A channel that the frame lacks, and one that holds infinities.
    f.set("normalized_positions", 0);
    f.set("earg", 10);
    EXPECT_EQ(build().eRange.start, 0);
    EXPECT_EQ(build().eRange.width, 1);
    f.cache.frame = makeFrame(2, 2, 2);
    f.cache.frame->channels[kSmoke].write(1, INFINITY);
    EXPECT_EQ(build().tRange.start, 0);
    EXPECT_EQ(build().tRange.width, 1);
}

// Cells that a sparse grid doesn't store are empty: they must not look like its thinnest smoke.
TEST_F(SimTables, SparseGrid_RangeTakesInEmptySpace) {
    constexpr std::int32_t kFloatTree = 1;
    f.cache.frame->channels[kSmoke] = test::treeChannel(
        kFloatTree, {2, 2, 2}, [](int x, int, int z) { return z == 0 ? 0 : x + 2.0f; });
    f.set("targ", 2);
    f.setList("transp_positions", paramtype_float, {0.0f, 3.0f});
    f.setList("transp_values", paramtype_float, {0.0f, 0.9f});
    const NimbraVolumeRenderLUTholder& tables = build();
    EXPECT_EQ(tables.tRange.start, 0);
    EXPECT_EQ(tables.tRange.width, 3);
    EXPECT_EQ(tables.opacity[0], 0);
}

TEST_F(SimTables, OpacityCurve_BecomesDensities) {
    f.set("targ", 2);
    f.set("normalized_positions", 1);
    f.setList("transp_positions", paramtype_float, {0.0f, 1.0f});
    f.setList("transp_values", paramtype_float, {0.0f, 0.8f});
    f.set("tmult", 2.0f);
    EXPECT_NEAR(build().opacity[4000], std::log(1 - 0.4f) * 2, 1e-4);
    EXPECT_EQ(build().opacity[0], 0);
    f.set("transpmode", 0);
    EXPECT_NEAR(build().opacity[4000], std::log(0.4f) * 2, 1e-4);
}

TEST_F(SimTables, PlainTables_ReplaceTheCurves) {
    setFire();
    f.set("darg", 2);
    f.set("targ", 2);
    f.set("emult", 2.0f);
    f.setList("ecolor", paramtype_color, {Color{1, 2, 3}, Color{4, 5, 6}});
    f.setList("dcolor", paramtype_color, {Color{7, 8, 9}});
    f.setList("transp", paramtype_float, {0.0f, 0.5f});
    const NimbraVolumeRenderLUTholder& tables = build();
    EXPECT_EQ(tables.emission[2], 6);
    EXPECT_EQ(tables.emission[3 * 7999], 8);
    EXPECT_EQ(tables.diffuse[3 * 7999 + 1], 8);
    EXPECT_EQ(tables.opacity[0], 0);
    EXPECT_NEAR(tables.opacity[7999], std::log(0.5f), 1e-6);
}

TEST_F(SimTables, RemapPlugins_TakeTheListsPlace) {
    setFire();
    struct Remap : Plugin, FloatRemapInterface, ColorRemapInterface {
        PluginDesc* getPluginDesc() override { return nullptr; }
        PluginInterface* getInterface(InterfaceID id) override {
            if (id == ids::kFloatRemap)
                return static_cast<FloatRemapInterface*>(this);
            return id == ids::kColorRemap ? static_cast<ColorRemapInterface*>(this)
                                          : Plugin::getInterface(id);
        }
        Plugin* getPlugin() override { return this; }
        float evalFloat(float x, double time) const override {
            return x + static_cast<float>(time);
        }
        Color evalColor(float, double) const override { return {0, 0, 3}; }
    } remap;
    auto* plugin = static_cast<PluginBase*>(static_cast<Plugin*>(&remap));
    f.set("elum_remap", plugin);
    f.set("ecolor_remap", plugin);
    f.set("dcolor_remap", plugin);
    f.set("transp_remap", plugin);
    f.set("darg", 2);
    f.set("targ", 2);
    f.renderer.frame.t = 0.25;
    EXPECT_EQ(emission(4000), 0);
    EXPECT_NEAR(emission(4000, 2), 3 * 0.75f, 1e-4);
    EXPECT_EQ(build().diffuse[2], 3);
    EXPECT_NEAR(build().opacity[0], std::log(0.75f), 1e-5);
}

TEST_F(SimTables, InputsWithoutARamp_BuildNone) {
    setFire();
    f.set("earg", 5);
    f.set("darg", 6);
    f.set("targ", 4);
    const NimbraVolumeRenderLUTholder& tables = build();
    EXPECT_EQ(tables.emission, nullptr);
    EXPECT_EQ(tables.diffuse, nullptr);
    EXPECT_EQ(tables.opacity, nullptr);
    f.set("mesher", true);
    f.set("earg", 1);
    EXPECT_EQ(build().emission, nullptr);
}

}  // namespace
}  // namespace nimbra
