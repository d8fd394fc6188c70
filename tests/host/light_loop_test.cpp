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
struct WhiteBRDF final : BRDFSampler {
    struct Call {
        std::uint32_t flags;
        Vector direction;
        Color light, raw;
        float distance;
        bool gi;
    };
    std::vector<Call> calls;
    double limit = 1e18;

    Color eval(const TraceRay& ray, const Vector& lightDir, Color& lightColor, Color& raw,
               float distance) override {
        calls.push_back({ray.flags, lightDir, lightColor, raw, distance, giMode});
        const Color result = lightColor;
        lightColor = raw = {};
        return result;
    }
    Vector sampleDirection(const TraceRay&, const float[2], float& weight) override {
        weight = 0.5f;
        rayLength = limit;
        return {0, 1, 0};
    }
};

class LightLoop : public TracerFixture {
protected:
    LightLoop() { width_ = height_ = 1; }

    /// A volume's point in the middle.
    struct VolumePoint : ShadeData {
        VolumePoint() {
            normal = {0, 0, 1};
            flags |= kShadeVolumePoint;
        }
    };
    /// Has a point lit by the host.
    static std::vector<WhiteBRDF::Call> lit(ShadingContext& context, ShadeData& data,
                                            double limit = 1e18) {
        WhiteBRDF brdf;
        brdf.limit = limit;
        context.lights->illuminate(context, data, brdf);
        EXPECT_FALSE(brdf.giMode);
        return brdf.calls;
    }
    /// Renders with a slab of smoke around the origin and runs `ask` once, on the first camera ray.
    void askInVolume(const std::string& plugins, const std::function<void(ShadingContext&)>& ask,
                     const std::string& settings = "") {
        int asked = 0;
        slabRecord().onShade = [&](ShadingContext& context) {
            if (asked++)
                return;
            slabRecord().calls.clear();
            const TraceRay before = context.ray;
            ask(context);
            context.ray = before;
        };
        render(std::string(kFront) +
                   R"(, "fog": {"plugin": "Slab", "low": [-50, -50, -2], "high": [50, 50, 2],
                   "extinction": [0.5, 0.5, 0.5], "lights": ["@second"]},
                   "second": {"plugin": "TessraLightDirectional", "direction": [0, 0, -1],
                   "color": [0, 0, 1]}, )" +
                   plugins,
               settings);
        EXPECT_GT(asked, 0);
    }
    static constexpr const char* kPoint =
        R"("first": {"plugin": "TessraLightPoint", "position": [0, 0, -4], "intensity": 32})";
};

TEST_F(LightLoop, VolumePoint_TakesLightFromAllSidesThroughTheVolume) {
    askInVolume(kPoint, [](ShadingContext& context) {
        VolumePoint data;
        const auto calls = lit(context, data);
        ASSERT_EQ(calls.size(), 2u);
        // In scene order: the sun in front, two units of smoke away; the point behind.
        const float through = std::exp(-1.0f);
        EXPECT_EQ(calls[0].distance, -1);
        EXPECT_EQ(calls[0].direction, (Vector{0, 0, 1}));
        EXPECT_NEAR(calls[0].light.b, through, 1e-6);
        EXPECT_EQ(calls[0].raw.b, 1);
        EXPECT_EQ(calls[1].distance, 4);
        EXPECT_EQ(calls[1].direction, (Vector{0, 0, -1}));
        EXPECT_NEAR(calls[1].light.r, 2 * through, 1e-6);
        for (const auto& call : calls)
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
        const std::vector<PluginBase*> none;
        VolumePoint unlit, listed, level, unimportant;
        unlit.onlyLights = &none;
        EXPECT_TRUE(lit(context, unlit).empty());
        listed.onlyLights = &test::Slab::newest()->lights;
        const auto calls = lit(context, listed);
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].raw, (Color{0, 0, 1}));
        level.lightLevel = 0.25f;
        lit(context, level);
        EXPECT_NEAR(level.sums.direct.b, 0.75f * std::exp(-1.0f), 1e-6);
        EXPECT_NEAR(level.sums.rawDirect.b, 0.75f, 1e-6);
        unimportant.importance = {0, 0, 0};
        EXPECT_TRUE(lit(context, unimportant).empty());
    });
}

TEST_F(LightLoop, ShadowRays_FollowTheAskingRayUnlessFixed) {
    askInVolume(kPoint, [](ShadingContext& context) {
        int marker = 0;
        context.ray.flags |= kRayGI | kRayVolume | kRayFirstHit;
        context.ray.time = 0.5f;
        context.ray.depth = 2;
        context.ray.diffuseLevel = 1;
        const auto ask = [&](std::uint32_t shadowFlags) {
            slabRecord().calls.clear();
            VolumePoint data;
            data.flags = kShadeVolumePoint | shadowFlags;
            data.object = &marker;
            EXPECT_EQ(lit(context, data).size(), 2u);
            return slabRecord().calls;
        };

        std::vector<VolumeCall> rays = ask(kShadeCastShadows);
        ASSERT_EQ(rays.size(), 2u);
        for (const VolumeCall& call : rays) {
            EXPECT_TRUE(call.transparencyOnly);
            EXPECT_EQ(call.ray.flags, std::uint32_t(kRayShadow | kRayGI));
            EXPECT_TRUE(call.ray.time == 0.5f && call.ray.diffuseLevel == 1 &&
                        call.ray.origin == &marker);
            ASSERT_NE(call.ray.light, nullptr);
        }
        EXPECT_STREQ(rays[0].ray.light->getPluginName(), "second");
        EXPECT_STREQ(rays[1].ray.light->getPluginName(), "first");
        EXPECT_EQ(rays[1].ray.maxt, 4);

        rays = ask(kShadeFixedShadows);
        ASSERT_EQ(rays.size(), 2u);
        const TraceRay& fixed = rays[0].ray;
        EXPECT_EQ(fixed.flags, std::uint32_t(kRayShadow));
        EXPECT_TRUE(fixed.time == 0 && fixed.diffuseLevel == 0 && fixed.origin == &marker);

        EXPECT_TRUE(ask(0).empty()) << "no shadows wanted";
    });
}

TEST_F(LightLoop, Seeds_MakeLightIndependentOfTheRay) {
    const std::string ball =
        R"("first": {"plugin": "TessraLightPoint", "position": [0, 0, 9], "radius": 2})";
    askInVolume(ball, [](ShadingContext& context) {
        const auto direction = [&](std::uint32_t seed, bool alone) {
            VolumePoint data;
            data.sampleSeed = seed;
            data.seedAlone = alone;
            return lit(context, data).at(1).direction;
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
        std::vector<WhiteBRDF::Call> calls;
        const auto gather = [&](std::uint32_t flags, double limit) {
            slabRecord().calls.clear();
            VolumePoint data;
            data.flags |= flags;
            data.object = &marker;
            data.lightLevel = 6;
            data.giLevel = 0.5f;
            calls = lit(context, data, limit);
            return data.sums.gi;
        };
        const Color gi = gather(0, 1e18);
        // Half weight, three times the level, five units of smoke.
        const float factor = 0.5f * 3 * std::exp(-2.5f);
        EXPECT_NEAR(gi.r, 4 * factor, 1e-5);
        EXPECT_NEAR(gi.b, 1 * factor, 1e-5);
        EXPECT_TRUE(calls.back().gi && calls.back().distance < 0);
        const TraceRay& ray = slabRecord().calls.back().ray;
        EXPECT_EQ(ray.flags, std::uint32_t(kRayPath | kRayGI));
        EXPECT_TRUE(ray.diffuseLevel == 1 && ray.depth == 1 && ray.origin == &marker && !ray.light);

        EXPECT_EQ(gather(0, 4.5), Color());
        EXPECT_EQ(slabRecord().calls.back().ray.maxt, 4.5);
        EXPECT_EQ(gather(kShadeNotInGI, 1e18), Color());
        context.ray.time = 0.5f;
        context.ray.diffuseLevel = 2;
        EXPECT_EQ(gather(0, 1e18), Color()) << "past the last bounce";
        // A point whose light is to be the same for all that ask.
        EXPECT_NEAR(gather(kShadeFixedShadows, 1e18).r, 4 * factor, 1e-5);
        EXPECT_EQ(slabRecord().calls.back().ray.time, 0);
        EXPECT_EQ(slabRecord().calls.back().ray.diffuseLevel, 1);
    };
    askInVolume(lamp, ask, R"("gi": true, "gi_bounces": 2)");
}

TEST_F(LightLoop, SkyAtAVolumePoint_IsItsMeanOverTheSphere) {
    // Linear in the height above, dark below: half of the mean (1 / 2) of 0 .. 1.
    askInVolume(R"("first": {"plugin": "TessraLightSky", "samples": 1024, "gradient": true,
                    "shadows": false, "horizon_color": [0, 0, 0], "ground_color": [0, 0, 0],
                    "horizon_width": 1})",
                [](ShadingContext& context) {
                    VolumePoint data;
                    EXPECT_EQ(lit(context, data).size(), 1025u);
                    EXPECT_NEAR(data.sums.direct.r, 0.25, 0.002);
                });
}

TEST_F(LightLoop, ForeignThread_GetsNoLightAndNoHarm) {
    askInVolume(kPoint, [](ShadingContext& context) {
        for (const int thread : {-1, 1, 64, 1000}) {
            test::PlainContext other;
            other.threadIndex = thread;
            other.lights = context.lights;
            VolumePoint data;
            lit(other, data);
            EXPECT_EQ(data.sums.direct, Color());
        }
    });
}

}  // namespace
}  // namespace nimbra::host
