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
struct Container : TessraPlugin, test::SilentSim, LightInterface {
    std::vector<std::unique_ptr<SmokeRenderer>> renderers;
    bool visible = true, offersItself = true, isLight = true;
    int renderable = 1;

    explicit Container(int count = 1, const Vector& place = {}, TessraPluginDesc* desc = nullptr)
        : TessraPlugin(desc) {
        for (int i = 0; i < count; ++i)
            renderers.push_back(std::make_unique<SmokeRenderer>(place));
    }
    SmokeRenderer& renderer() { return *renderers[0]; }

    PluginInterface* getInterface(InterfaceID id) override {
        if (id == ids::kNimbraSim)
            return offersItself ? static_cast<NimbraSimInterface*>(this) : nullptr;
        if (id == ids::kLight && isLight)
            return static_cast<LightInterface*>(this);
        return TessraPlugin::getInterface(id);
    }
    Plugin* getPlugin() override { return this; }
    NimbraRenderer* getRenderer(int i) override {
        return i < int(renderers.size()) ? renderers[std::size_t(i)].get() : nullptr;
    }
    int isRenderable() override { return renderable; }
    bool isVisibleFor(const ShadingContext&) override { return visible; }
    LightSampler* newLightSampler(ShadingContext&, const ShadeData&) override { return nullptr; }
    void deleteLightSampler(LightSampler*, int) override {}
};

/// A collector in a render.
struct Collector {
    FakeRenderer renderer;
    NimbraVolPlugin plugin{nullptr};
    ShadingContext context;

    Collector() {
        context.ray.p = {5, 5, -5};
        context.ray.dir = {0, 0, 1};
    }
    void collect(std::initializer_list<Plugin*> plugins) {
        for (Plugin* p : plugins)
            getVolumeRegister(&renderer)->add(p);
        plugin.compileGeometry(&renderer);
    }
    const VolumeResult& shade(std::uint32_t flags = kRayPath) {
        context.ray.flags = flags;
        plugin.shade(context);
        return context.volumeResult;
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

void expectEmpty(const VolumeResult& result) {
    EXPECT_EQ(result.color, AColor());
    EXPECT_EQ(result.transparency, (AColor{{1, 1, 1}, 1}));
    EXPECT_EQ(result.transparency2, (AColor{{1, 1, 1}, 1}));
}

TEST(NimbraVolPlugin, RayWithoutAVolume_IsLeftAlone) {
    Collector c;
    std::vector<Fragment> fragments;
    c.context.fragments = &fragments;
    expectEmpty(c.shade());
    Container container;
    c.collect({&container});
    container.visible = false;
    expectEmpty(c.shade());
    container.visible = true;
    c.context.ray.mint = 5;
    c.context.ray.maxt = 4;
    expectEmpty(c.shade());
    c.context.ray = TraceRay();
    c.context.ray.dir = {0, 0, 1};
    c.context.threadIndex = 7;
    expectEmpty(c.shade());
    EXPECT_TRUE(fragments.empty());
}

TEST(NimbraVolPlugin, Smoke_DimsWhatLiesBehind) {
    Collector c;
    Container container;
    container.renderer().noscatter = kScatterRayTraced;
    c.collect({&container});
    std::vector<Fragment> fragments;
    c.context.fragments = &fragments;
    EXPECT_TRUE(isDimmed(c.transparency(), 10));
    // Without light the smoke itself is black.
    EXPECT_EQ(c.context.volumeResult.color, AColor());
    EXPECT_EQ(c.context.volumeResult.transparency2, c.context.volumeResult.transparency);
    EXPECT_EQ(c.context.volumeResult.transparency.alpha,
              c.context.volumeResult.transparency.color.b);
    ASSERT_EQ(fragments.size(), 1u);
    EXPECT_EQ(fragments[0].kind, 100);
    EXPECT_EQ(fragments[0].transparency, c.context.volumeResult.transparency.color);
    EXPECT_TRUE(isDimmed(c.transparency(kRayShadow), 10));
    // A stretch of the ray.
    c.context.ray.mint = 7;
    c.context.ray.maxt = 11;
    EXPECT_TRUE(isDimmed(c.transparency(), 4));
}

TEST(NimbraVolPlugin, Register_TakesEachPluginOnce) {
    Collector c;
    Container many(3), without;
    without.offersItself = false;
    c.collect({&many, &without, &many});
    EXPECT_EQ(getVolumeRegister(&c.renderer)->plugins.size, 2);
    EXPECT_EQ(c.plugin.shaders.size, 3);
    EXPECT_EQ(c.plugin.simInterfaces[2], &many);
    EXPECT_EQ(c.renderer.log.count("warning: [NimbraVolPlugin] The Nimbra simulator plugin does "
                                   "not support NimbraSimInterface.\n"),
              1);
    FakeRenderer other;
    EXPECT_NE(getVolumeRegister(&other), getVolumeRegister(&c.renderer));
    EXPECT_EQ(c.renderer.getInterface(ids::kNimbraVolumeRegister), getVolumeRegister(&c.renderer));
}

TEST(NimbraVolPlugin, ShadowOfItsOwnFire_ScattersByItsOwnFactor) {
    Collector c;
    Container container, other;
    SmokeRenderer& smoke = container.renderer();
    smoke.noscatter = kScatterApproximateShadows;
    smoke.transfown = 2;
    smoke.transfext = 1;
    c.collect({&container});
    const float external = c.transparency(kRayShadow);
    c.context.ray.light = &other;
    EXPECT_EQ(c.transparency(kRayShadow), external);
    c.context.ray.light = &container;
    const float own = c.transparency(kRayShadow);
    EXPECT_GT(own, external + 0.05f);
    container.isLight = false;
    EXPECT_EQ(c.transparency(kRayShadow), external);
    // The container must take part in the ray.
    container.isLight = true;
    container.visible = false;
    other.renderer().noscatter = kScatterApproximateShadows;
    other.renderer().transfown = 2;
    c.collect({&other});
    EXPECT_EQ(c.transparency(kRayShadow), external);
}

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

TEST(NimbraVolPlugin, Light_PassesThroughTheSmokeThatItShadows) {
    Collector c;
    Container container;
    container.renderer().keepsTimes = true;
    container.renderer().times[0] = -1;
    SunThroughVolumes sun(c.plugin);
    c.context.lights = &sun;
    c.collect({&container});
    sun.shadows = false;
    // White smoke in full light scatters all that it takes away.
    EXPECT_TRUE(isDimmed(1 - c.shade().color.color.g, 10));
    EXPECT_EQ(sun.lastOrigin, container.renderer().hostObject());
    // The ray runs 5 below the top: all its light is dimmed alike.
    sun.shadows = true;
    const float opacity = 1 - c.transparency();
    EXPECT_TRUE(isDimmed(c.shade().color.color.g / opacity, 5));
    EXPECT_EQ(c.context.volumeResult.color.alpha, c.context.volumeResult.color.color.b);
    EXPECT_EQ(container.renderer().times[0], -1);
}

/// Keeps the times at which it is asked.
struct TimedTexture : TextureInterface {
    std::vector<float> times;
    AColor getTexColor(const TextureContext& context) override {
        times.push_back(static_cast<float>(context.time));
        return {{1, 1, 1}, 1};
    }
};

TEST(NimbraVolPlugin, ShadowRaysOfAnotherTime_DontMoveTheTexturesOfTheRay) {
    Collector c;
    Container container;
    TimedTexture texture;
    container.renderer().flags |= kTexDiffuse;
    container.renderer().textures[kDiffuseTexture] = &texture;
    SunThroughVolumes sun(c.plugin);
    c.context.lights = &sun;
    c.context.ray.time = 0.75f;
    c.collect({&container});
    c.shade();
    ASSERT_GT(texture.times.size(), 10u);
    EXPECT_EQ(std::set<float>(texture.times.begin(), texture.times.end()), std::set<float>{0.75f});
}

TEST(NimbraVolPlugin, LightCache_HoldsTheSameLight) {
    Collector c;
    Container container;
    SmokeRenderer& smoke = container.renderer();
    SunThroughVolumes sun(c.plugin);
    c.context.lights = &sun;
    c.collect({&container});
    const Color lit = c.shade().color.color;
    smoke.flags |= kLightCache;
    smoke.setGridSize(smoke.frame->gridSize);
    ASSERT_NE(smoke.lightCache, nullptr);
    // The ray runs along a line of voxels, in whose plane the light is even. Only the last step
    // differs: the shadow ray from the grid's face grazes the smoke.
    const Color cached = c.shade().color.color;
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(cached[i], lit[i], kStep * kDensity * lit[i]);
    EXPECT_GT(lit.g, 0.1f);
    // What is in the cache is used again.
    sun.lastOrigin = nullptr;
    c.shade();
    EXPECT_EQ(sun.lastOrigin, nullptr);
}

TEST(NimbraVolPlugin, ManyContainers_AreFoundByTheTree) {
    Collector c;
    std::vector<std::unique_ptr<Container>> containers;
    for (int i = 0; i < 12; ++i) {
        containers.push_back(
            std::make_unique<Container>(1, Vector{i % 2 ? 20.0f : 0.0f, 0, 12.0f * float(i)}));
        getVolumeRegister(&c.renderer)->add(containers.back().get());
    }
    c.plugin.compileGeometry(&c.renderer);
    EXPECT_EQ(c.renderer.log.count("info: QND tree contains 12 primitives."), 1);
    EXPECT_EQ(c.renderer.log.count("info: QND tree built in "), 1);
    // Every second one stands aside of the ray.
    EXPECT_TRUE(isDimmed(c.transparency(), 60, 6));
    containers[0]->visible = false;
    EXPECT_TRUE(isDimmed(c.transparency(), 50, 5));
}

struct HostSamples : ProbabilisticSettingsInterface {
    int samples() const override { return 8; }
    int samplesGI() const override { return 3; }
};

TEST(NimbraVolPlugin, ProbabilisticSamples_OfTheHostUnlessForced) {
    PluginDesc* const desc = test::descriptor("NmbShaderSimVol");
    FakeRenderer renderer;
    HostSamples host;
    DefParam force("force_prob_samples", 0), forceGI("force_prob_samples_gi", -1);
    const auto counts = [&](bool withRows) {
        Plugin* created = desc->newPlugin();
        auto* plugin = dynamic_cast<NimbraVolPlugin*>(created);
        if (withRows) {
            EXPECT_TRUE(plugin->setParameter(&force));
            EXPECT_TRUE(plugin->setParameter(&forceGI));
        }
        plugin->setupRender(&renderer);
        const std::pair<int, int> result(plugin->samples, plugin->samplesGI);
        desc->deletePlugin(created);
        return result;
    };
    EXPECT_EQ(counts(false), std::pair(0, 0));
    renderer.sequence.addInterface(&host, false);
    EXPECT_EQ(counts(false), std::pair(8, 3));
    EXPECT_EQ(counts(true), std::pair(0, 3));
    force = DefParam("force_prob_samples", -1);
    forceGI = DefParam("force_prob_samples_gi", 16);
    EXPECT_EQ(counts(true), std::pair(8, 16));
}

TEST(NimbraVolPlugin, ProbabilisticSamples_ByTheClassOfTheRay) {
    Collector c;
    Container container;
    c.collect({&container});
    c.plugin.samples = 0;
    c.plugin.samplesGI = 1;
    struct Numbers : RaySampler {
        float next() override { return 0.5f; }
    } numbers;
    c.context.sampler = &numbers;
    const float blended = c.transparency(kRayPath);
    EXPECT_GT(blended, 0);
    EXPECT_LT(blended, 1);
    // One sample is either hit or missed.
    const float sampled = c.transparency(kRayPath | kRayGI);
    EXPECT_TRUE(sampled == 0 || sampled == 1) << sampled;
    // A transparency query always blends.
    EXPECT_TRUE(isDimmed(c.transparency(kRayShadow), 10));
}

TEST(NimbraVolPlugin, VolumetricList_IsJoinedAndLeft) {
    FakeRenderer renderer;
    VolumetricListInterface list;
    renderer.sequence.addInterface(&list, false);
    NimbraVolPlugin a(nullptr), b(nullptr), c(nullptr), stranger(nullptr);
    for (NimbraVolPlugin* plugin : {&a, &b, &c})
        plugin->setupRender(&renderer);
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

TEST(NimbraVolPlugin, Channels_AreSharedUnlessAContainerWantsItsOwn) {
    test::SimFixture fixture;
    NimbraVolPlugin plugin(nullptr);
    plugin.normalChannel.shared = plugin.zDepthChannel.shared = false;
    getVolumeRegister(&fixture.renderer)->add(fixture.sim);
    plugin.renderBegin(&fixture.renderer);
    EXPECT_TRUE(plugin.normalChannel.shared && plugin.zDepthChannel.shared &&
                plugin.ageChannel.shared);
    fixture.set("volnorm", 1);
    fixture.set("volzdepth", 1);
    plugin.renderBegin(&fixture.renderer);
    EXPECT_FALSE(plugin.normalChannel.shared);
    EXPECT_TRUE(plugin.zDepthChannel.shared);
    fixture.set("volzdepth", 2);
    plugin.renderBegin(&fixture.renderer);
    EXPECT_FALSE(plugin.zDepthChannel.shared);
}

}  // namespace
}  // namespace nimbra
