// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From parameter rows to shader state.
#include <algorithm>

#include "support/golden.h"
#include "tessra/allocator.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using nlohmann::json;

std::unique_ptr<float[]> zeroTable(int floats) {
    return std::make_unique<float[]>(static_cast<std::size_t>(floats));
}

void setTables(NimbraVolumeRenderLUTholder& luts, const json& from) {
    for (const std::string& name : from.value("tables", std::vector<std::string>())) {
        if (name == "emission")
            luts.emission = zeroTable(3 * kLutEntries);
        else if (name == "fireOpacity")
            luts.fireOpacity = zeroTable(kLutEntries);
        else if (name == "diffuse")
            luts.diffuse = zeroTable(3 * kLutEntries);
        else
            luts.opacity = zeroTable(kLutEntries);
    }
    const auto range = [&](const char* key, LutRange& out) {
        if (from.contains(key))
            out = {from[key][0].get<float>(), from[key][1].get<float>()};
    };
    range("eRange", luts.eRange);
    range("dRange", luts.dRange);
    range("tRange", luts.tRange);
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
    const std::vector<std::pair<const char*, int>> slots = {
        {"e", kSlotE}, {"d", kSlotD}, {"t", kSlotT}, {"s", kSlotS}};
    for (const auto& [name, slot] : slots)
        EXPECT_EQ(boundChannel(shader, slot), expected["slots"].value(name, 0)) << name;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(boundChannel(shader, kSlotColor + i), expected["rgb_slots"] ? kColorR + i : 0);
}

void expectTables(const TestVolume& volume, const json& expected) {
    const std::vector<std::string> kept = expected["tables"];
    const auto keeps = [&](const char* name) {
        return std::find(kept.begin(), kept.end(), name) != kept.end();
    };
    const VolumeShader& shader = volume.shader;
    EXPECT_EQ(shader.emissionTable, keeps("emission") ? volume.luts.emission.get() : nullptr);
    EXPECT_EQ(shader.fireOpacityTable,
              keeps("fireOpacity") ? volume.luts.fireOpacity.get() : nullptr);
    EXPECT_EQ(shader.diffuseTable, keeps("diffuse") ? volume.luts.diffuse.get() : nullptr);
    EXPECT_EQ(shader.opacityTable, keeps("opacity") ? volume.luts.opacity.get() : nullptr);
}

TEST(SettingsGolden, RowsBecomeShaderState) {
    for (const GoldenCase& golden : goldenCases("settings")) {
        const Tolerance tolerance(golden.json["tolerance"]);
        for (const json& row : golden.json["rows"]) {
            SCOPED_TRACE(golden.name() + " " + row["params"].dump());
            const auto volume = volumeWithAllChannels(row);
            const VolumeShader& shader = volume->shader;
            const json& expected = row["expected"];
            const auto check = [&](const char* key, double got) {
                expectGolden(golden, tolerance, got, expected[key], key);
            };
            EXPECT_EQ(shader.flags, expected["flags"].get<std::uint32_t>());
            check("rendstep", shader.rendstep);
            check("rendshadstep", shader.rendshadstep);
            check("stoptransp", shader.stoptransp);
            check("skiptransp", shader.skiptransp);
            check("smoketransp", shader.smoketransp);
            check("hhfactor", shader.hhfactor);
            check("gridReductInv", shader.gridReductInv);
            check("self_illum_map_min_pow", shader.self_illum_map_min_pow);
            EXPECT_EQ(shader.bounces, expected["bounces"].get<int>());
            EXPECT_EQ(shader.sampleMask, expected["sampleMask"].get<std::uint32_t>());
            EXPECT_EQ(shader.wrapFlags, expected["wrapFlags"].get<std::uint32_t>());
            EXPECT_EQ(shader.selfShadowed, expected["selfShadowed"].get<bool>());
            for (int i = 0; i < 4; ++i) {
                expectGolden(golden, tolerance, shader.inputScale[i], expected["inputScale"][i],
                             "inputScale");
                expectGolden(golden, tolerance, shader.inputOffset[i], expected["inputOffset"][i],
                             "inputOffset");
            }
            for (int i = 0; i < 3; ++i)
                expectGolden(golden, tolerance, shader.simpleColor[i], expected["simpleColor"][i],
                             "simpleColor");
            expectBindings(shader, expected);
            expectTables(*volume, expected);
        }
    }
}

TestVolume& loaded(TestVolume& volume) {
    volume.load();
    return volume;
}

TEST(Settings, TexturesTakeTheirInputsPlace) {
    TestVolume volume(3, 3, 3);
    volume.fill(kTemperature, 1.0f);
    volume.fill(kSmoke, 1.0f);
    volume.params.set("earg", 4);
    volume.params.set("darg", 4);
    volume.params.set("targ", 4);
    volume.params.set("sarg", 0);
    const VolumeShader& shader = volume.shader;

    loaded(volume);
    EXPECT_FALSE(shader.has(kEmissive | kDiffuse | kTextureFlags)) << "no texture connected";
    EXPECT_EQ(boundChannel(shader, kSlotT), 1) << "counts as simple smoke";

    std::fill(volume.params.textures, volume.params.textures + 4, true);
    volume.params.set("mod_d", 1);
    loaded(volume);
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
    loaded(volume);
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
    loaded(volume);
    EXPECT_EQ(volume.shader.softb, 3);

    volume.params.set("lightcache", 1);
    TessUtils::MemoryTracker* tracker = getGlobalMemoryTracker();
    tracker->failAllocation(1);
    loaded(volume);
    tracker->failAllocation(0);
    EXPECT_TRUE(volume.shader.outOfMemory);
    EXPECT_FALSE(volume.shader.has(kLightCache));
    EXPECT_EQ(volume.shader.softb, 0) << "settings behind the grid aren't read";

    loaded(volume);
    EXPECT_FALSE(volume.shader.outOfMemory);
    EXPECT_TRUE(volume.shader.has(kLightCache));
}

}  // namespace
}  // namespace nimbra::test
