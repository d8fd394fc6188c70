// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/vol_plugin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <set>
#include <vector>

#include "plugin/fake_host.h"
#include "plugin/volume_register.h"
#include "tessra/light.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::FakeRenderer;
using test::makeFrame;

constexpr float kDensity = 0.1f;
constexpr float kStep = 0.1f;

/// Smoke of an even density; keeps a time for each thread.
struct SmokeRenderer : NimbraRenderer {
    std::unique_ptr<NimbraFrameData> frame = makeFrame(10, 10, 10);
    float times[kMaxRenderThreads] = {};
    bool keepsTimes = false;

    explicit SmokeRenderer(const Vector& place = {}) {
        flags = kVolumetric | kDiffuse;
        setGridSize(frame->gridSize);
        bindChannel(frame.get(), kSlotT, kSmoke);
        setTransforms({}, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, place}, false);
        smoketransp = -kDensity;
        sampler = 0;
        rendstep = rendshadstep = kStep;
        skiptransp = stoptransp = 0;
        noscatter = kScatterDisabled;
        simpleColor = {1, 1, 1};
    }
    float* threadTime(int thread) override { return keepsTimes ? &times[thread] : nullptr; }
};

/// A container that a test sets by hand; also a light.
struct Container : test::PluginOf<test::SilentSim, test::DarkLight> {
    std::vector<std::unique_ptr<SmokeRenderer>> renderers;
    bool visible = true;

    explicit Container(int count = 1, const Vector& place = {}) {
        for (int i = 0; i < count; ++i)
            renderers.push_back(std::make_unique<SmokeRenderer>(place));
    }
    NimbraRenderer* getRenderer(int i) override {
        return i < int(renderers.size()) ? renderers[std::size_t(i)].get() : nullptr;
    }
    int isRenderable() override { return 1; }
    bool isVisibleFor(const ShadingContext&) override { return visible; }
};

/// A host whose one light lies far above in y, and whose shadow rays run through the volumes.
struct SunThroughVolumes : LightListInterface {
    NimbraVolPlugin& plugin;
    bool shadows = true;
    const void* lastOrigin = nullptr;
    explicit SunThroughVolumes(NimbraVolPlugin& collector) : plugin(collector) {}

    void illuminate(ShadingContext& context, ShadeData& data, BRDFSampler& brdf) override {
        ShadingContext shadow;
        shadow.threadIndex = context.threadIndex;
        shadow.ray.p = data.position;
        shadow.ray.dir = {0, 1, 0};
        shadow.ray.flags = kRayShadow;
        shadow.ray.origin = lastOrigin = data.object;
        shadow.ray.time = 0.5f;
        shadow.lights = this;
        if (shadows)
            plugin.shade(shadow);
        Color light = shadow.volumeResult.transparency.color, raw{1, 1, 1};
        data.sums.direct += brdf.eval(context.ray, shadow.ray.dir, light, raw, -1);
    }
};

/// A collector in a render, and a ray through the middle of a container.
class VolPlugin : public testing::Test {
protected:
    FakeRenderer renderer;
    NimbraVolPlugin plugin{nullptr};
    SunThroughVolumes sun{plugin};
    Container container;
    SmokeRenderer& smoke = *container.renderers[0];
    ShadingContext context;
    TraceRay& ray = context.ray;
    const VolumeResult& result = context.volumeResult;

    VolPlugin() {
        ray.p = {5, 5, -5};
        ray.dir = {0, 0, 1};
    }
    void collect(std::initializer_list<Plugin*> plugins) {
        for (Plugin* p : plugins)
            getVolumeRegister(&renderer)->add(p);
        plugin.compileGeometry(&renderer);
    }
    const VolumeResult& shade(std::uint32_t flags = kRayPath) {
        ray.flags = flags;
        if (flags & kRayShadow)
            plugin.shadeTransparency(context);
        else
            plugin.shade(context);
        return result;
    }
    float transparency(std::uint32_t flags = kRayPath) { return shade(flags).transparency.color.g; }
};

/// Transmittance of smoke of a thickness. A march takes up to one step more than fits, since the
/// last one stands on the grid's face, and its cheap exponential is off by some 3e-5 a step.
testing::AssertionResult isDimmed(float got, float thickness, int grids = 1) {
    const float most = std::exp(-thickness * kDensity) * 1.003f;
    const float least = std::exp(-(thickness + grids * kStep) * kDensity) * 0.997f;
    if (got >= least && got <= most)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << got << " is not from " << least << " to " << most;
}

TEST_F(VolPlugin, RayWithoutAVolume_IsLeftAlone) {
    std::vector<Fragment> fragments;
    context.fragments = &fragments;
    const auto expectEmpty = [&] {
        const AColor clear{{1, 1, 1}, 1}, before{{7, 7, 7}, 7};
        context.volumeResult = {before, before, before};
        EXPECT_EQ(shade().color, AColor());
        EXPECT_EQ(result.transparency, clear);
        EXPECT_EQ(result.transparency2, clear);
    };
    expectEmpty();
    collect({});
    expectEmpty();
    collect({&container});
    container.visible = false;
    expectEmpty();
    container.visible = true;
    ray.mint = 5;
    ray.maxt = 4;
    expectEmpty();
    ray = TraceRay();
    ray.dir = {0, 0, 1};
    context.threadIndex = 7;
    expectEmpty();
    EXPECT_TRUE(fragments.empty());
}

TEST_F(VolPlugin, Smoke_DimsWhatLiesBehind) {
    smoke.noscatter = kScatterRayTraced;
    collect({&container});
    std::vector<Fragment> fragments;
    context.fragments = &fragments;
    EXPECT_TRUE(isDimmed(transparency(), 10));
    // Without light the smoke itself is black.
    EXPECT_EQ(result.color, AColor());
    EXPECT_EQ(result.transparency2, result.transparency);
    EXPECT_EQ(result.transparency.alpha, result.transparency.color.b);
    ASSERT_EQ(fragments.size(), 1u);
    EXPECT_EQ(fragments[0].kind, 100);
    EXPECT_EQ(fragments[0].transparency, result.transparency.color);
    EXPECT_TRUE(isDimmed(transparency(kRayShadow), 10));
    // A stretch of the ray.
    ray.mint = 7;
    ray.maxt = 11;
    EXPECT_TRUE(isDimmed(transparency(), 4));
}

TEST_F(VolPlugin, Register_TakesEachPluginOnce) {
    Container many(3);
    Container without;
    without.removeInterface(static_cast<test::SilentSim*>(&without));
    collect({&many, &without, &many});
    EXPECT_EQ(getVolumeRegister(&renderer)->plugins.size, 2);
    EXPECT_EQ(plugin.shaders.size, 3);
    EXPECT_EQ(plugin.simInterfaces[2], &many);
    FakeRenderer other;
    EXPECT_NE(getVolumeRegister(&other), getVolumeRegister(&renderer));
    EXPECT_EQ(renderer.log.count("warning: [NimbraVolPlugin] The Nimbra simulator plugin does "
                                 "not support NimbraSimInterface.\n"),
              1);
}

TEST_F(VolPlugin, ShadowOfItsOwnFire_ScattersByItsOwnFactor) {
    Container other;
    smoke.noscatter = kScatterApproximateShadows;
    smoke.transfown = 2;
    smoke.transfext = 1;
    collect({&container});
    const float external = transparency(kRayShadow);
    ray.light = &other;
    EXPECT_EQ(transparency(kRayShadow), external);
    ray.light = &container;
    const float own = transparency(kRayShadow);
    EXPECT_GT(own, external + 0.05f);
    auto* const asLight = static_cast<LightInterface*>(&container);
    container.removeInterface(asLight);
    EXPECT_EQ(transparency(kRayShadow), external);
    // The container must take part in the ray.
    container.addInterface(asLight, false);
    container.visible = false;
    other.renderers[0]->noscatter = kScatterApproximateShadows;
    other.renderers[0]->transfown = 2;
    collect({&other});
    EXPECT_EQ(transparency(kRayShadow), external);
}

TEST_F(VolPlugin, Light_PassesThroughTheSmokeThatItShadows) {
    smoke.keepsTimes = true;
    smoke.times[0] = -1;
    context.lights = &sun;
    collect({&container});
    sun.shadows = false;
    // White smoke in full light scatters all that it takes away.
    EXPECT_TRUE(isDimmed(1 - shade().color.color.g, 10));
    EXPECT_EQ(sun.lastOrigin, smoke.hostObject());
    // The ray runs 5 below the top: all its light is dimmed alike.
    sun.shadows = true;
    const float opacity = 1 - transparency();
    EXPECT_TRUE(isDimmed(shade().color.color.g / opacity, 5));
    EXPECT_EQ(result.color.alpha, result.color.color.b);
    EXPECT_EQ(smoke.times[0], -1);
}

/// Keeps the times at which it is asked.
struct TimedTexture : TextureInterface {
    std::multiset<double> times;
    AColor getTexColor(const TextureContext& context) override {
        times.insert(context.time);
        return {{1, 1, 1}, 1};
    }
};

TEST_F(VolPlugin, ShadowRaysOfAnotherTime_DontMoveTheTexturesOfTheRay) {
    TimedTexture texture;
    smoke.flags |= kTexDiffuse;
    smoke.textures[kDiffuseTexture] = &texture;
    context.lights = &sun;
    ray.time = 0.75f;
    collect({&container});
    shade();
    ASSERT_GT(texture.times.size(), 10u);
    EXPECT_EQ(texture.times.count(0.75), texture.times.size());
}

TEST_F(VolPlugin, ManyContainers_AreFoundByTheTree) {
    std::vector<std::unique_ptr<Container>> containers;
    for (int i = 0; i < 12; ++i) {
        containers.push_back(
            std::make_unique<Container>(1, Vector{i % 2 ? 20.0f : 0.0f, 0, 12.0f * float(i)}));
        getVolumeRegister(&renderer)->add(containers.back().get());
    }
    plugin.compileGeometry(&renderer);
    EXPECT_EQ(renderer.log.count("info: QND tree contains 12 primitives."), 1);
    EXPECT_EQ(renderer.log.count("info: QND tree built in "), 1);
    // Every second one stands aside of the ray.
    EXPECT_TRUE(isDimmed(transparency(), 60, 6));
    containers[0]->visible = false;
    EXPECT_TRUE(isDimmed(transparency(), 50, 5));
}

TEST_F(VolPlugin, ProbabilisticSamples_OfTheHostUnlessForced) {
    test::FakeSamples host(8, 3);
    test::Made<NimbraVolPlugin> made("NmbShaderSimVol"), unset(made);
    const auto counts = [&](int force, int forceGI) {
        made.set("force_prob_samples", force);
        made.set("force_prob_samples_gi", forceGI);
        made->setupRender(&renderer);
        return std::pair(made->samples, made->samplesGI);
    };
    EXPECT_EQ(counts(-1, -1), std::pair(0, 0));
    renderer.sequence.addInterface(&host, false);
    EXPECT_EQ(counts(0, -1), std::pair(0, 3));
    EXPECT_EQ(counts(-1, 16), std::pair(8, 16));
    unset->setupRender(&renderer);
    EXPECT_EQ(std::pair(unset->samples, unset->samplesGI), std::pair(8, 3));
}

TEST_F(VolPlugin, ProbabilisticSamples_ByTheClassOfTheRay) {
    collect({&container});
    plugin.samples = 0;
    plugin.samplesGI = 1;
    struct Numbers : RaySampler {
        float next() override { return 0.5f; }
    } numbers;
    context.sampler = &numbers;
    const float blended = transparency(kRayPath);
    EXPECT_GT(blended, 0);
    EXPECT_LT(blended, 1);
    // One sample is either hit or missed.
    const float sampled = transparency(kRayPath | kRayGI);
    EXPECT_TRUE(sampled == 0 || sampled == 1) << sampled;
    // A transparency query always blends.
    EXPECT_TRUE(isDimmed(transparency(kRayShadow), 10));
}

TEST_F(VolPlugin, VolumetricList_IsJoinedAndLeft) {
    VolumetricListInterface list;
    renderer.sequence.addInterface(&list, false);
    NimbraVolPlugin a(nullptr), b(nullptr), c(nullptr), stranger(nullptr);
    for (NimbraVolPlugin* volumes : {&a, &b, &c})
        volumes->setupRender(&renderer);
    ASSERT_EQ(list.volumetrics.size(), 3u);
    stranger.renderEnd(&renderer);
    EXPECT_EQ(list.volumetrics.size(), 3u);
    a.renderEnd(&renderer);
    EXPECT_EQ(list.volumetrics, (std::vector<VolumetricInterface*>{&c, &b}));
    getVolumeRegister(&renderer)->add(&a);
    b.renderEnd(&renderer);
    EXPECT_EQ(renderer.getInterface(ids::kNimbraVolumeRegister), nullptr);
    EXPECT_EQ(getVolumeRegister(&renderer)->plugins.size, 0);
}

using VolPluginWithASim = test::SimFixture;
TEST_F(VolPluginWithASim, Channels_AreSharedUnlessAContainerWantsItsOwn) {
    NimbraVolPlugin plugin(nullptr);
    plugin.normalChannel.shared = plugin.zDepthChannel.shared = false;
    getVolumeRegister(&renderer)->add(sim.get());
    const auto shared = [&](int normals, int depth) {
        set("volnorm", normals);
        set("volzdepth", depth);
        plugin.renderBegin(&renderer);
        EXPECT_TRUE(plugin.ageChannel.shared);
        return std::pair(plugin.normalChannel.shared, plugin.zDepthChannel.shared);
    };
    EXPECT_EQ(shared(0, 0), std::pair(true, true));
    EXPECT_EQ(shared(1, 1), std::pair(false, true));
    EXPECT_EQ(shared(1, 2), std::pair(false, false));
}

}  // namespace
}  // namespace nimbra
