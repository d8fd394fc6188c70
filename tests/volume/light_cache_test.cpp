// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The lazy light cache: values, which voxels it lights, seeds, overflow and races.
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "support/golden.h"
#include "volume/light_cache.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using nlohmann::json;
using TessUtils::Color;
using TessUtils::Vector;

/// Light as a function of the grid position.
class FieldIlluminator : public TestIlluminator {
public:
    explicit FieldIlluminator(std::function<Color(const Vector&)> light)
        : field(std::move(light)) {}
    void illuminate(Color& out, const Vector& pos, const Color& diffuse,
                    LightSelectRecord*) override {
        ++illuminations;
        lastKind = kind;
        lastSeed = seed;
        out = field(pos) * diffuse;
    }
    std::uint32_t lastKind = 0, lastSeed = 0;

private:
    std::function<Color(const Vector&)> field;
};

Color lookup(NmbGridLightCacheBasic& cache, const Vector& pos, Illuminator& illuminator,
             float subred = 0) {
    VolumeShader shader;
    shader.subred = subred;
    Color out;
    cache.lookup(out, shader, pos, illuminator);
    return out;
}

std::unique_ptr<NmbGridLightCacheBasic> makeCache(int nx, int ny, int nz) {
    auto cache = std::make_unique<NmbGridLightCacheBasic>();
    const int size[3] = {nx, ny, nz};
    EXPECT_TRUE(cache->allocate(VolumeShader(), size));
    return cache;
}

TEST(LightCacheGolden, LookupsGiveTheExpectedLight) {
    for (const GoldenCase& golden : goldenCases("lightcache")) {
        const json& j = golden.json;
        const Tolerance tolerance(j["tolerance"]);
        const std::vector<float> c = j["c"];
        FieldIlluminator illuminator([&](const Vector& p) -> Color {
            return {c[0] + c[1] * p.x * p.y, c[2] + c[3] * p.z * p.z,
                    c[4] + c[5] * (p.x + p.y + p.z)};
        });
        const auto cache = makeCache(j["size"][0], j["size"][1], j["size"][2]);
        for (std::size_t i = 0; i < j["positions"].size(); ++i) {
            const json& p = j["positions"][i];
            expectGoldens(golden, tolerance,
                          lookup(*cache, {p[0], p[1], p[2]}, illuminator, j["lightcachesr"]),
                          j["rgb"][i], "position " + std::to_string(i));
        }
        json filled = json::array();
        const std::vector<int> size = j["size"];
        for (int i = 0; i < size[0] * size[1] * size[2]; ++i)
            if (cache->isLit(i))
                filled.push_back(i);
        EXPECT_EQ(filled, j["filled"]) << golden.name();
        for (const json& seed : j["seeds"])
            EXPECT_EQ(lightCacheSeed(seed["index"]), seed["seed"].get<std::uint32_t>());
    }
}

TEST(LightCache, LightingAVoxel_LeavesTheRayAsItWas) {
    FieldIlluminator illuminator([](const Vector&) { return Color{1, 2, 3}; });
    illuminator.kind = kKindDiffuse;
    illuminator.seed = 77;
    const auto cache = makeCache(4, 4, 4);
    lookup(*cache, {1.5f, 1.5f, 1.5f}, illuminator);
    EXPECT_EQ(illuminator.illuminations, 8);
    EXPECT_EQ(illuminator.lastKind,
              kKindDiffuse | kKindCacheFill | kKindCacheLights | kKindCacheShadows);
    EXPECT_EQ(illuminator.lastSeed, lightCacheSeed(2 + 4 * (2 + 4 * 2)));
    EXPECT_EQ(illuminator.kind, kKindDiffuse);
    EXPECT_EQ(illuminator.seed, 77u);

    lookup(*cache, {1.25f, 1.75f, 1.5f}, illuminator);
    EXPECT_EQ(illuminator.illuminations, 8) << "the same voxels again";
}

TEST(LightCache, AnyPosition_ReadsVoxelsOfTheGrid) {
    FieldIlluminator illuminator([](const Vector&) { return Color{2, 2, 2}; });
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const auto thin = makeCache(1, 3, 2), single = makeCache(1, 1, 1);
    for (const float x : {-kInfinity, -1e30f, -5.0f, 0.0f, 0.5f, 1e30f, kInfinity,
                          std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_FLOAT_EQ(lookup(*thin, {x, x, x}, illuminator).r, 2) << x;
        EXPECT_FLOAT_EQ(lookup(*single, {x, x, x}, illuminator).r, 2) << x;
    }
    EXPECT_EQ(illuminator.illuminations, 5 + 1) << "each voxel once, and none beside the grid";
}

TEST(LightCache, TooMuchLight_IsNotStored) {
    FieldIlluminator illuminator([](const Vector& p) -> Color {
        return p.x == 1 ? Color{1e21f, 0, 0} : Color{0.5f, 0.5f, 0.5f};
    });
    illuminator.kind = kKindGI;
    const auto cache = makeCache(3, 3, 3);
    const Color light = lookup(*cache, {0.5f, 0, 0}, illuminator);
    EXPECT_FLOAT_EQ(light.g, 0.5f) << "lit at the position itself";
    EXPECT_EQ(illuminator.lastKind, kKindGI);
    EXPECT_FALSE(cache->isLit(1));
    EXPECT_TRUE(cache->isLit(0));
}

TEST(LightCache, HugeGrid_IsRefused) {
    NmbGridLightCacheBasic cache;
    const int size[3] = {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF};
    EXPECT_FALSE(cache.allocate(VolumeShader(), size));
    FieldIlluminator illuminator([](const Vector&) { return Color{1, 1, 1}; });
    EXPECT_EQ(lookup(cache, {1, 1, 1}, illuminator).r, 0);
}

}  // namespace
}  // namespace nimbra::test
