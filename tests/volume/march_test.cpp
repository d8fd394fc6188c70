// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The marcher against analytic values and laws.
#include "volume/march.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "support/threads.h"
#include "volume/gizmo_split.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using TessUtils::Color;
using TessUtils::TracePoint;

/// Relative error of the cheap exponential; a product of n has n times that.
constexpr double kFastExpError = 7.5e-5;

TestIlluminator::Light whiteLight() {
    TestIlluminator::Light light;
    light.color = {1, 1, 1};
    return light;
}

/// A homogeneous box without emission. `density` per cell, step and sizes in cells.
std::unique_ptr<TestVolume> makeBox(int nx, int ny, int nz, float density, double step = 0.9) {
    auto box = std::make_unique<TestVolume>(nx, ny, nz);
    box->fill(kSmoke, density);
    box->params.set("earg", 0);
    box->params.set("transpmode", 0);
    box->params.set("smoketransp", std::exp(-1.0));
    box->params.set("stoptransp", 0);
    box->params.set("skiptransp", 1);
    box->params.set("rendstep", std::round(step * 100));
    box->params.set("lightcache", 0);
    return box;
}

std::unique_ptr<TestVolume> loadedBox(int nx, int ny, int nz, float density, double step = 0.9) {
    auto box = makeBox(nx, ny, nz, density, step);
    box->load();
    return box;
}

/// Cells that a march over `length` cells counts: whole steps, the last one reaching the end or
/// beyond.
double marchedLength(double length, double step) {
    return step * (std::floor(length / step + 1e-6) + 1);
}

double transmittance(const std::vector<const VolumeShader*>& shaders, const ShadeQuery& query) {
    TestIlluminator illuminator;
    return 1.0 - shadeOver({}, query, shaders, illuminator).opacity.r;
}

TEST(Marcher, HomogeneousBox_TransmittanceIsExponential) {
    for (const double step : {0.07, 0.25, 0.9, 1.3, 2.0}) {
        for (const float density : {0.02f, 0.15f, 0.6f}) {
            const auto box = loadedBox(10, 6, 6, density, step);
            const double got = transmittance({&box->shader}, rayAlongX(2.3, 3.1, -4, 30));
            const double length = marchedLength(10, step);
            const double expected = std::exp(-density * length);
            EXPECT_NEAR(got, expected, expected * kFastExpError * length / step + 2e-6)
                << "step " << step << ", density " << density;
            EXPECT_NEAR(got, std::exp(-density * 10), density * step) << "within one step";
        }
    }
}

TEST(Marcher, DensityCountsPerCell_WhereverTheBoxStands) {
    const auto plain = loadedBox(10, 6, 6, 0.3f, 0.5);
    const double expected = transmittance({&plain->shader}, rayAlongX(2.3, 3.1, -4, 30));

    const auto placed = makeBox(10, 6, 6, 0.3f, 0.5);
    // Turned by a quarter around z, three times as large, moved far away.
    placed->nodeTransform.f[0] = {0, 3, 0};
    placed->nodeTransform.f[1] = {-3, 0, 0};
    placed->nodeTransform.f[2] = {0, 0, 3};
    placed->nodeTransform.offs = {5000, -300, 70};
    placed->load();
    ShadeQuery query;
    query.rayStart = {5000 - 3 * 2.3, -300 - 20, 70 + 3 * 3.1};
    query.rayEnd = {5000 - 3 * 2.3, -300 + 90, 70 + 3 * 3.1};
    EXPECT_NEAR(transmittance({&placed->shader}, query), expected, 1e-4);

    placed->shader.cell_aspect[0] = 2;
    EXPECT_NEAR(transmittance({&placed->shader}, query), expected * expected, 1e-4);
}

TEST(Marcher, RayInsideTheBox_MarchesItsOwnLength) {
    const auto box = loadedBox(20, 6, 6, 0.1f, 0.5);
    const double got = transmittance({&box->shader}, rayAlongX(3, 3, 4.1, 9.3));
    EXPECT_NEAR(got, std::exp(-0.1 * marchedLength(5.2, 0.5)), 11 * kFastExpError);
    EXPECT_EQ(transmittance({&box->shader}, rayAlongX(3, 3, 21, 30)), 1) << "behind the box";
    EXPECT_EQ(transmittance({&box->shader}, rayAlongX(6.5, 3, -5, 30)), 1) << "beside the box";
}

TEST(Marcher, OverlappingBoxes_GiveTheProduct) {
    const auto a = loadedBox(12, 6, 6, 0.11f, 0.4);
    const auto b = makeBox(9, 8, 8, 0.2f, 0.7);
    b->nodeTransform.offs = {5.3, -1, -1};
    b->load();
    const auto c = makeBox(3, 8, 8, 0.3f, 0.3);
    c->nodeTransform.offs = {-2.2, -1, -1};
    c->load();
    ShadeQuery ray = rayAlongX(2.2, 3.3, -10, 40);
    ray.rayEnd.y = 4.1;
    const double ta = transmittance({&a->shader}, ray);
    const double tb = transmittance({&b->shader}, ray);
    const double tc = transmittance({&c->shader}, ray);
    ASSERT_LT(std::max({ta, tb, tc}), 0.6);
    EXPECT_NEAR(transmittance({&a->shader, &b->shader, &c->shader}, ray), ta * tb * tc, 1e-5);

    TestIlluminator illuminator;
    a->shader.noscatter = b->shader.noscatter = c->shader.noscatter = kScatterDisabled;
    const double sa = shadowOf(ray, {&a->shader}, illuminator).r;
    const double sb = shadowOf(ray, {&b->shader}, illuminator).r;
    const double both = shadowOf(ray, {&a->shader, &b->shader}, illuminator).r;
    EXPECT_NEAR(1 - both, (1 - sa) * (1 - sb), 1e-5);
}

/// Containers that overlap and glow in different colours.
std::vector<std::unique_ptr<TestVolume>> glowingBoxes(int count) {
    std::vector<std::unique_ptr<TestVolume>> boxes;
    for (int i = 0; i < count; ++i) {
        auto box =
            makeBox(6, 6, 6, 0.05f + 0.03f * static_cast<float>(i % 5), 0.35 + 0.09 * (i % 4));
        box->nodeTransform.offs = {i * 0.83, 0, 0};
        box->params.set("earg", 1);
        box->fill(kTemperature, 0.5f);
        box->luts.emission = std::make_unique<float[]>(3 * kLutEntries);
        for (int entry = 0; entry < kLutEntries; ++entry)
            box->luts.emission[3 * entry + i % 3] = 1.0f + static_cast<float>(i);
        box->load();
        boxes.push_back(std::move(box));
    }
    return boxes;
}

std::vector<const VolumeShader*> shadersOf(
    const std::vector<std::unique_ptr<TestVolume>>& volumes) {
    std::vector<const VolumeShader*> shaders;
    shaders.reserve(volumes.size());
    for (const auto& volume : volumes)
        shaders.push_back(&volume->shader);
    return shaders;
}

TEST(Marcher, OrderOfContainers_ChangesNothing) {
    // More than one pool block of segments, more than the inline list of active ones.
    const auto boxes = glowingBoxes(40);
    std::vector<const VolumeShader*> shaders = shadersOf(boxes);
    ShadeQuery ray = rayAlongX(3, 3, -5, 60);
    TestIlluminator illuminator;
    const ShadeResult expected = shadeOver({1, 1, 1}, ray, shaders, illuminator);
    ASSERT_GT(expected.opacity.r, 0.99f);
    ASSERT_GT(expected.color.g, 0.1f);
    for (int turn = 0; turn < 5; ++turn) {
        std::rotate(shaders.begin(), shaders.begin() + 7, shaders.end());
        std::swap(shaders[3], shaders[30]);
        const ShadeResult got = shadeOver({1, 1, 1}, ray, shaders, illuminator);
        EXPECT_EQ(got.opacity, expected.opacity);
        EXPECT_EQ(got.color, expected.color);
    }
}

/// Asks every shader, in reverse.
class ListAsTree : public ShaderTree {
public:
    explicit ListAsTree(const std::vector<const VolumeShader*>& list) : shaders(list) {}
    bool isBuilt() const override { return built; }
    int intersect(const TracePoint& origin, const TracePoint& dir, float maxt, float time,
                  VolumeShaderBBoxIntersectEntry* entries, int capacity) const override {
        ++queries;
        int found = 0;
        for (std::size_t i = shaders.size(); i-- > 0 && found < capacity;) {
            entries[found].shader = shaders[i];
            found += enterGrid(entries[found].ray, *shaders[i], {origin, dir, maxt, time});
        }
        return found;
    }
    bool built = true;
    mutable int queries = 0;

private:
    const std::vector<const VolumeShader*>& shaders;
};

TEST(Marcher, TreeOfContainers_IsAskedFromElevenOn) {
    const auto boxes = glowingBoxes(15);
    const std::vector<const VolumeShader*> some = shadersOf(boxes);
    for (const std::size_t count : {10u, 11u, 15u, 1025u}) {
        std::vector<const VolumeShader*> shaders;
        for (std::size_t i = 0; i < count; ++i)
            shaders.push_back(some[i % some.size()]);
        TestIlluminator illuminator;
        ShadeQuery ray = rayAlongX(3, 3, -5, 60);
        const ShadeResult expected = shadeOver({1, 1, 1}, ray, shaders, illuminator);
        ListAsTree tree(shaders);
        ray.tree = &tree;
        const ShadeResult got = shadeOver({1, 1, 1}, ray, shaders, illuminator);
        EXPECT_EQ(tree.queries, count > 10 ? 1 : 0);
        EXPECT_NEAR(got.color.r, expected.color.r, 1e-4);
        EXPECT_NEAR(got.opacity.g, expected.opacity.g, 1e-5);

        tree.built = false;
        tree.queries = 0;
        shadeOver({1, 1, 1}, ray, shaders, illuminator);
        EXPECT_EQ(tree.queries, 0);
    }
}

TEST(Marcher, StopTransparency_EndsTheRayOpaque) {
    auto box = makeBox(40, 6, 6, 1.0f, 0.5);
    box->params.set("stoptransp", 0.01);
    box->load();
    TestIlluminator illuminator;
    const ShadeResult result =
        shadeOver({9, 9, 9}, rayAlongX(3, 3, -1, 50), {&box->shader}, illuminator);
    EXPECT_EQ(result.opacity, (Color{1, 1, 1}));
    EXPECT_EQ(result.color.r, 0) << "nothing of the background is left";
    // e^-4.61 = 0.01: ten steps, and one that is composited when the next is taken.
    EXPECT_NEAR(illuminator.stepCounter, 10, 1);

    box->shader.noscatter = kScatterDisabled;
    EXPECT_EQ(shadowOf(rayAlongX(3, 3, -1, 50), {&box->shader}, illuminator).r, 1);
}

/// A box of smoke that is lit by white light from everywhere.
std::unique_ptr<TestVolume> litBox(TestIlluminator& illuminator) {
    auto box = makeBox(9, 6, 6, 0.25f, 0.5);
    box->fill(kSmoke, [](int x, int, int) { return 0.05f + 0.06f * static_cast<float>(x); });
    box->params.simpleColor = {0.9f, 0.6f, 0.3f};
    box->load();
    illuminator.lights = {whiteLight()};
    return box;
}

TEST(Marcher, ProbabilisticColor_ConvergesToBlended) {
    TestIlluminator illuminator;
    const auto box = litBox(illuminator);
    ShadeQuery ray = rayAlongX(2.6, 3.2, -2, 20);
    const ShadeResult blended = shadeOver({}, ray, {&box->shader}, illuminator);
    ASSERT_GT(blended.color.r, 0.5f);
    for (const int samples : {1, 7, 50, 2000}) {
        ray.probabilisticSamples = samples;
        const ShadeResult got = shadeOver({}, ray, {&box->shader}, illuminator);
        // Stratified thresholds: one sample more or less than the transmittance asks for.
        const double error = 1.0 / samples + 1e-5;
        EXPECT_NEAR(got.opacity.r, blended.opacity.r, error) << samples;
        EXPECT_NEAR(got.color.r, blended.color.r, error) << samples;
        EXPECT_NEAR(got.color.b, blended.color.b, error) << samples;
    }
}

TEST(Marcher, ProbabilisticSteps_ConvergeToBlended) {
    TestIlluminator illuminator;
    const auto box = litBox(illuminator);
    const ShadeQuery ray = rayAlongX(2.6, 3.2, -2, 20);
    const ShadeResult blended = shadeOver({}, ray, {&box->shader}, illuminator);
    box->shader.flags |= kProbPrimary;
    constexpr int kRays = 20000;
    double opacity = 0, red = 0;
    for (int i = 0; i < kRays; ++i) {
        const ShadeResult one = shadeOver({}, ray, {&box->shader}, illuminator);
        ASSERT_TRUE(one.opacity.r == 0 || one.opacity.r == 1);
        opacity += one.opacity.r;
        red += one.color.r;
    }
    // Four standard deviations of a mean of zeros and ones.
    const double error = 4 * 0.5 / std::sqrt(kRays);
    EXPECT_NEAR(opacity / kRays, blended.opacity.r, error);
    EXPECT_NEAR(red / kRays, blended.color.r, error);
}

/// Homogeneous fire whose tables hold the same value everywhere.
std::unique_ptr<TestVolume> fireBox(int mode, float smoke) {
    auto box = makeBox(8, 6, 6, smoke, 0.5);
    box->fill(kTemperature, 0.4f);
    box->params.set("earg", 1);
    box->params.set("darg", 0);
    box->params.set("skiptransp", 0.999);
    box->params.set("fire_opacity_mode", mode);
    box->luts.emission = std::make_unique<float[]>(3 * kLutEntries);
    box->luts.fireOpacity = std::make_unique<float[]>(kLutEntries);
    for (int i = 0; i < kLutEntries; ++i) {
        const float value[3] = {2.0f, 1.0f, 0.25f};
        std::copy(value, value + 3, &box->luts.emission[3 * i]);
        box->luts.fireOpacity[i] = -0.3f;
    }
    box->load();
    return box;
}

TEST(Marcher, FireOverBlack_GivesTheTablesValues) {
    TestIlluminator illuminator;
    const ShadeQuery ray = rayAlongX(3, 3, -2, 20);
    const double length = marchedLength(8, 0.5);
    {
        const auto box = fireBox(kFireUsesSmoke, 0.1f);
        const ShadeResult result = shadeOver({}, ray, {&box->shader}, illuminator);
        const double opacity = 1 - std::exp(-0.1 * length);
        EXPECT_NEAR(result.opacity.r, opacity, 2e-3);
        EXPECT_NEAR(result.color.r, 2.0 * opacity, 4e-3);
        EXPECT_NEAR(result.color.b, 0.25 * opacity, 1e-3);
    }
    {
        // Seen without smoke: light by length, not by opacity.
        const auto box = fireBox(kFireVisible, 0.0f);
        const ShadeResult result = shadeOver({}, ray, {&box->shader}, illuminator);
        EXPECT_EQ(result.opacity.r, 0);
        EXPECT_NEAR(result.color.r, 2.0 * length, 1e-4);
        EXPECT_NEAR(result.color.g, 1.0 * length, 1e-4);
    }
    {
        const auto box = fireBox(kFireOwnOpacity, 0.0f);
        const ShadeResult result = shadeOver({}, ray, {&box->shader}, illuminator);
        const double opacity = 1 - std::exp(-0.3 * length);
        EXPECT_NEAR(result.opacity.r, opacity, 2e-3);
        EXPECT_NEAR(result.color.r, 2.0 * opacity, 4e-3);
    }
}

TEST(Marcher, FireOnGIRays_IsLeftToTheLightsThatStandForIt) {
    TestIlluminator illuminator;
    illuminator.kind = kKindGI;
    const auto box = fireBox(kFireVisible, 0.0f);
    box->shader.flags &= ~kProbBounces;
    const ShadeQuery ray = rayAlongX(3, 3, -2, 20);
    EXPECT_EQ(shadeOver({}, ray, {&box->shader}, illuminator).color.r, 0);
    box->shader.flags &= ~kExtraLights;
    EXPECT_GT(shadeOver({}, ray, {&box->shader}, illuminator).color.r, 1);
}

TEST(Marcher, RayClasses_DecideWhoTakesPart) {
    const auto box = loadedBox(8, 6, 6, 0.2f, 0.5);
    const ShadeQuery ray = rayAlongX(3, 3, -2, 20);
    box->shader.noscatter = kScatterDisabled;
    VolumeShader& shader = box->shader;
    TestIlluminator lit;
    lit.lights = {whiteLight()};
    EXPECT_GT(shadeOver({}, ray, {&shader}, lit).color.r, 0.1f);
    EXPECT_GT(shadowOf(ray, {&shader}, lit).r, 0.5f);

    lit.kind = kKindDiffuse;
    lit.bounces = 11;
    const ShadeResult beyond = shadeOver({}, ray, {&shader}, lit);
    EXPECT_EQ(beyond.color.r, 0) << "past its bounce limit it gives no colour";
    EXPECT_GT(beyond.opacity.r, 0.5f) << "but blocks";
    lit.bounces = 10;
    const float whole = shadeOver({}, ray, {&shader}, lit).color.r;
    shader.giMultiplier = 0.5f;
    EXPECT_NEAR(shadeOver({}, ray, {&shader}, lit).color.r, whole * 0.5f, 1e-6);

    shader.visibility |= kNoShadow;
    EXPECT_EQ(shadowOf(ray, {&shader}, lit).r, 0);
    EXPECT_GT(shadeOver({}, ray, {&shader}, lit).opacity.r, 0.5f);
    lit.exclusionMask = kNoShadow;
    EXPECT_EQ(shadeOver({}, ray, {&shader}, lit).marched, 0);

    lit.exclusionMask = 0;
    lit.kind = kKindGI;
    shader.visibility &= ~kVisibleInGI;
    EXPECT_EQ(shadeOver({}, ray, {&shader}, lit).marched, 0);
    lit.kind = kKindGI | kKindAlwaysVisible;
    EXPECT_EQ(shadeOver({}, ray, {&shader}, lit).marched, 1);
}

TEST(Marcher, Shadows_FollowStrengthAndScale) {
    const auto box = loadedBox(8, 6, 6, 0.3f, 0.5);
    VolumeShader& shader = box->shader;
    const ShadeQuery ray = rayAlongX(3, 3, -2, 20);
    TestIlluminator other;
    TestIlluminator own;
    own.from = &shader;
    shader.noscatter = kScatterDisabled;
    shader.rendshadstep = 0.5f;
    const double steps = marchedLength(8, 0.5) / 0.5;
    const double a = 1 - std::exp(-0.3 * 0.5);
    shader.shad_strength = 0.4f;
    EXPECT_NEAR(shadowOf(ray, {&shader}, other).r, 1 - std::pow(1 - 0.4 * a, steps), 2e-4);
    EXPECT_NEAR(shadowOf(ray, {&shader}, own).r, 1 - std::pow(1 - a, steps), 1e-3)
        << "full strength on itself";
    shader.shadowDensityScale = 0.5f;
    EXPECT_NEAR(shadowOf(ray, {&shader}, own).r, 1 - std::pow(1 - 0.5 * a, steps), 1e-3);

    // White smoke passes on what it takes away: 1 / (depth + 1), on itself twice that.
    shader.shadowDensityScale = 1;
    shader.noscatter = kScatterApproximateShadows;
    shader.simpleColor = {1, 1, 1};
    shader.shad_strength = 1;
    const double depth = a * steps;
    EXPECT_NEAR(1 - shadowOf(ray, {&shader}, other).r, 1 / (depth + 1), 1e-3);
    EXPECT_NEAR(1 - shadowOf(ray, {&shader}, own).r, 2 / (depth + 1), 1e-3);
    // Black smoke takes all: 1 / exp(depth).
    shader.simpleColor = {0, 0, 0};
    EXPECT_NEAR(1 - shadowOf(ray, {&shader}, other).r, std::exp(-depth), 1e-3);
}

TEST(Marcher, ShadowWithoutStop_IsNeverBlockedEarly) {
    auto box = makeBox(30, 6, 6, 2.0f, 0.5);
    box->load();
    box->shader.simpleColor = {0.99f, 0.99f, 0.99f};
    box->shader.noscatter = kScatterApproximateShadows;
    TestIlluminator illuminator;
    const ShadeQuery ray = rayAlongX(3, 3, -2, 40);
    ASSERT_EQ(box->shader.stoptransp, 0);
    EXPECT_LT(shadowOf(ray, {&box->shader}, illuminator).r, 1);
    box->shader.stoptransp = 0.3f;
    EXPECT_EQ(shadowOf(ray, {&box->shader}, illuminator).r, 1);
}

TEST(Marcher, Cutter_SplitsTheRay) {
    const double step = 0.05, density = 0.1;
    auto box = makeBox(20, 6, 6, static_cast<float>(density), step);
    box->load();
    ShapesGizmo gizmo({{true, {4, 3, 3}, 2, {}, {}},
                       {false, {}, 0, {9, 0, 0}, {14, 6, 6}},
                       {true, {19.5f, 3, 3}, 2, {}, {}}});
    // The world lies 1 to the right of the cutter's own space.
    NMBUtils::Matrix34 place;
    place.offset = {1, 0, 0};
    box->shader.setGizmo(&gizmo, place, place);
    const ShadeQuery ray = rayAlongX(3, 3, -6, 40);
    // 4 inside the first sphere, 5 in the box; the last sphere begins at 18.5 and the grid ends it
    // at 20. Each span may count a step more.
    const double inside = 4 + 5 + 1.5;
    const auto expectLength = [&](const ShadeQuery& query, double length, int spans) {
        EXPECT_NEAR(-std::log(transmittance({&box->shader}, query)) / density,
                    length + spans * step / 2, spans * step / 2 + 0.02);
    };
    expectLength(ray, inside, 3);
    box->shader.flags |= kInvertGizmo;
    expectLength(ray, 20 - inside, 3);
    expectLength(rayAlongX(0.5, 0.5, -6, 8), 8, 1);
    box->shader.flags &= ~kInvertGizmo;
    EXPECT_EQ(transmittance({&box->shader}, rayAlongX(0.5, 0.5, -6, 8)), 1) << "no body is met";
    expectLength(rayAlongX(3, 3, 6.5, 11), 0.5 + 1, 2);

    NMBUtils::Matrix34 later = place;
    later.offset = {1001, 0, 0};
    box->shader.setGizmo(&gizmo, place, later);
    ShadeQuery moving = ray;
    moving.time = 0.001f;
    expectLength(moving, 4 + 5 + 0.5, 3);
}

TEST(Marcher, EmptyMap_HidesVoxels) {
    const auto box = loadedBox(16, 6, 6, 0.1f, 0.25);
    const ShadeQuery ray = rayAlongX(3, 3, -6, 40);
    const double full = transmittance({&box->shader}, ray);
    VolumeShader& shader = box->shader;
    shader.emptyMapCount = 16 * 6 * 6;
    shader.emptyMapBits = std::make_unique<std::uint32_t[]>(shader.emptyMapCount / 32 + 1);
    EXPECT_EQ(transmittance({&shader}, ray), full);
    for (int i = 0; i < shader.emptyMapCount; ++i) {
        if (i % 16 >= 8)
            shader.emptyMapBits[i / 32] |= 1u << i % 32;
    }
    EXPECT_NEAR(std::log(transmittance({&shader}, ray)), std::log(full) / 2, 0.1 * 0.25);
}

/// Smoke with holes, clear cells, and what is no smoke.
float unevenSmoke(int x, int y, int z) {
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), -0.4f, 1e38f,
                         std::numeric_limits<float>::infinity()};
    const int i = x * 7 + y * 3 + z;
    return x % 11 < 3 ? 0.0f : i % 29 == 0 ? odd[i / 29 % 4] : 0.02f + 0.01f * float(i % 13);
}

TEST(Marcher, PlainSmoke_IsNoOtherThanAnySmoke) {
    const auto plain = makeBox(30, 6, 6, 0.0f);
    plain->fill(kSmoke, unevenSmoke);
    for (int i = 0; i < 3; ++i)
        plain->fill(kColorR + i, [i](int x, int y, int) { return 0.1f * float((x + i * y) % 7); });
    plain->params.set("jitter", 1);
    plain->params.set("darg", 6);  // colours of the grid
    plain->load();
    VolumeShader& shader = plain->shader;
    const std::uint32_t flags = shader.flags;
    ASSERT_TRUE(shader.useGridColor && (shader.sampleMask & kSampleColor) != 0);
    const std::uint32_t mask = shader.sampleMask;
    shader.shadowDensityScale = 0.7f;
    shader.shad_strength = 0.9f;
    shader.simpleColor = {0.9f, 0.5f, 0.1f};
    std::vector<float> table(kLutEntries);
    for (int i = 0; i < kLutEntries; ++i)
        table[i] = i % 500 < 100 ? 0.0f : -0.0007f * static_cast<float>(i % 1900);
    // With a map of empty voxels that marks none, steps go the general way.
    shader.emptyMapBits = std::make_unique<std::uint32_t[]>(30 * 6 * 6 / 32 + 1);
    const auto answers = [&](bool general) {
        shader.emptyMapCount = general ? 30 * 6 * 6 : 0;
        std::vector<Color> out;
        for (int i = 0; i < 30; ++i) {
            TestIlluminator illuminator;
            illuminator.from = i % 2 == 0 ? &shader : nullptr;
            illuminator.lights = {whiteLight()};
            ShadeQuery ray = rayAlongX(0.19 * i, 3, -3, 8 + i);
            ray.rayEnd.z = 5.5;
            out.push_back(shadowOf(ray, {&shader}, illuminator));
            const ShadeResult seen = shadeOver({}, ray, {&shader}, illuminator);
            out.insert(out.end(), {seen.color, seen.opacity});
        }
        return out;
    };
    struct Case {
        std::uint32_t flag = 0;
        bool table = false;
        std::uint32_t wrap = 0;
        bool gridColor = false;
    };
    for (const Case& c : {Case{}, Case{kHeatHaze}, Case{kProbPrimary, true}, Case{0, true},
                          Case{0, false, kSampleWrapX}, Case{0, true, kSampleWrapY},
                          Case{0, false, 0, true}, Case{0, true, kSampleWrapX, true}})
        for (const int scatter : {kScatterDisabled, kScatterApproximateShadows})
            for (const float stop : {0.0f, 0.3f, 0.7f}) {
                shader.noscatter = scatter;
                shader.stoptransp = stop;
                shader.flags = flags | c.flag;
                shader.useGridColor = c.gridColor;
                shader.sampleMask = c.gridColor ? mask : mask & ~kSampleColor;
                shader.wrapFlags = c.wrap;
                shader.opacityTable = c.table ? table.data() : nullptr;
                EXPECT_EQ(answers(false), answers(true))
                    << "scatter " << scatter << ", stop " << stop << ", flag " << c.flag
                    << ", table " << c.table << ", wrap " << c.wrap << ", colour " << c.gridColor;
            }
}

TEST(Marcher, StepsForOpacityAlone_AreThoseOfShadowRays) {
    auto box = makeBox(30, 6, 6, 0.0f);
    box->fill(kSmoke, unevenSmoke);
    box->params.set("sampler", 2);
    box->params.set("softb", 1.5);
    box->params.set("pmbounces", 0);
    box->load();
    box->shader.shadowDensityScale = 0.7f;
    for (const std::uint32_t kind :
         {std::uint32_t{kKindTransparency}, kKindTransparency | kKindGI}) {
        TestIlluminator illuminator;
        illuminator.kind = kind;
        const VolumeShader* shader = &box->shader;
        ShadeQuery ray = rayAlongX(2.4, 3.1, -2, 40);
        ray.shaders = &shader;
        ray.count = 1;
        RayData rays[2];
        for (RayData& data : rays) {
            data.illuminator = &illuminator;
            ASSERT_FALSE(BuildSegments(data, ray));
        }
        RaySegment &full = *rays[0].head, &lean = *rays[1].head;
        int steps = 0;
        bool more = true;
        for (; more; ++steps) {
            more = shader->stepSegment(full, illuminator, 0, steps == 0, nullptr);
            ASSERT_EQ(shader->stepSegmentAlpha(lean, illuminator, 0, steps == 0), more);
            ASSERT_EQ(lean.samplePos, full.samplePos);
            ASSERT_EQ(lean.alpha, full.alpha) << "kind " << kind << " at " << full.tCur;
        }
        EXPECT_GT(steps, 5);
    }
}

TEST(Marcher, Jitter_MovesTheSamplesNotTheWalk) {
    auto box = makeBox(12, 6, 6, 0.0f, 1.0);
    box->fill(kSmoke, [](int x, int, int) { return static_cast<float>(x); });
    box->params.set("jitter", 1);
    box->params.set("smoketransp", std::exp(-0.01));
    box->load();
    const auto depth = [&](float jitter) {
        TestIlluminator illuminator;
        illuminator.randomNumbers = {jitter};
        const ShadeResult result =
            shadeOver({}, rayAlongX(3, 3, -0.5, 10.5), {&box->shader}, illuminator);
        return -std::log(1 - result.opacity.r) / 0.01;
    };
    // Samples at 1 - j, 2 - j ... 10 - j and 10.5 - j, each counting one cell.
    for (const float jitter : {0.0f, 0.3f, 0.75f})
        EXPECT_NEAR(depth(jitter), 55 + 10.5 - 11 * jitter, 0.05) << jitter;
}

TEST(Marcher, GammaActsOnTheVolumesOwnColor) {
    TestIlluminator illuminator;
    const auto box = litBox(illuminator);
    ShadeQuery ray = rayAlongX(2.6, 3.2, -2, 20);
    const ShadeResult plain = shadeOver({}, ray, {&box->shader}, illuminator);
    ray.gamma = 2.2f;
    const ShadeResult curved = shadeOver({}, ray, {&box->shader}, illuminator);
    const double alpha = plain.opacity.g;
    EXPECT_NEAR(curved.color.g, std::pow(plain.color.g / alpha, 2.2) * alpha, 1e-5);
    EXPECT_EQ(curved.opacity, plain.opacity);
}

TEST(Marcher, Elements_AreSummedOverTheRay) {
    TestIlluminator illuminator;
    const auto box = litBox(illuminator);
    illuminator.wantedElements = 1u << kElementDiffuse | 1u << kElementTotalLighting |
                                 1u << kElementRawTotalLighting | 1u << kElementAge;
    box->shader.volzdepth = 1;
    const ShadeResult result =
        shadeOver({}, rayAlongX(2.6, 3.2, -2, 20), {&box->shader}, illuminator);
    ASSERT_EQ(illuminator.written.size(), static_cast<std::size_t>(kElementCount));
    const auto& written = illuminator.written;
    EXPECT_NEAR(written[kElementDiffuse].g, result.color.g, 1e-5) << "white light";
    EXPECT_NEAR(written[kElementTotalLighting].g, result.color.g, 1e-5);
    EXPECT_NEAR(written[kElementRawTotalLighting].g, result.opacity.g, 1e-5);
    // Age asks for the depth, too: a mean of distances through the box, 2 to 11 from the start.
    EXPECT_GT(written[kElementZDepth].g, 2 * result.opacity.g);
    EXPECT_LT(written[kElementZDepth].g, 11 * result.opacity.g);
}

TEST(Marcher, NormalElement_PointsDownTheDensity) {
    TestIlluminator illuminator;
    const auto box = litBox(illuminator);
    illuminator.wantedElements = 1u << kElementNormal;
    // Blended, by chance, and by chance beyond the volume's bounces.
    for (const int way : {0, 1, 2}) {
        ShadeQuery ray = rayAlongX(2.6, 3.2, -2, 20);
        ray.probabilisticSamples = way > 0 ? 1 : 0;
        illuminator.kind = way > 1 ? kKindDiffuse : 0u;
        illuminator.bounces = box->shader.bounces + 1;
        illuminator.randomNumbers = {0.5f, 0.5f, 0.5f};
        shadeOver({}, ray, {&box->shader}, illuminator);
        const Color normal = illuminator.written[kElementNormal];
        EXPECT_LT(normal.r, -0.3f) << "density rises along x, way " << way;
        EXPECT_NEAR(normal.g, 0, 1e-3) << way;
    }
}

TEST(Marcher, LightCache_GivesTheSamePictureOnManyThreads) {
    TestIlluminator once;
    auto box = litBox(once);
    box->params.set("lightcache", 1);
    box->load();
    const auto picture = [&](std::vector<Color>& out) {
        TestIlluminator illuminator;
        illuminator.lights = {{{1, 1, 1}, true, {0.3f, 1, 0.2f}, 30}};
        illuminator.scene = {&box->shader};
        for (int i = 0; i < 60; ++i)
            out.push_back(
                shadeOver({}, rayAlongX(0.1 * i, 3.2, -2, 20), {&box->shader}, illuminator).color);
    };
    std::vector<Color> expected;
    picture(expected);
    box->load();
    std::vector<Color> got[4];
    onThreads(4, [&](int t) { picture(got[t]); });
    for (const std::vector<Color>& out : got)
        EXPECT_EQ(out, expected);
}

// ---- What must end, and stay finite -------------------------------------------------------------

void expectFinite(const ShadeResult& result) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(std::isfinite(result.color[i]));
        EXPECT_GE(result.opacity[i], 0);
        EXPECT_LE(result.opacity[i], 1);
    }
}

TEST(MarcherLimits, SenselessVoxels_GiveFinitePixels) {
    const float bad[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         1e38f,
                         -1e38f,
                         -3.0f};
    for (const int sampler : {0, 1, 2}) {
        for (const int mode : {kFireUsesSmoke, kFireVisible, kFireOwnOpacity}) {
            auto box = fireBox(mode, 0.1f);
            const auto poison = [&](int x, int y, int z) {
                const int i = x + 3 * y + 5 * z;
                return i % 4 == 0 ? bad[i / 4 % 6] : 0.1f;
            };
            box->fill(kSmoke, poison);
            box->fill(kTemperature, poison);
            box->params.set("sampler", sampler);
            box->params.set("darg", 5);
            box->load();
            TestIlluminator illuminator;
            illuminator.lights = {whiteLight()};
            for (int i = 0; i < 20; ++i) {
                const ShadeQuery ray = rayAlongX(0.3 * i, 0.29 * i, -2, 20);
                expectFinite(shadeOver({1, 1, 1}, ray, {&box->shader}, illuminator));
                const Color shadow = shadowOf(ray, {&box->shader}, illuminator);
                EXPECT_TRUE(shadow.r >= 0 && shadow.r <= 1);
            }
        }
    }
}

TEST(MarcherLimits, SenselessRays_MeetNothingOrEnd) {
    const auto box = loadedBox(8, 6, 6, 0.2f);
    TestIlluminator illuminator;
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const double x : {kNaN, kInfinity, -kInfinity}) {
        ShadeQuery ray = rayAlongX(3, 3, -2, 20);
        ray.rayEnd.y = x;
        const Color background{0.5f, 0.5f, 0.5f};
        EXPECT_EQ(shadeOver(background, ray, {&box->shader}, illuminator).marched, 0);
        ray = rayAlongX(x, 3, -2, 20);
        EXPECT_EQ(shadeOver(background, ray, {&box->shader}, illuminator).color, background);
    }
    EXPECT_EQ(shadeOver({}, rayAlongX(3, 3, 2, 2 + 1e-7), {&box->shader}, illuminator).marched, 0);
    expectFinite(shadeOver({}, rayAlongX(3, 3, -1e18, 1e18), {&box->shader}, illuminator));
}

TEST(MarcherLimits, StepsThatDoNotAdvance_End) {
    const ShadeQuery ray = rayAlongX(3, 3, -2, 20);
    for (const float step : {0.0f, -1.0f, 1e-30f, std::numeric_limits<float>::quiet_NaN()}) {
        for (const std::uint32_t flag : {0u, std::uint32_t{kHeatHaze}}) {
            const auto box = loadedBox(8, 6, 6, 0.2f);
            box->shader.rendstep = box->shader.rendshadstep = step;
            box->shader.flags |= flag;
            TestIlluminator illuminator;
            expectFinite(shadeOver({}, ray, {&box->shader}, illuminator));
            const Color shadow = shadowOf(ray, {&box->shader}, illuminator);
            EXPECT_TRUE(shadow.r >= 0 && shadow.r <= 1);
        }
    }
}

TEST(MarcherLimits, GridsWithoutExtent_ShowNothing) {
    TestIlluminator illuminator;
    const ShadeQuery ray = rayAlongX(0, 0, -2, 20);
    const auto empty = loadedBox(0, 4, 4, 1);
    EXPECT_EQ(shadeOver({}, ray, {&empty->shader}, illuminator).marched, 0);

    auto flat = makeBox(4, 4, 4, 1);
    flat->nodeTransform.f[1] = {0, 0, 0};
    flat->load();
    EXPECT_EQ(shadeOver({}, ray, {&flat->shader}, illuminator).marched, 0);

    VolumeShader unloaded;
    EXPECT_EQ(shadeOver({}, ray, {&unloaded}, illuminator).marched, 0);
    VoxelSample sample;
    unloaded.sampleVoxel({1, 1, 1}, sample, kSampleScalars, nullptr, 0, -1);
    EXPECT_EQ(sample.t, 0);
    EXPECT_EQ(sample.position.x, 0);
}

}  // namespace
}  // namespace nimbra::test
