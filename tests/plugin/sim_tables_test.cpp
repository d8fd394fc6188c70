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
using test::addChannel;
using test::makeFrame;

class SimTables : public test::SimFixture {
protected:
    SimTables() { cache.frame = makeFrame(2, 2, 2); }

    void setCurve(const std::string& name, float end, float value) {
        setList((name + "_positions").c_str(), paramtype_float, {0.0f, end});
        setList((name + "_values").c_str(), paramtype_float, {0.0f, value});
    }
    /// Fire of temperature from 0 to 1 over the normalised input, as white as its strength.
    void setFire() {
        set("normalized_positions", 1);
        setCurve("elum", 1, 1);
        setList("elum_interpolations", paramtype_int, {1, 1});
        const Color grey{0.5f, 0.5f, 0.5f};
        setList("ecolor_positions", paramtype_float, {0.0f, 1.0f});
        setList("ecolor_colors", paramtype_color, {grey, grey});
    }
    /// The inputs of fire, light and opacity.
    void setInputs(int e, int d, int t) { set({{"earg", e}, {"darg", d}, {"targ", t}}); }
    NimbraVolumeRenderLUTholder& build() {
        load();
        return *sim.get();
    }
    float emission(int entry, int channel = 0) { return build().emission[3 * entry + channel]; }
    static void expectRange(const LutRange& range, float start, float width) {
        EXPECT_EQ(range.start, start);
        EXPECT_EQ(range.width, width);
    }
};

TEST_F(SimTables, FireBrightness_IsTheCurveTimesItsScales) {
    setFire();
    set({{"emult", 3.0f}, {"etmult", 2.0f}});
    // Brightness doesn't depend on the colour's own: 0.5 grey gives the curve's value.
    EXPECT_NEAR(emission(4000), 0.5f * 3, 1e-5);
    set("fire_opacity_mode", 1);
    EXPECT_NEAR(emission(4000), 0.5f * 3 * 2 * 0.01f, 1e-6);
    interact(true, false);
    EXPECT_NEAR(emission(4000), 0.5f * 3, 1e-5);
}

TEST_F(SimTables, OwnOpacity_TakesItsMultiplierAndTheDensityScale) {
    setFire();
    set({{"fire_opacity_mode", 2},
         {"etmult", 0.5f},
         {"alphaunitscale", true},
         {"basedensityscale", 4.0f}});
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
    renderer.addInterface(&planck, false);
    // The temperature channel counts in kelvin, here from 0 to 4000.
    set("normalized_positions", 0);
    addChannel(*cache.frame, kTemperature).write(0, 4000);
    setList("elum_positions", paramtype_float, {0.0f, 4000.0f});
    set("blackbody", 0.25f);
    EXPECT_NEAR(emission(4000), 0.5f * 0.5f * (0.001f * 683 * 0.25f + 0.75f), 1e-5);
    EXPECT_NEAR(emission(2000), 0.5f * 0.25f * 0.75f, 1e-5);
}

TEST_F(SimTables, InputRange_IsTheChannelsOrTheRows) {
    cache.frame->channels[kSmoke].write(0, -2);
    cache.frame->channels[kSmoke].write(1, 6);
    setInputs(2, 2, 2);
    set({{"ecolor_offset", 10.0f}, {"dcolor_scale", 20.0f}, {"transp_offset", 30.0f}});
    expectRange(build().eRange, -2, 8);
    expectRange(build().tRange, -2, 8);
    set("normalized_positions", 1);
    expectRange(build().eRange, 10, 1);
    expectRange(build().dRange, 0, 20);
    expectRange(build().tRange, 30, 1);
    // A channel that the frame lacks, and one that holds infinities.
    set({{"normalized_positions", 0}, {"earg", 10}});
    expectRange(build().eRange, 0, 1);
    cache.frame = makeFrame(2, 2, 2);
    cache.frame->channels[kSmoke].write(1, INFINITY);
    expectRange(build().tRange, 0, 1);
}

// Cells that a sparse grid doesn't store are empty: they must not look like its thinnest smoke.
TEST_F(SimTables, SparseGrid_RangeTakesInEmptySpace) {
    constexpr std::int32_t kFloatTree = 1;
    cache.frame->channels[kSmoke] = test::treeChannel(
        kFloatTree, {2, 2, 2}, [](int x, int, int z) { return z == 0 ? 0 : x + 2.0f; });
    set("targ", 2);
    setCurve("transp", 3, 0.9f);
    const NimbraVolumeRenderLUTholder& tables = build();
    expectRange(tables.tRange, 0, 3);
    EXPECT_EQ(tables.opacity[0], 0);
}

TEST_F(SimTables, OpacityCurve_BecomesDensities) {
    set({{"targ", 2}, {"normalized_positions", 1}});
    setCurve("transp", 1, 0.8f);
    set("tmult", 2.0f);
    EXPECT_NEAR(build().opacity[4000], std::log(1 - 0.4f) * 2, 1e-4);
    EXPECT_EQ(build().opacity[0], 0);
    set("transpmode", 0);
    EXPECT_NEAR(build().opacity[4000], std::log(0.4f) * 2, 1e-4);
}

TEST_F(SimTables, PlainTables_ReplaceTheCurves) {
    setFire();
    setInputs(1, 2, 2);
    set("emult", 2.0f);
    setList("ecolor", paramtype_color, {Color{1, 2, 3}, Color{4, 5, 6}});
    setList("dcolor", paramtype_color, {Color{7, 8, 9}});
    setList("transp", paramtype_float, {0.0f, 0.5f});
    const NimbraVolumeRenderLUTholder& tables = build();
    EXPECT_EQ(tables.emission[2], 6);
    EXPECT_EQ(tables.emission[3 * 7999], 8);
    EXPECT_EQ(tables.diffuse[3 * 7999 + 1], 8);
    EXPECT_EQ(tables.opacity[0], 0);
    EXPECT_NEAR(tables.opacity[7999], std::log(0.5f), 1e-6);
}

TEST_F(SimTables, RemapPlugins_TakeTheListsPlace) {
    setFire();
    struct Remap : test::PluginOf<FloatRemapInterface, ColorRemapInterface> {
        float evalFloat(float x, double time) const override { return x + float(time); }
        Color evalColor(float, double) const override { return {0, 0, 3}; }
    } remap;
    for (const char* row : {"elum_remap", "ecolor_remap", "dcolor_remap", "transp_remap"})
        set(row, &remap);
    setInputs(1, 2, 2);
    renderer.frame.t = 0.25;
    EXPECT_EQ(emission(4000), 0);
    EXPECT_NEAR(emission(4000, 2), 3 * 0.75f, 1e-4);
    EXPECT_EQ(build().diffuse[2], 3);
    EXPECT_NEAR(build().opacity[0], std::log(0.75f), 1e-5);
}

TEST_F(SimTables, InputsWithoutARamp_BuildNone) {
    setFire();
    setInputs(5, 6, 4);
    const NimbraVolumeRenderLUTholder& tables = build();
    EXPECT_EQ(tables.emission, nullptr);
    EXPECT_EQ(tables.diffuse, nullptr);
    EXPECT_EQ(tables.opacity, nullptr);
    set({{"mesher", true}, {"earg", 1}});
    EXPECT_EQ(build().emission, nullptr);
}

}  // namespace
}  // namespace nimbra
