// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/illuminator_tessra.h"

#include <gtest/gtest.h>

#include "volume/ray_kind.h"
#include "volume/ray_segment.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {
namespace {

using namespace TessUtils;

/// A host with one light, which keeps what it was asked.
struct OneLight : LightListInterface {
    float distance = -1;
    Color arriving{1, 1, 1}, unshadowed{1, 1, 1}, indirect;
    ShadeData asked;
    std::uint32_t rayFlags = 0;
    int calls = 0;

    void illuminate(ShadingContext& context, ShadeData& data, BRDFSampler& brdf) override {
        ++calls;
        asked = data;
        rayFlags = context.ray.flags;
        Color light = arriving, raw = unshadowed;
        data.sums.direct += brdf.eval(context.ray, {0, 0, 1}, light, raw, distance);
        EXPECT_EQ(light, Color());
        EXPECT_EQ(raw, Color());
        brdf.giMode = true;
        light = raw = indirect;
        data.sums.gi += brdf.eval(context.ray, {0, 0, 1}, light, raw, -1);
    }
};

/// A volume with cells of two scene units, moved by 100 along x.
class IlluminatorTest : public testing::Test {
protected:
    VolumeShaderTessra shader;
    ShadingContext context;
    OneLight lights;
    RenderChannelListInterface channels;
    const ShadeData& asked = lights.asked;
    static constexpr std::uint32_t kCacheVoxel = kKindCacheLights | kKindCacheShadows;

    IlluminatorTest() {
        shader.flags = kVolumetric | kDiffuse;
        const int size[3] = {10, 10, 10};
        shader.setGridSize(size);
        place(100, false);
        context.lights = &lights;
        context.ray.dir = {0, 0, 1};
    }
    void place(float x, bool atEnd) {
        shader.setTransforms({{{2, 0, 0}, {0, 2, 0}, {0, 0, 2}}, {}},
                             {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {x, 0, 0}}, atEnd);
    }
    Color illuminate(IlluminatorTessra& illuminator, const Color& diffuse = {1, 1, 1}) {
        illuminator.selectShader(shader);
        Color out{7, 7, 7};
        illuminator.illuminate(out, {1, 2, 3}, diffuse, nullptr);
        return out;
    }
    Color illuminate() {
        IlluminatorTessra illuminator(&context, &channels);
        return illuminate(illuminator);
    }
    static void expectColor(const Color& got, const Color& expected) {
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(got[i], expected[i], 1e-6f) << "channel " << i;
    }
    static void expectGrey(const Color& got, float expected) {
        expectColor(got, {expected, expected, expected});
    }
};

TEST_F(IlluminatorTest, ShadeData_TellsTheHostOfTheVolumePoint) {
    context.ray.flags = kRayPath | kRayFirstHit;
    shader.visibility = kVisibleInGI | kReceivesGI;
    illuminate();
    EXPECT_EQ(asked.position, (TracePoint{102, 4, 6}));
    EXPECT_EQ(asked.normal, (Vector{0, 0, -1}));
    EXPECT_EQ(asked.flags, kShadeCastShadows | kShadeVolumePoint);
    EXPECT_EQ(asked.object, shader.hostObject());
    EXPECT_EQ(asked.onlyLights, nullptr);
    EXPECT_FALSE(asked.seedAlone);
    EXPECT_EQ(lights.rayFlags, kRayPath | kRayFirstHit | kRayVolume);
    EXPECT_EQ(context.ray.flags, kRayPath | kRayFirstHit);

    shader.visibility = kVisibleInGI;
    shader.lightLinks.push_back(nullptr);
    illuminate();
    EXPECT_EQ(asked.flags, kShadeCastShadows | kShadeVolumePoint | kShadeNotInGI);
    EXPECT_EQ(asked.onlyLights, &shader.lightLinks);
}

TEST_F(IlluminatorTest, CacheVoxel_DoesNotDependOnTheAskingRay) {
    IlluminatorTessra illuminator(&context, nullptr);
    illuminator.kind |= kCacheVoxel;
    illuminator.seed = 77;
    illuminate(illuminator, {0.01f, 0.02f, 0.03f});
    EXPECT_EQ(asked.flags & (kShadeCastShadows | kShadeFixedShadows), kShadeFixedShadows);
    EXPECT_TRUE(asked.seedAlone);
    EXPECT_EQ(asked.sampleSeed, 77u);
    EXPECT_EQ(asked.transparency, (Color{1, 1, 1}));
    // The importance of a voxel doesn't sink with its color.
    expectGrey(asked.importance, 0.1f);
    illuminate(illuminator, {0.01f, 0.5f, 0.03f});
    expectGrey(asked.importance, 0.5f);
    // Points of a moving volume follow the ray's time, voxels don't.
    place(108, true);
    const auto placeAt = [&](float time, std::uint32_t kind) {
        context.ray.time = time;
        IlluminatorTessra asking(&context, nullptr);
        asking.kind |= kind;
        illuminate(asking);
        return asked.position.x;
    };
    const double voxel = placeAt(0.25f, kCacheVoxel);
    EXPECT_NEAR(placeAt(0.25f, 0) - voxel, 0.25 * 8, 1e-5);
    EXPECT_EQ(placeAt(0.75f, kCacheVoxel), voxel);
}

TEST_F(IlluminatorTest, NearLights_AreSoftened) {
    const std::pair<float, float> cases[] = {{0.5f, 0.5f}, {0, 0}, {1e30f, 1}};
    for (const auto& [distance, expected] : cases) {
        lights.distance = distance;
        expectGrey(illuminate(), expected);
    }
}

TEST_F(IlluminatorTest, ScatteredLight_IsLeftOutWhereItIsApproximated) {
    const struct {
        std::uint32_t flags;
        int level;
        bool ownRay;
        int noscatter, expected;
    } cases[] = {{kRayPath, 2, true, kScatterApproximate, 1},
                 {kRayPath | kRayGI, 1, false, kScatterApproximate, 1},
                 {kRayPath | kRayGI, 2, false, kScatterApproximate, 0},
                 {kRayPath | kRayGI, 1, true, kScatterDisabled, 0},
                 {kRayPath | kRayGI, 2, true, kScatterRayTraced, 1}};
    for (const auto& c : cases) {
        shader.noscatter = c.noscatter;
        context.ray.flags = c.flags;
        context.ray.diffuseLevel = c.level;
        context.ray.origin = c.ownRay ? shader.hostObject() : &context;
        lights.calls = 0;
        expectGrey(illuminate(), static_cast<float>(c.expected));
        EXPECT_EQ(lights.calls, c.expected);
    }
}

TEST_F(IlluminatorTest, Fog_DimsByTheWayThroughTheMedium) {
    RaySegment segment{};
    segment.tCur = 3;
    IlluminatorTessra illuminator(&context, nullptr);
    Color color{1, 1, 1};
    illuminator.applyMediumAttenuation(color, segment);
    EXPECT_EQ(color, (Color{1, 1, 1}));
    context.fog = {{0.5f, 1, 0}, 1};
    illuminator.applyMediumAttenuation(color, segment);
    expectColor(color, {0.25f, 1, 0});
    EXPECT_GT(color.b, 0);
}

TEST_F(IlluminatorTest, RenderChannels_ChooseAndTakeElements) {
    channels.channels = {{kChannelTotalLighting, "", 2},     {kChannelGI, "", 0},
                         {0, "TessraVolumeGrid_normals", 3}, {0, "TessraVolumeGrid_zDepth", -1},
                         {0, "TessraVolumeGrid_age", 4},     {999, "another", 1}};
    FragmentChannels values;
    values.values.assign(4, {9, 9, 9});
    context.channels = &values;
    const std::uint32_t always = 1u << kElementTotalLighting | 1u << kElementIndirect;
    // A surface's own colour is wanted even where nobody takes it as a channel.
    VolumeShaderTessra surface;
    surface.flags = kDiffuse;
    IlluminatorTessra without(&context, nullptr);
    without.selectShader(surface);
    without.beginElements();
    EXPECT_EQ(without.elementMask, 1u << kElementDiffuse);

    IlluminatorTessra illuminator(&context, &channels);
    illuminator.beginElements();
    EXPECT_EQ(illuminator.elementMask, always);
    context.ray.flags |= kRayFirstHit;
    illuminator.beginElements();
    EXPECT_EQ(illuminator.elementMask, always | 1u << kElementNormal | 1u << kElementAge);
    for (int i = 0; i < kElementCount; ++i)
        illuminator.elements[i] = {float(i), 0, 0};
    illuminator.writeElements();
    const float expected[] = {kElementIndirect, 9, kElementTotalLighting, kElementNormal};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(values.values[i].r, expected[i]);
}

TEST_F(IlluminatorTest, LightingElements_AddUp) {
    channels.channels = {{kChannelTotalLighting, "", 0}};
    lights.unshadowed = {4, 4, 4};
    lights.indirect = {2, 2, 2};
    shader.brdfscatter = 0.5f;
    const Color diffuse{0.5f, 0.5f, 0.5f};
    IlluminatorTessra illuminator(&context, &channels);
    illuminator.beginElements();
    const Color all = illuminate(illuminator, diffuse);
    const Color* e = illuminator.elements;
    expectGrey(all, 1);
    expectColor(e[kElementTotalLighting], all);
    expectColor(e[kElementLighting] + e[kElementIndirect], all);
    expectColor(e[kElementRawLighting] * diffuse, e[kElementLighting]);
    expectColor(e[kElementRawIndirect] * diffuse, e[kElementIndirect]);
    expectColor(e[kElementRawTotalLighting] * diffuse, all);
    expectGrey(e[kElementRawShadows], 3);
    expectGrey(e[kElementShadows], 1.5f);
}

TEST(RayKind, FollowsTheClassOfTheHostRay) {
    const struct {
        std::uint32_t flags;
        int diffuseLevel;
        std::uint32_t kind;
    } cases[] = {
        {0, 0, 0},
        {kRayPath | kRayReflection | kRayFirstHit, 0, 0},
        {kRayShadow, 0, 0},
        {kRayPath | kRayGI, 0, kKindGI | kKindCacheFill},
        {kRayPath | kRayRefraction, 1, kKindDiffuse | kKindGI | kKindCacheFill},
        {kRayPath | kRayLightCachePass | kRayVolume, 0,
         kKindLightPass | kKindVolumeLit | kKindCacheFill},
        {kRayCaustics, 0, kKindGI | kKindAlwaysVisible | kKindCacheFill},
    };
    for (const auto& c : cases) {
        TraceRay ray;
        ray.flags = c.flags;
        ray.diffuseLevel = c.diffuseLevel;
        EXPECT_EQ(rayKind(ray), c.kind) << c.flags;
    }
    EXPECT_TRUE(isSecondaryKind(kKindLightPass | kKindVolumeLit | kKindCacheFill));
}

TEST(MyWhiteBRDF, SampledDirections_CoverTheSphereEvenly) {
    MyWhiteBRDF brdf;
    brdf.rayLimit = 12;
    double sum[3] = {}, squares[3] = {};
    constexpr int kSide = 100;
    for (int i = 0; i < kSide * kSide; ++i) {
        const float u[2] = {(i / kSide + 0.5f) / kSide, (i % kSide + 0.5f) / kSide};
        float weight = 0;
        const Vector d = brdf.sampleDirection({}, u, weight);
        ASSERT_NEAR(length(d), 1, 1e-5f);
        ASSERT_EQ(weight, 0.5f);
        for (int axis = 0; axis < 3; ++axis) {
            sum[axis] += d[axis];
            squares[axis] += d[axis] * d[axis];
        }
    }
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(sum[axis] / (kSide * kSide), 0, 1e-4);
        EXPECT_NEAR(squares[axis] / (kSide * kSide), 1.0 / 3, 1e-3);
    }
    EXPECT_EQ(brdf.rayLength, 12);
}

}  // namespace
}  // namespace nimbra
