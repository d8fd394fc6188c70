// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the light loop promises to volumes: asked from inside of one.
#include <gtest/gtest.h>

#include "host/tracer_fixture.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using test::slabRecord;
using test::TracerFixture;
using test::VolumeCall;

/// Passes all light on and writes down what it was asked.
class WhiteBRDF final : public BRDFSampler {
public:
    struct Call {
        std::uint32_t flags;
        Vector direction;
        Color light, raw;
        float distance;
        bool gi;
    };
    Color eval(const TraceRay& ray, const Vector& lightDir, Color& lightColor, Color& raw,
               float distance) override {
        calls.push_back({ray.flags, lightDir, lightColor, raw, distance, giMode});
        const Color result = lightColor;
        lightColor = raw = {};
        return result;
    }
    Vector sampleDirection(const TraceRay&, const float u[2], float& weight) override {
        numbers.insert(numbers.end(), u, u + 2);
        weight = 0.5f;
        rayLength = limit;
        return indirect;
    }
    std::vector<Call> calls;
    std::vector<float> numbers;
    Vector indirect{0, 1, 0};
    double limit = 1e18;
};

class LightLoop : public TracerFixture {
protected:
    LightLoop() { width_ = height_ = 1; }

    static ShadeData volumePoint(const TracePoint& place) {
        ShadeData data;
        data.position = place;
        data.normal = {0, 0, 1};
        data.flags |= kShadeVolumePoint;
        return data;
    }
    /// Renders with a slab of smoke around the origin and runs `ask` once, on the first camera ray.
    void askInVolume(const std::string& plugins, const std::function<void(ShadingContext&)>& ask,
                     const std::string& settings = "") {
        bool asked = false;
        slabRecord().onShade = [&](ShadingContext& context) {
            if (asked)
                return;
            asked = true;
            slabRecord().calls.clear();
            ask(context);
        };
        render(std::string(kFront) +
                   R"(, "fog": {"plugin": "Slab", "low": [-50, -50, -2], "high": [50, 50, 2],
                   "extinction": [0.5, 0.5, 0.5], "lights": ["@second"]},
                   "second": {"plugin": "TessraLightDirectional", "direction": [0, 0, -1],
                   "color": [0, 0, 1]}, )" +
                   plugins,
               settings);
        EXPECT_TRUE(asked);
    }
    static constexpr const char* kPoint =
        R"("first": {"plugin": "TessraLightPoint", "position": [0, 0, -4], "intensity": 32})";
};

TEST_F(LightLoop, VolumePoint_TakesLightFromAllSidesThroughTheVolume) {
    askInVolume(kPoint, [](ShadingContext& context) {
        ShadeData data = volumePoint({0, 0, 0});
        WhiteBRDF brdf;
        context.lights->illuminate(context, data, brdf);
        ASSERT_EQ(brdf.calls.size(), 2u);
        // In scene order: the sun in front, two units of smoke away; the point behind.
        const float through = std::exp(-1.0f);
        EXPECT_EQ(brdf.calls[0].distance, -1);
        EXPECT_EQ(brdf.calls[0].direction, (Vector{0, 0, 1}));
        EXPECT_NEAR(brdf.calls[0].light.b, through, 1e-6);
        EXPECT_EQ(brdf.calls[0].raw.b, 1);
        EXPECT_EQ(brdf.calls[1].distance, 4);
        EXPECT_EQ(brdf.calls[1].direction, (Vector{0, 0, -1}));
        EXPECT_NEAR(brdf.calls[1].light.r, 2 * through, 1e-6);
        for (const auto& call : brdf.calls)
            EXPECT_EQ(call.flags & kRayVolume, kRayVolume);
        EXPECT_NEAR(data.sums.direct.b, 3 * through, 1e-6);
        EXPECT_NEAR(data.sums.rawDirect.b, 3, 1e-6);
        EXPECT_NEAR(data.sums.shadow.b, 3 * (1 - through), 1e-6);
        EXPECT_EQ(data.sums.gi, Color());
        EXPECT_EQ(context.ray.flags & kRayVolume, 0u);
    });
}

TEST_F(LightLoop, ListedLights_LevelAndImportance) {
    askInVolume(kPoint, [](ShadingContext& context) {
        ShadeData data = volumePoint({0, 0, 0});
        const std::vector<PluginBase*> none;
        data.onlyLights = &none;
        WhiteBRDF brdf;
        context.lights->illuminate(context, data, brdf);
        EXPECT_TRUE(brdf.calls.empty());
        data.onlyLights = &test::Slab::newest()->lights;
        context.lights->illuminate(context, data, brdf);
        ASSERT_EQ(brdf.calls.size(), 1u);
        EXPECT_EQ(brdf.calls[0].raw, (Color{0, 0, 1}));

        data = volumePoint({0, 0, 0});
        data.lightLevel = 0.25f;
        context.lights->illuminate(context, data, brdf);
        EXPECT_NEAR(data.sums.direct.b, 0.75f * std::exp(-1.0f), 1e-6);
        EXPECT_NEAR(data.sums.rawDirect.b, 0.75f, 1e-6);

        data = volumePoint({0, 0, 0});
        data.importance = {0, 0, 0};
        brdf.calls.clear();
        context.lights->illuminate(context, data, brdf);
        EXPECT_TRUE(brdf.calls.empty());
    });
}

TEST_F(LightLoop, ShadowRays_FollowTheAskingRayUnlessFixed) {
    askInVolume(kPoint, [](ShadingContext& context) {
        const TraceRay before = context.ray;
        int marker = 0;
        context.ray.flags |= kRayGI | kRayVolume | kRayFirstHit;
        context.ray.time = 0.5f;
        context.ray.depth = 2;
        context.ray.diffuseLevel = 1;
        const auto ask = [&](std::uint32_t shadowFlags) {
            slabRecord().calls.clear();
            ShadeData data = volumePoint({0, 0, 0});
            data.flags = kShadeVolumePoint | shadowFlags;
            data.object = &marker;
            WhiteBRDF brdf;
            context.lights->illuminate(context, data, brdf);
            EXPECT_EQ(brdf.calls.size(), 2u);
            return slabRecord().calls;
        };

        std::vector<VolumeCall> rays = ask(kShadeCastShadows);
        ASSERT_EQ(rays.size(), 2u);
        for (const VolumeCall& call : rays) {
            EXPECT_TRUE(call.transparencyOnly);
            EXPECT_EQ(call.ray.flags, std::uint32_t(kRayShadow | kRayGI));
            EXPECT_EQ(call.ray.time, 0.5f);
            EXPECT_EQ(call.ray.diffuseLevel, 1);
            EXPECT_EQ(call.ray.origin, &marker);
            ASSERT_NE(call.ray.light, nullptr);
        }
        EXPECT_STREQ(rays[0].ray.light->getPluginName(), "second");
        EXPECT_STREQ(rays[1].ray.light->getPluginName(), "first");
        EXPECT_EQ(rays[1].ray.maxt, 4);

        rays = ask(kShadeFixedShadows);
        ASSERT_EQ(rays.size(), 2u);
        EXPECT_EQ(rays[0].ray.flags, std::uint32_t(kRayShadow));
        EXPECT_EQ(rays[0].ray.time, 0);
        EXPECT_EQ(rays[0].ray.diffuseLevel, 0);
        EXPECT_EQ(rays[0].ray.origin, &marker);

        EXPECT_TRUE(ask(0).empty()) << "no shadows wanted";
        context.ray = before;
    });
}

TEST_F(LightLoop, Seeds_MakeLightIndependentOfTheRay) {
    const std::string ball =
        R"("first": {"plugin": "TessraLightPoint", "position": [0, 0, 9], "radius": 2})";
    askInVolume(ball, [](ShadingContext& context) {
        const auto direction = [&](std::uint32_t seed, bool alone) {
            ShadeData data = volumePoint({0, 0, 0});
            data.sampleSeed = seed;
            data.seedAlone = alone;
            WhiteBRDF brdf;
            context.lights->illuminate(context, data, brdf);
            EXPECT_EQ(brdf.calls.size(), 2u);
            return brdf.calls.back().direction;
        };
        const Vector alone = direction(7, true);
        context.sampler->next();
        EXPECT_EQ(direction(7, true), alone);
        EXPECT_FALSE(direction(8, true) == alone);
        const Vector first = direction(7, false);
        EXPECT_FALSE(direction(7, false) == first) << "the ray's own numbers go on";
    });
}

TEST_F(LightLoop, IndirectLight_IsWeightedLimitedAndFlagged) {
    const std::string lamp =
        R"("lamp": {"plugin": "TessraMesh", "shape": "Plane", "size": [9, 1, 9],
            "transform": {"translate": [0, 5, 0]}, "material": "@m"},
           "m": {"plugin": "TessraMaterial", "diffuse": [0, 0, 0], "emission": [4, 2, 1]})";
    const auto ask = [](ShadingContext& context) {
        int marker = 0;
        WhiteBRDF brdf;
        const auto gather = [&](std::uint32_t flags, double limit) {
            slabRecord().calls.clear();
            ShadeData data = volumePoint({0, 0, 0});
            data.flags |= flags;
            data.object = &marker;
            data.lightLevel = 6;
            data.giLevel = 0.5f;
            brdf = {};
            brdf.limit = limit;
            context.lights->illuminate(context, data, brdf);
            return data.sums;
        };
        LightingSums sums = gather(0, 1e18);
        // Half weight, three times the level, five units of smoke.
        const float factor = 0.5f * 3 * std::exp(-2.5f);
        EXPECT_NEAR(sums.gi.r, 4 * factor, 1e-5);
        EXPECT_NEAR(sums.gi.b, 1 * factor, 1e-5);
        EXPECT_TRUE(brdf.calls.back().gi);
        EXPECT_LT(brdf.calls.back().distance, 0);
        EXPECT_FALSE(brdf.giMode);
        const TraceRay& ray = slabRecord().calls.back().ray;
        EXPECT_EQ(ray.flags, std::uint32_t(kRayPath | kRayGI));
        EXPECT_EQ(ray.diffuseLevel, 1);
        EXPECT_EQ(ray.depth, 1);
        EXPECT_EQ(ray.origin, &marker);
        EXPECT_EQ(ray.light, nullptr);

        sums = gather(0, 4.5);
        EXPECT_EQ(sums.gi, Color());
        EXPECT_EQ(slabRecord().calls.back().ray.maxt, 4.5);
        EXPECT_EQ(gather(kShadeNotInGI, 1e18).gi, Color());
        const TraceRay before = context.ray;
        context.ray.time = 0.5f;
        context.ray.diffuseLevel = 2;
        EXPECT_EQ(gather(0, 1e18).gi, Color()) << "past the last bounce";
        // A point whose light is to be the same for all that ask.
        EXPECT_NEAR(gather(kShadeFixedShadows, 1e18).gi.r, 4 * factor, 1e-5);
        EXPECT_EQ(slabRecord().calls.back().ray.time, 0);
        EXPECT_EQ(slabRecord().calls.back().ray.diffuseLevel, 1);
        context.ray = before;
    };
    askInVolume(lamp, ask, R"("gi": true, "gi_bounces": 2)");
}

TEST_F(LightLoop, SkyAtAVolumePoint_IsItsMeanOverTheSphere) {
    // Linear in the height above, dark below: half of the mean (1 / 2) of 0 .. 1.
    askInVolume(R"("first": {"plugin": "TessraLightSky", "samples": 1024, "gradient": true,
                    "shadows": false, "horizon_color": [0, 0, 0], "ground_color": [0, 0, 0],
                    "horizon_width": 1})",
                [](ShadingContext& context) {
                    ShadeData data = volumePoint({0, 0, 0});
                    WhiteBRDF brdf;
                    context.lights->illuminate(context, data, brdf);
                    EXPECT_EQ(brdf.calls.size(), 1025u);
                    EXPECT_NEAR(data.sums.direct.r, 0.25, 0.002);
                });
}

TEST_F(LightLoop, ForeignThread_GetsNoLightAndNoHarm) {
    askInVolume(kPoint, [](ShadingContext& context) {
        for (const int thread : {-1, 1, 64, 1000}) {
            test::PlainContext other;
            other.threadIndex = thread;
            other.lights = context.lights;
            ShadeData data = volumePoint({0, 0, 0});
            WhiteBRDF brdf;
            other.lights->illuminate(other, data, brdf);
            EXPECT_EQ(data.sums.direct, Color());
        }
    });
}

}  // namespace
}  // namespace nimbra::host
