// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <numeric>
#include <vector>

#include "foundation/ramps.h"
#include "volume/fast_exp.h"
#include "volume/lut_holder.h"
#include "volume/test_scene.h"
#include "volume/volume_shader.h"

namespace nimbra {
namespace {

using nlohmann::json;
using NMBUtils::IRenderDiagramSampler;
using NMBUtils::IRenderGradientSampler;
using TessUtils::Color;
using TessUtils::Vector;
using test::expectGolden;
using test::expectGoldens;
using test::goldenCases;
using test::Tolerance;

struct CurveOf final : IRenderDiagramSampler {
    std::function<float(float)> f;
    explicit CurveOf(std::function<float(float)> function) : f(std::move(function)) {}
    explicit CurveOf(float value) : f([value](float) { return value; }) {}
    float eval(float x, int) const override { return f(x); }
};

struct EvenGradient final : IRenderGradientSampler {
    Color color;
    explicit EvenGradient(const Color& everywhere) : color(everywhere) {}
    Color eval(float) const override { return color; }
};

const EvenGradient kWhite({1, 1, 1});

/// Builds the tables of a golden case, and a shader that reads them.
struct GoldenTables {
    NimbraVolumeRenderLUTholder luts;
    VolumeShader shader;

    explicit GoldenTables(const json& table) {
        const json& build = table["build"];
        const std::string kind = table["kind"];
        if (kind == "opacity_list") {
            const std::vector<float> list = build["list"];
            luts.setOpacityList(list.data(), int(list.size()), build["transpmode"] != 0,
                                build["tmult"], build["density_scale"]);
        } else if (kind == "emission") {
            shader.fire_opacity_mode = build["mode"];
            test::buildGoldenEmission(luts, build, shader.fire_opacity_mode);
        } else if (kind == "diffuse") {
            test::buildGoldenDiffuse(luts, build);
        } else if (kind == "opacity") {
            test::buildGoldenOpacity(luts, build, build["transpmode"] != 0);
        } else {
            ADD_FAILURE() << "unknown kind of table " << kind;
        }
        shader.flags |= kEmissive | kDiffuse;
        shader.emissionTable = luts.emission.get();
        shader.fireOpacityTable = luts.fireOpacity.get();
        shader.diffuseTable = luts.diffuse.get();
        shader.opacityTable = luts.opacity.get();
    }
};

void checkEntries(const test::GoldenCase& golden, const json& table, const GoldenTables& tables) {
    const Tolerance tolerance(golden.json["tolerance"]);
    const NimbraVolumeRenderLUTholder& luts = tables.luts;
    for (const json& e : table["entries"]) {
        const int i = e["i"];
        const std::string what = table["kind"].get<std::string>() + " entry " + std::to_string(i);
        if (e.contains("rgb")) {
            const auto& rgb = table["kind"] == "diffuse" ? luts.diffuse : luts.emission;
            expectGoldens(golden, tolerance, &rgb[3 * i], e["rgb"], what);
        }
        if (e.contains("fire"))
            expectGolden(golden, tolerance, luts.fireOpacity[i], e["fire"], what + " fire");
        if (e.contains("v"))
            expectGolden(golden, tolerance, luts.opacity[i], e["v"], what);
    }
}

void checkReads(const test::GoldenCase& golden, const json& table, const GoldenTables& tables) {
    const Tolerance tolerance(golden.json["tolerance"], "reads_");
    for (const json& r : table.value("reads", json::array())) {
        VoxelSample sample;
        sample.e = sample.d = sample.t = r["v"];
        const float step = r["step"];
        const std::string what = table["kind"].get<std::string>() + " read at " + r["v"].dump();
        if (r.contains("emission"))
            expectGoldens(golden, tolerance, tables.shader.getEmission(sample, step), r["emission"],
                          what);
        if (r.contains("diffuse"))
            expectGoldens(golden, tolerance, tables.shader.getDiffuse(sample), r["diffuse"], what);
        if (r.contains("opacity"))
            expectGolden(golden, tolerance, tables.shader.getOpacity(sample, step).g, r["opacity"],
                         what);
        if (r.contains("fire_opacity")) {
            Color opacity;
            const bool answers = tables.shader.getFireOpacity(sample, step, opacity);
            EXPECT_EQ(answers, !r["fire_opacity"].is_null()) << what;
            if (answers && !r["fire_opacity"].is_null())
                expectGolden(golden, tolerance, opacity.b, r["fire_opacity"], what + " fire");
        }
    }
}

TEST(ShadingTables, GoldenTablesAndReads) {
    for (const auto& golden : goldenCases("tables")) {
        SCOPED_TRACE(golden.name());
        for (const json& x : golden.json["fast_exp"])
            EXPECT_EQ(std::bit_cast<std::uint32_t>(fastExp(x["x"])), x["bits"].get<std::uint32_t>())
                << "exponential of " << x["x"];
        for (const json& v : golden.json["index"])
            EXPECT_EQ(lutIndex(v["v"]), v["index"].get<int>()) << "index of " << v["v"];
        for (const json& table : golden.json["tables"]) {
            const GoldenTables tables(table);
            checkEntries(golden, table, tables);
            checkReads(golden, table, tables);
        }
    }
}

TEST(ColorTables, StrengthsAndColorsThatAreNone_AreDark) {
    NimbraVolumeRenderLUTholder luts;
    EmissionTableSettings s;
    s.rawIndex = true;
    luts.buildEmissionTable(CurveOf([](float x) { return 1 / (x - 0.5f); }), kWhite, s);
    EXPECT_EQ(luts.emission[3 * 1000], 0);  // below 0
    EXPECT_EQ(luts.emission[3 * 4000], 0);  // infinite
    EXPECT_GT(luts.emission[3 * 5000], 0);
    const EvenGradient broken({std::nanf(""), 1, -1});
    luts.buildEmissionTable(CurveOf(1), broken, {});
    luts.buildDiffuseTable(broken, true);
    for (const float* table : {luts.emission.get(), luts.diffuse.get()}) {
        EXPECT_EQ(table[0], 0);
        EXPECT_GT(table[1], 0);
        EXPECT_EQ(table[2], 0);
    }
}

TEST(EmissionTable, BlackBody_WeighsByTheLuminanceAtTheKelvinOfTheChannel) {
    std::vector<float> planck(kPlanckEntries);
    std::iota(planck.begin(), planck.end(), 0.0f);
    NimbraVolumeRenderLUTholder luts;
    EmissionTableSettings s;
    s.planckLuminance = planck.data();
    s.physMult = 0.5f;
    const struct {
        int channel;
        float blackbody, width;
        int entry;
        float kelvin;
    } cases[] = {{1, 1, 2000, 4000, 1000},  // temperature in kelvin
                 {1, 1, 2000, 0, 150},      // the coldest
                 {2, 1, 2, 2000, 1500},     // smoke
                 {10, 1, 2, 2000, 1500},    // fuel
                 {3, 1, 200, 4000, 1000},   // speed
                 {2, 1, 100, 7999, 9999},   // the hottest
                 {5, 1, 2000, 7999, 150},   // others are cold
                 {1, 7, 2000, 4000, 1000}};
    for (const auto& c : cases) {
        luts.eRange = {0, c.width};
        s.blackbodyMode = c.channel;
        s.blackbody = c.blackbody;
        luts.buildEmissionTable(CurveOf(1), kWhite, s);
        EXPECT_NEAR(luts.emission[3 * c.entry], c.kelvin * 683 * 0.5f, c.kelvin * 0.1f)
            << "channel " << c.channel << " entry " << c.entry;
    }
    // A share of it is mixed with the plain colour.
    s.blackbodyMode = 1;
    s.blackbody = 0.25f;
    luts.eRange = {0, 2000};
    luts.buildEmissionTable(CurveOf(1), kWhite, s);
    EXPECT_NEAR(luts.emission[3 * 4000], 1000 * 683 * 0.5f * 0.25f + 0.75f, 1);
}

TEST(OpacityTable, Curve_GivesTransparencyOrOpacityLimitedToAFiniteDensity) {
    NimbraVolumeRenderLUTholder luts;
    const float opaque = 2 * std::log(1e-6f), nan = std::nanf("");
    const struct {
        float curve;
        bool invert;
        float expected;
    } cases[] = {
        {0, true, 0}, {1, true, opaque}, {0, false, opaque}, {1, false, 0}, {nan, true, 0}};
    for (const auto& c : cases) {
        luts.buildOpacityTable(CurveOf(c.curve), true, c.invert, 2);
        EXPECT_FLOAT_EQ(luts.opacity[10], c.expected) << c.curve << c.invert;
    }
}

/// A shader whose textures have one colour each.
struct TexturedShader : VolumeShader {
    Color colors[4];
    void sampleTexture(Color& out, int index, const Vector&, const Vector&) const override {
        out = colors[index];
    }
};

TEST(ReadTables, Textures_ReplaceOrModulate) {
    TexturedShader shader;
    shader.colors[0] = {2, 3, -4};
    shader.colors[1] = {0.5f, 0.25f, 1};
    shader.colors[2] = {0.75f, 2, -1};
    shader.smoketransp = -1;
    VoxelSample sample;
    sample.t = 1;
    sample.gridColor = {1, 1, 1};

    shader.flags |= kEmissive | kTexEmissive | kTexDiffuse | kTexOpacity;
    EXPECT_EQ(shader.getEmission(sample, 1), (Color{2, 3, 0}));
    EXPECT_EQ(shader.getDiffuse(sample), shader.colors[1]);
    // Opacities of a texture are those of one scene unit.
    const Color opacity = shader.getOpacity(sample, 2);
    EXPECT_NEAR(opacity.r, 1 - 0.25f * 0.25f, 1e-6f);
    EXPECT_EQ(opacity.g, 1);
    EXPECT_EQ(opacity.b, 0);

    shader.flags = kEmissive | kModEmissive | kModDiffuse | kModOpacity;
    shader.simpleColor = {1, 2, 3};
    sample.gridColor = {10, 10, 10};
    EXPECT_EQ(shader.getEmission(sample, 1), (Color{20, 30, 0}));
    EXPECT_EQ(shader.getDiffuse(sample), (Color{0.5f, 0.5f, 3}));
    const float plain = 1 - std::exp(-1.0f);
    EXPECT_NEAR(shader.getOpacity(sample, 1).r, 0.75f * plain, 1e-4f);
    EXPECT_NEAR(shader.getOpacity(sample, 1).g, 2 * plain, 2e-4f);
}

}  // namespace
}  // namespace nimbra
