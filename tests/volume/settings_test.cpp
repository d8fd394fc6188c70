// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From parameter rows to shader state.
#include <algorithm>

#include "tessra/allocator.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using nlohmann::json;

void setTables(NimbraVolumeRenderLUTholder& luts, const json& from) {
    const std::pair<const char*, std::unique_ptr<float[]>&> tables[] = {
        {"emission", luts.emission},
        {"fireOpacity", luts.fireOpacity},
        {"diffuse", luts.diffuse},
        {"opacity", luts.opacity}};
    for (const std::string& name : from.value("tables", std::vector<std::string>()))
        for (const auto& [known, table] : tables)
            if (name == known)
                table = std::make_unique<float[]>(3 * kLutEntries);
    setGoldenRange(luts.eRange, from, "eRange");
    setGoldenRange(luts.dRange, from, "dRange");
    setGoldenRange(luts.tRange, from, "tRange");
}

/// A volume whose channels 1 to 10 all exist and can be told apart.
std::unique_ptr<TestVolume> volumeWithAllChannels(const json& row) {
    const json& size = row["size"];
    auto volume = std::make_unique<TestVolume>(size[0], size[1], size[2]);
    for (int channel = 1; channel <= 10; ++channel)
        volume->fill(channel, static_cast<float>(channel));
    volume->params.set("jitter", 1);
    for (const auto& [key, value] : row["params"].items())
        volume->params.set(key, value);
    setTables(volume->luts, row["luts"]);
    volume->load();
    return volume;
}

/// The channel that a slot reads, 0 for an empty one.
int boundChannel(const VolumeShader& shader, int slot) {
    const GridChannelProxy<float>& proxy = shader.channels[slot];
    return proxy.loaded ? static_cast<int>(proxy.read(0)) : 0;
}

void expectBindings(const VolumeShader& shader, const json& expected) {
    const std::pair<const char*, int> slots[] = {
        {"e", kSlotE}, {"d", kSlotD}, {"t", kSlotT}, {"s", kSlotS}};
    for (const auto& [name, slot] : slots)
        EXPECT_EQ(boundChannel(shader, slot), expected["slots"].value(name, 0)) << name;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(boundChannel(shader, kSlotColor + i), expected["rgb_slots"] ? kColorR + i : 0);
}

void expectTables(const VolumeShader& shader, const NimbraVolumeRenderLUTholder& luts,
                  const json& expected) {
    const auto expectKept = [&](const char* name, const float* got, const float* table) {
        const json& kept = expected["tables"];
        EXPECT_EQ(got, std::find(kept.begin(), kept.end(), name) != kept.end() ? table : nullptr)
            << name;
    };
    expectKept("emission", shader.emissionTable, luts.emission.get());
    expectKept("fireOpacity", shader.fireOpacityTable, luts.fireOpacity.get());
    expectKept("diffuse", shader.diffuseTable, luts.diffuse.get());
    expectKept("opacity", shader.opacityTable, luts.opacity.get());
}

TEST(SettingsGolden, RowsBecomeShaderState) {
    for (const GoldenCase& golden : goldenCases("settings")) {
        const Tolerance tolerance(golden.json["tolerance"]);
        for (const json& row : golden.json["rows"]) {
            SCOPED_TRACE(golden.name() + " " + row["params"].dump());
            const auto volume = volumeWithAllChannels(row);
            const VolumeShader& s = volume->shader;
            const json& expected = row["expected"];
            const std::pair<const char*, double> numbers[] = {
                {"rendstep", s.rendstep},
                {"rendshadstep", s.rendshadstep},
                {"stoptransp", s.stoptransp},
                {"skiptransp", s.skiptransp},
                {"smoketransp", s.smoketransp},
                {"hhfactor", s.hhfactor},
                {"gridReductInv", s.gridReductInv},
                {"self_illum_map_min_pow", s.self_illum_map_min_pow}};
            for (const auto& [key, got] : numbers)
                expectGolden(golden, tolerance, got, expected[key], key);
            EXPECT_EQ(s.flags, expected["flags"]);
            EXPECT_EQ(s.bounces, expected["bounces"]);
            EXPECT_EQ(s.sampleMask, expected["sampleMask"]);
            EXPECT_EQ(s.wrapFlags, expected["wrapFlags"]);
            EXPECT_EQ(s.selfShadowed, expected["selfShadowed"]);
            expectGoldens(golden, tolerance, s.inputScale, expected["inputScale"], "scale");
            expectGoldens(golden, tolerance, s.inputOffset, expected["inputOffset"], "offset");
            expectGoldens(golden, tolerance, s.simpleColor, expected["simpleColor"], "color");
            expectBindings(s, expected);
            expectTables(s, volume->luts, expected);
        }
    }
}

TEST(Settings, TexturesTakeTheirInputsPlace) {
    TestVolume volume(3, 3, 3);
    volume.fill(kTemperature, 1.0f);
    volume.fill(kSmoke, 1.0f);
    for (const char* input : {"earg", "darg", "targ"})
        volume.params.set(input, 4);
    volume.params.set("sarg", 0);
    const VolumeShader& shader = volume.shader;

    volume.load();
    EXPECT_FALSE(shader.has(kEmissive | kDiffuse | kTextureFlags)) << "no texture connected";
    EXPECT_EQ(boundChannel(shader, kSlotT), 1) << "counts as simple smoke";

    std::fill(volume.params.textures, volume.params.textures + 4, true);
    volume.params.set("mod_d", 1);
    volume.load();
    EXPECT_EQ(shader.flags & (kEmissive | kDiffuse | kTextureFlags),
              kEmissive | kDiffuse | kTextureFlags);
    EXPECT_EQ(shader.flags & (kModEmissive | kModDiffuse | kModOpacity), kModDiffuse);
    EXPECT_FALSE(shader.channels[kSlotT].loaded);
    EXPECT_FALSE(shader.channels[kSlotS].loaded);
    EXPECT_EQ(shader.sampleMask, kSampleColor);
}

TEST(Settings, NoFrame_TakesTheGridSizeOfTheTables) {
    TestVolume volume(3, 3, 3);
    volume.fill(kSmoke, 1.0f);
    volume.load();
    volume.luts.gridSize[0] = 7;
    volume.luts.gridSize[1] = -2;
    volume.luts.gridSize[2] = 5;
    readVolumeSettings(volume.shader, {volume.params, nullptr, volume.luts, GridTransforms()});
    EXPECT_EQ(volume.shader.gridSize[0], 7);
    EXPECT_EQ(volume.shader.gridSize[1], 0) << "a negative size is no size";
    EXPECT_EQ(volume.shader.gridMax.z, 5);
    EXPECT_FALSE(volume.shader.channels[kSlotT].loaded) << "what was bound before is gone";
}

TEST(Settings, NoMemoryForTheLightCache_StopsHalfWay) {
    TestVolume volume(30, 30, 30);
    volume.params.set("softb", 3);
    volume.params.set("lightcache", 0);
    volume.load();
    EXPECT_EQ(volume.shader.softb, 3);

    volume.params.set("lightcache", 1);
    getGlobalMemoryTracker()->failAllocation(1);
    volume.load();
    getGlobalMemoryTracker()->failAllocation(0);
    EXPECT_TRUE(volume.shader.outOfMemory);
    EXPECT_FALSE(volume.shader.has(kLightCache));
    EXPECT_EQ(volume.shader.softb, 0) << "settings behind the grid aren't read";

    volume.load();
    EXPECT_FALSE(volume.shader.outOfMemory);
    EXPECT_TRUE(volume.shader.has(kLightCache));
}

}  // namespace
}  // namespace nimbra::test
