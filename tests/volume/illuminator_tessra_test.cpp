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
    Vector direction{0, 0, 1};
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
        data.sums.direct += brdf.eval(context.ray, direction, light, raw, distance);
        EXPECT_EQ(light, Color());
        EXPECT_EQ(raw, Color());
        brdf.giMode = true;
        light = raw = indirect;
        data.sums.gi += brdf.eval(context.ray, direction, light, raw, -1);
    }
};

struct Host {
    VolumeShaderTessra shader;
    ShadingContext context;
    OneLight lights;
    RenderChannelListInterface channels;

    Host() {
        shader.flags = kVolumetric | kDiffuse;
        const int size[3] = {10, 10, 10};
        shader.setGridSize(size);
        // Cells of two scene units, moved by 100 along x.
        shader.setTransforms({{{2, 0, 0}, {0, 2, 0}, {0, 0, 2}}, {}},
                             {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {100, 0, 0}}, false);
        context.lights = &lights;
        context.ray.dir = {0, 0, 1};
    }
    Color illuminate(IlluminatorTessra& illuminator, const Color& diffuse = {1, 1, 1}) {
        illuminator.selectShader(shader);
        Color out{7, 7, 7};
        illuminator.illuminate(out, {1, 2, 3}, diffuse, nullptr);
        return out;
    }
    Color illuminate(const Color& diffuse = {1, 1, 1}) {
        IlluminatorTessra illuminator(&context, &channels);
        return illuminate(illuminator, diffuse);
    }
};

void expectColor(const Color& got, const Color& expected) {
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(got[i], expected[i], 1e-6f) << "channel " << i;
}

TEST(IlluminatorTessra, ShadeData_TellsTheHostOfTheVolumePoint) {
    Host host;
    host.context.ray.flags = kRayPath | kRayFirstHit;
    host.shader.visibility = kVisibleInGI | kReceivesGI;
    host.illuminate();
    const ShadeData& asked = host.lights.asked;
    EXPECT_EQ(asked.position, (TracePoint{102, 4, 6}));
    EXPECT_EQ(asked.normal, (Vector{0, 0, -1}));
    EXPECT_EQ(asked.flags, kShadeCastShadows | kShadeVolumePoint);
    EXPECT_EQ(asked.object, host.shader.hostObject());
    EXPECT_EQ(asked.onlyLights, nullptr);
    EXPECT_FALSE(asked.seedAlone);
    EXPECT_EQ(host.lights.rayFlags, kRayPath | kRayFirstHit | kRayVolume);
    EXPECT_EQ(host.context.ray.flags, kRayPath | kRayFirstHit);

    host.shader.visibility = kVisibleInGI;
    host.shader.lightLinks.push_back(nullptr);
    host.illuminate();
    EXPECT_EQ(asked.flags, kShadeCastShadows | kShadeVolumePoint | kShadeNotInGI);
    EXPECT_EQ(asked.onlyLights, &host.shader.lightLinks);
}

TEST(IlluminatorTessra, CacheVoxel_DoesNotDependOnTheAskingRay) {
    Host host;
    IlluminatorTessra illuminator(&host.context, nullptr);
    illuminator.kind |= kKindCacheLights | kKindCacheShadows;
    illuminator.seed = 77;
    host.illuminate(illuminator, {0.01f, 0.02f, 0.03f});
    const ShadeData& asked = host.lights.asked;
    EXPECT_EQ(asked.flags & (kShadeCastShadows | kShadeFixedShadows), kShadeFixedShadows);
    EXPECT_TRUE(asked.seedAlone);
    EXPECT_EQ(asked.sampleSeed, 77u);
    EXPECT_EQ(asked.transparency, (Color{1, 1, 1}));
    // The importance of a voxel doesn't sink with its color.
    EXPECT_EQ(asked.importance, (Color{0.1f, 0.1f, 0.1f}));
    host.illuminate(illuminator, {0.01f, 0.5f, 0.03f});
    EXPECT_EQ(asked.importance, (Color{0.5f, 0.5f, 0.5f}));
}

TEST(IlluminatorTessra, PointsOfAMovingVolume_FollowTheRaysTimeButCacheVoxelsDont) {
    Host host;
    host.shader.setTransforms({{{2, 0, 0}, {0, 2, 0}, {0, 0, 2}}, {}},
                              {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {108, 0, 0}}, true);
    host.context.ray.time = 0.25f;
    IlluminatorTessra illuminator(&host.context, nullptr);
    host.illuminate(illuminator);
    const double moved = host.lights.asked.position.x;
    illuminator.kind |= kKindCacheLights | kKindCacheShadows;
    host.illuminate(illuminator);
    EXPECT_NEAR(moved - host.lights.asked.position.x, 0.25 * 8, 1e-5);
    const TracePoint voxel = host.lights.asked.position;
    host.context.ray.time = 0.75f;
    IlluminatorTessra later(&host.context, nullptr);
    later.kind |= kKindCacheLights | kKindCacheShadows;
    host.illuminate(later);
    EXPECT_EQ(host.lights.asked.position, voxel);
}

TEST(IlluminatorTessra, NearLights_AreSoftened) {
    Host host;
    host.lights.distance = 0.5f;
    expectColor(host.illuminate(), {0.5f, 0.5f, 0.5f});
    host.lights.distance = 0;
    expectColor(host.illuminate(), {});
    host.lights.distance = 1e30f;
    expectColor(host.illuminate(), {1, 1, 1});
}

TEST(IlluminatorTessra, ScatteredLight_IsLeftOutWhereItIsApproximated) {
    const Color lit{1, 1, 1}, dark;
    struct Case {
        std::uint32_t flags;
        int level;
        bool ownRay;
        int noscatter;
        Color expected;
    };
    for (const Case& c : {Case{kRayPath, 2, true, kScatterApproximate, lit},
                          Case{kRayPath | kRayGI, 1, false, kScatterApproximate, lit},
                          Case{kRayPath | kRayGI, 2, false, kScatterApproximate, dark},
                          Case{kRayPath | kRayGI, 1, true, kScatterDisabled, dark},
                          Case{kRayPath | kRayGI, 2, true, kScatterRayTraced, lit}}) {
        Host host;
        host.shader.noscatter = c.noscatter;
        host.context.ray.flags = c.flags;
        host.context.ray.diffuseLevel = c.level;
        host.context.ray.origin = c.ownRay ? host.shader.hostObject() : &host.context;
        expectColor(host.illuminate(), c.expected);
        EXPECT_EQ(host.lights.calls, c.expected == lit ? 1 : 0);
    }
}

TEST(IlluminatorTessra, Fog_DimsByTheWayThroughTheMedium) {
    Host host;
    RaySegment segment{};
    segment.tCur = 3;
    IlluminatorTessra illuminator(&host.context, nullptr);
    Color color{1, 1, 1};
    illuminator.applyMediumAttenuation(color, segment);
    EXPECT_EQ(color, (Color{1, 1, 1}));
    host.context.fog = {{0.5f, 1, 0}, 1};
    illuminator.applyMediumAttenuation(color, segment);
    EXPECT_NEAR(color.r, 0.25f, 1e-6f);
    EXPECT_EQ(color.g, 1);
    EXPECT_GT(color.b, 0);
    EXPECT_LT(color.b, 1e-10f);
}

TEST(IlluminatorTessra, RenderChannels_ChooseAndTakeElements) {
    Host host;
    host.channels.channels = {
        {kChannelTotalLighting, "", 2},     {kChannelGI, "", 0},
        {0, "TessraVolumeGrid_normals", 3}, {0, "TessraVolumeGrid_zDepth", -1},
        {0, "TessraVolumeGrid_age", 4},     {999, "another", 1}};
    FragmentChannels values;
    values.values.assign(4, {9, 9, 9});
    host.context.channels = &values;
    const std::uint32_t always = 1u << kElementTotalLighting | 1u << kElementIndirect;
    {
        // A surface's own colour is wanted even where nobody takes it as a channel.
        VolumeShaderTessra surface;
        surface.flags = kDiffuse;
        IlluminatorTessra illuminator(&host.context, nullptr);
        illuminator.selectShader(surface);
        illuminator.beginElements();
        EXPECT_EQ(illuminator.elementMask, 1u << kElementDiffuse);
    }
    {
        host.shader.flags |= kLightCache;
        IlluminatorTessra illuminator(&host.context, &host.channels);
        illuminator.beginElements();
        EXPECT_EQ(illuminator.elementMask, always);
    }
    host.context.ray.flags |= kRayFirstHit;
    IlluminatorTessra illuminator(&host.context, &host.channels);
    illuminator.beginElements();
    EXPECT_EQ(illuminator.elementMask, always | 1u << kElementNormal | 1u << kElementAge);
    for (int i = 0; i < kElementCount; ++i)
        illuminator.elements[i] = {float(i), 0, 0};
    illuminator.writeElements();
    EXPECT_EQ(values.values[0].r, kElementIndirect);
    EXPECT_EQ(values.values[1].r, 9);
    EXPECT_EQ(values.values[2].r, kElementTotalLighting);
    EXPECT_EQ(values.values[3].r, kElementNormal);
}

TEST(IlluminatorTessra, LightingElements_AddUp) {
    Host host;
    host.channels.channels = {{kChannelTotalLighting, "", 0}};
    host.lights.arriving = {1, 1, 1};
    host.lights.unshadowed = {4, 4, 4};
    host.lights.indirect = {2, 2, 2};
    host.shader.brdfscatter = 0.5f;
    const Color diffuse{0.5f, 0.5f, 0.5f};
    IlluminatorTessra illuminator(&host.context, &host.channels);
    illuminator.beginElements();
    const Color all = host.illuminate(illuminator, diffuse);
    const Color* e = illuminator.elements;
    expectColor(all, {1, 1, 1});
    expectColor(e[kElementTotalLighting], all);
    expectColor(e[kElementLighting] + e[kElementIndirect], all);
    expectColor(e[kElementRawLighting] * diffuse, e[kElementLighting]);
    expectColor(e[kElementRawIndirect] * diffuse, e[kElementIndirect]);
    expectColor(e[kElementRawTotalLighting] * diffuse, all);
    expectColor(e[kElementRawShadows], {3, 3, 3});
    expectColor(e[kElementShadows], {1.5f, 1.5f, 1.5f});
}

TEST(RayKind, FollowsTheClassOfTheHostRay) {
    TraceRay ray;
    EXPECT_EQ(rayKind(ray), 0u);
    ray.flags = kRayPath | kRayReflection | kRayFirstHit;
    EXPECT_EQ(rayKind(ray), 0u);
    ray.flags = kRayShadow;
    EXPECT_EQ(rayKind(ray), 0u);
    ray.flags = kRayPath | kRayGI;
    EXPECT_EQ(rayKind(ray), std::uint32_t(kKindGI | kKindCacheFill));
    ray.diffuseLevel = 1;
    ray.flags = kRayPath | kRayRefraction;
    EXPECT_EQ(rayKind(ray), std::uint32_t(kKindDiffuse | kKindGI | kKindCacheFill));
    ray.diffuseLevel = 0;
    ray.flags = kRayPath | kRayLightCachePass | kRayVolume;
    EXPECT_EQ(rayKind(ray), std::uint32_t(kKindLightPass | kKindVolumeLit | kKindCacheFill));
    EXPECT_TRUE(isSecondaryKind(rayKind(ray)));
    ray.flags = kRayCaustics;
    EXPECT_EQ(rayKind(ray), std::uint32_t(kKindGI | kKindAlwaysVisible | kKindCacheFill));
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
