// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The container's frame load: what it asks of the cache, what it says, and the shader it leaves.
#include "plugin/sim_plugin.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugin/fake_host.h"
#include "plugin/volume_register.h"
#include "tessra/light.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::FakeCache;
using test::makeFrame;
using test::SimFixture;

TEST(SimPlugin, NoCache_OneWarningEachFrame) {
    SimFixture f;
    f.set("cache", static_cast<PluginBase*>(nullptr));
    f.sim->preFrameBegin(&f.renderer);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.log.lines, std::vector<std::string>(
                               2, "warning: [NimbraSimPlugin] No Nimbra cache specified.\n"));
    EXPECT_EQ(f.sim->getFrameByTime(kLoadedFrameTime), nullptr);
    EXPECT_EQ(f.sim->getFrameIndices(5, true, nullptr, nullptr), 0);
    EXPECT_EQ(f.sim->getRenderer(0), nullptr);
}

TEST(SimPlugin, CacheWithoutInterface_IsToldApart) {
    SimFixture f;
    f.cache.hasInterface = false;
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.log.lines,
              std::vector<std::string>(
                  {"warning: [NimbraSimPlugin] Unable to acquire the Nimbra cache interface.\n"}));
}

TEST(SimPlugin, FrameRequest_DependsOnContentTimeAndEngine) {
    SimFixture f;
    f.renderer.frame.t = 2.5;
    f.renderer.frame.frameNumber = 7;
    f.sim->preFrameBegin(&f.renderer);
    test::FakeEngine engine;
    f.renderer.sequence.addInterface(&engine, false);
    engine.realtime = true;
    f.sim->preFrameBegin(&f.renderer);  // the sequence isn't an interactive one
    f.renderer.sequence.isInteractive = 1;
    f.sim->preFrameBegin(&f.renderer);
    f.set("contentTime", 5);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.cache.asked, (std::vector<std::string>{"time 2.500000", "time 2.500000",
                                                       "content 7", "content 5"}));
    EXPECT_EQ(f.log.lines,
              (std::vector<std::string>{
                  "info: [NimbraSimPlugin] No simulation data for frame time 2.5!\n",
                  "info: [NimbraSimPlugin] No simulation data for frame time 2.5!\n",
                  "info: [NimbraSimPlugin] No simulation data for frame time 7!\n",
                  "info: [NimbraSimPlugin] No simulation data for content time 5!\n"}));
}

TEST(SimPlugin, FrameLoad_LeavesAShaderInPlace) {
    SimFixture f;
    f.cache.frame = makeFrame(4, 6, 8, 0.5f);
    Transform place;
    place.f[0] = {2, 0, 0};
    place.f[1] = {0, 2, 0};
    place.f[2] = {0, 0, 2};
    place.offs = {1000010, 0, 0};
    f.set("node_transform", place);
    f.renderer.frame.sceneOffset = {1000000, 0, 0};
    f.sim->preFrameBegin(&f.renderer);

    EXPECT_EQ(f.log.count("info: [NimbraSimPlugin] grid 4x6x8, cache index 1.\n"), 1);
    NimbraRenderer* shader = f.sim->getRenderer(0);
    ASSERT_NE(shader, nullptr);
    EXPECT_EQ(f.sim->getRenderer(1), nullptr);
    EXPECT_EQ(shader->gridSize[2], 8);
    EXPECT_TRUE(shader->channels[kSlotT].loaded);
    EXPECT_FALSE(shader->moving);
    // Cells of 0.5, doubled by the node.
    EXPECT_FLOAT_EQ(f.sim->worldCellSize(), 1);
    EXPECT_FLOAT_EQ(shader->cellScale, 1);
    const TracePoint world = shader->worldFromGridPoint({2, 4, 6}, 0);
    EXPECT_DOUBLE_EQ(world.x, 12);
    EXPECT_DOUBLE_EQ(world.y, 4);
    EXPECT_DOUBLE_EQ(world.z, 6);
    EXPECT_EQ(f.sim->getGridTransforms()->worldFromGrid.axis[0].x, 1);

    f.sim->frameBegin(&f.renderer);
    f.sim->postFrameEnd(&f.renderer);
    EXPECT_EQ(f.sim->getRenderer(0), nullptr);
    f.sim->postFrameEnd(nullptr);

    f.cache.frame->frameNumber = NimbraFrameData::kNoFrame;
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.log.count("cache index 0.\n"), 1);
}

TEST(SimPlugin, FrameDuration_RowThenUnitsThenUsual) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    const auto loaded = [&] {
        f.sim->preFrameBegin(&f.renderer);
        return f.sim->getRenderer(0)->frameDuration;
    };
    EXPECT_FLOAT_EQ(loaded(), 1.0f / 30);
    test::FakeUnits units;
    f.renderer.sequence.addInterface(&units, false);
    EXPECT_FLOAT_EQ(loaded(), 1.0f / 24);
    f.set("frame_duration", 0.001f);
    EXPECT_FLOAT_EQ(loaded(), 1.0f / 24);
    f.set("frame_duration", 0.0011f);
    EXPECT_FLOAT_EQ(loaded(), 0.0011f);
}

TEST(SimPlugin, Units_ScaleAndUpAxis) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    f.set("unit_scale", 3.0f);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.sim->sceneUpAxis(), 1);
    EXPECT_FLOAT_EQ(f.sim->timeScale(), 3);
    test::FakeUnits units;
    units.metres = 0.5f;
    f.renderer.sequence.addInterface(&units, false);
    const struct {
        Vector up;
        int axis;
    } cases[] = {{{0, 0, 1}, 2}, {{0, -1, 0.5f}, 1}, {{1, 1, 1}, 0}, {{0, 1, -1}, 1}};
    for (const auto& c : cases) {
        units.up = c.up;
        f.sim->preFrameBegin(&f.renderer);
        EXPECT_EQ(f.sim->sceneUpAxis(), c.axis);
    }
    EXPECT_FLOAT_EQ(f.sim->timeScale(), 1.5f);
}

TEST(SimPlugin, DensityScale_FollowsTheCells) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2, 0.25f);
    f.set("basedensityscale", 2.0f);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.sim->getDensityScale(f.cache.frame.get()), 1);
    f.set("alphaunitscale", true);
    EXPECT_EQ(f.sim->getDensityScale(nullptr), 1);
    EXPECT_FLOAT_EQ(f.sim->getDensityScale(f.cache.frame.get()), 2.0f * 3 / 0.75f);
    for (float& entry : f.cache.frame->transform)
        entry = 0;
    EXPECT_EQ(f.sim->getDensityScale(f.cache.frame.get()), 1);
}

TEST(SimPlugin, RenderMode_FirstRuleThatHolds) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    const auto mode = [&] {
        f.sim->preFrameBegin(&f.renderer);
        return static_cast<int>(f.sim->getRenderMode());
    };
    EXPECT_EQ(mode(), kModeVolumetric);
    f.set("geommode", 1);
    EXPECT_EQ(mode(), kModeVolumetricGeometry);
    f.set("heathaze", 1);
    EXPECT_EQ(mode(), kModeHeatHaze);
    f.set("rendsolid", 1);
    EXPECT_EQ(mode(), kModeIsosurface);
    f.set("mesher", true);
    EXPECT_EQ(mode(), kModeMesh);
    f.set("ocean", true);
    EXPECT_EQ(mode(), kModeOceanMesh);
    f.set("rendMode", 0);
    EXPECT_EQ(mode(), kModeOceanMesh);
    f.set("rendMode", 2);
    EXPECT_EQ(mode(), kModeHeatHaze);
}

TEST(SimPlugin, ChannelBase_CountsSimpleSmokeAsSmoke) {
    SimFixture f;
    EXPECT_EQ(f.sim->getChannelBase(0), 1);
    EXPECT_EQ(f.sim->getChannelBase(1), 5);
    EXPECT_EQ(f.sim->getChannelBase(2), 2);
    EXPECT_EQ(f.sim->getChannelBase(3), 2);
    EXPECT_EQ(f.sim->getChannelBase(4), -1);
    f.set("targ", 10);
    EXPECT_EQ(f.sim->getChannelBase(2), 10);
}

TEST(SimPlugin, Collector_IsJoinedOnce) {
    SimFixture f;
    f.sim->preRenderBegin(&f.renderer);
    EXPECT_EQ(getVolumeRegister(&f.renderer)->plugins.size, 0);
    f.sim->postRenderEnd(&f.renderer);
    f.set("renderAsVolumetric", true);
    f.sim->preRenderBegin(&f.renderer);
    f.sim->renderBegin(&f.renderer);
    ASSERT_EQ(getVolumeRegister(&f.renderer)->plugins.size, 1);
    EXPECT_EQ(getVolumeRegister(&f.renderer)->plugins[0], f.sim);
    f.sim->postRenderEnd(&f.renderer);
}

TEST(SimPlugin, MissingFrame_FallsBackToTheRowsOfItsGrid) {
    // A cache whose scene describes a grid, but that has no frame for this time.
    SimFixture f;
    struct CacheWithRows : FakeCache, TessraPluginInterface {
        PluginInterface* getInterface(InterfaceID id) override {
            return id == ids::kTessraPlugin ? static_cast<TessraPluginInterface*>(this)
                                            : FakeCache::getInterface(id);
        }
        Plugin* getPlugin() override { return this; }
        void renderBegin(TessraRenderer*) override {}
        void renderEnd(TessraRenderer*) override {}
        void frameBegin(TessraRenderer*) override {}
        void frameEnd(TessraRenderer*) override {}
        bool setParameter(TessraPluginParameter*) override { return false; }
        TessraPluginParameter* getParameter(const char* name) override {
            for (DefParam& row : rows)
                if (std::string(row.getName()) == name)
                    return &row;
            return nullptr;
        }
        std::deque<DefParam> rows;
    } cache;
    f.set("cache", static_cast<PluginBase*>(static_cast<Plugin*>(&cache)));
    for (const char* row : {"grid_size_x", "grid_size_y", "grid_size_z"})
        cache.rows.emplace_back(row, 10.4f);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_EQ(f.sim->getRenderer(0)->gridSize[0], 0);

    cache.rows.emplace_back("cell_size", 0.5f);
    cache.rows.emplace_back("dynamic_offset_y", 3.0f);
    f.sim->preFrameBegin(&f.renderer);
    const NimbraRenderer& shader = *f.sim->getRenderer(0);
    EXPECT_EQ(shader.gridSize[0], 10);
    EXPECT_EQ(f.log.count("No simulation data for frame time 0!"), 2);
    // The middle of the bottom stands on the object's offset.
    const TracePoint middle = shader.worldFromGridPoint({5, 5, 0}, 0);
    EXPECT_NEAR(middle.x, 0, 1e-6);
    EXPECT_NEAR(middle.y, 3, 1e-6);
    EXPECT_NEAR(middle.z, 0, 1e-6);
}

TEST(SimPlugin, LightLinks_KeepEmptyEntries) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    struct FakeLight : Plugin, LightInterface {
        PluginDesc* getPluginDesc() override { return nullptr; }
        PluginInterface* getInterface(InterfaceID id) override {
            return id == ids::kLight ? static_cast<LightInterface*>(this)
                                     : Plugin::getInterface(id);
        }
        Plugin* getPlugin() override { return this; }
        LightSampler* newLightSampler(ShadingContext&, const ShadeData&) override {
            return nullptr;
        }
        void deleteLightSampler(LightSampler*, int) override {}
    } light;
    auto* asBase = static_cast<PluginBase*>(static_cast<Plugin*>(&light));
    f.setList("lightlinks", paramtype_plugin, {asBase, static_cast<PluginBase*>(nullptr)});
    f.sim->preFrameBegin(&f.renderer);
    ASSERT_EQ(f.sim->getRenderer(0)->lightLinks.size(), 2u);
    EXPECT_EQ(f.sim->getRenderer(0)->lightLinks[0], asBase);
    EXPECT_EQ(f.sim->getRenderer(0)->lightLinks[1], nullptr);
    f.sim->postFrameEnd(&f.renderer);
    f.set("enabled", false);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_TRUE(static_cast<NimbraRenderer*>(f.sim)->lightLinks.empty());
}

TEST(SimPlugin, Visibility_HidesByRayClass) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    struct Ray {
        const char* row;
        std::uint32_t flags;
        int depth;
    };
    const std::vector<Ray> rays = {{"camera_visibility", kRayPath, 0},
                                   {"reflections_visibility", kRayPath | kRayReflection, 1},
                                   {"refractions_visibility", kRayPath | kRayRefraction, 1},
                                   {"gi_visibility", kRayPath | kRayGI, 1},
                                   {"shadows_visibility", kRayShadow, 1}};
    // Other rows only set bits that shaders ask for.
    const std::pair<const char*, std::uint32_t> bits[] = {{"generate_gi", 1},
                                                          {"receive_gi", 2},
                                                          {"shadows_visibility", 4},
                                                          {"generate_caust", 8},
                                                          {"receive_caust", 0x10},
                                                          {"camera_visibility", 0x20},
                                                          {"reflections_visibility", 0x40},
                                                          {"refractions_visibility", 0x80},
                                                          {"gi_visibility", 0x100}};
    for (const auto& [row, bit] : bits) {
        f.set(row, false);
        f.sim->preFrameBegin(&f.renderer);
        EXPECT_EQ(f.sim->getRenderer(0)->visibility, 0x1Bu ^ bit) << row;
        f.set(row, true);
    }
    for (const Ray& hidden : rays) {
        f.set(hidden.row, false);
        f.sim->preFrameBegin(&f.renderer);
        for (const Ray& ray : rays) {
            ShadingContext context;
            context.ray.flags = ray.flags;
            context.ray.depth = ray.depth;
            EXPECT_EQ(f.sim->isVisibleFor(context), ray.row != hidden.row)
                << ray.row << " with " << hidden.row << " off";
        }
        f.set(hidden.row, true);
    }
}

TEST(SimPlugin, SelfShadow_IsForTheOwnLightsOnly) {
    SimFixture f;
    f.cache.frame = makeFrame(2, 2, 2);
    ShadingContext context;
    context.ray.flags = kRayShadow;
    context.ray.light = f.sim;
    f.set("selfshadow", 0);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_FALSE(f.sim->isVisibleFor(context));
    context.ray.light = &f.cache;
    EXPECT_TRUE(f.sim->isVisibleFor(context));
    context.ray.light = f.sim;
    f.set("selfshadow", 1);
    f.sim->preFrameBegin(&f.renderer);
    EXPECT_TRUE(f.sim->isVisibleFor(context));
}

}  // namespace
}  // namespace nimbra
