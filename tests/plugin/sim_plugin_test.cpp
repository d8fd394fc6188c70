// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The container's frame load: what it asks of the cache, what it says, the shader it leaves, and
// how that moves within the frame.
#include "plugin/sim_plugin.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cache/cache_plugin.h"
#include "plugin/fake_host.h"
#include "plugin/volume_register.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::makeFrame;
using Lines = std::vector<std::string>;

class SimPlugin : public test::SimFixture {
protected:
    SimPlugin() { cache.frame = makeFrame(2, 2, 2); }
};

TEST_F(SimPlugin, WithoutACache_OneWarningEachFrame) {
    cache.removeInterface(&cache);
    load();
    set("cache", static_cast<PluginBase*>(nullptr));
    load();
    load();
    const std::string none = "warning: [NimbraSimPlugin] No Nimbra cache specified.\n";
    EXPECT_EQ(log.lines, (Lines{"warning: [NimbraSimPlugin] Unable to acquire the Nimbra cache "
                                "interface.\n",
                                none, none}));
    sim->postFrameEnd(&renderer);
    EXPECT_EQ(sim->getFrameByTime(kLoadedFrameTime), nullptr);
    EXPECT_EQ(sim->getFrameIndices(5, true, nullptr, nullptr), 0);
    EXPECT_EQ(sim->getRenderer(0), nullptr);
}

TEST_F(SimPlugin, FrameRequest_DependsOnContentTimeAndEngine) {
    cache.frame = nullptr;
    renderer.frame.t = 2.5;
    renderer.frame.frameNumber = 7;
    load();
    interact(false, true);
    load();
    renderer.sequence.isInteractive = 0;
    load();
    renderer.sequence.isInteractive = 1;
    set("contentTime", 5);
    load();
    EXPECT_EQ(cache.asked, (Lines{"time 2.500000", "content 7", "time 2.500000", "content 5"}));
    const std::string none = "info: [NimbraSimPlugin] No simulation data for ";
    EXPECT_EQ(log.lines, (Lines{none + "frame time 2.5!\n", none + "frame time 7!\n",
                                none + "frame time 2.5!\n", none + "content time 5!\n"}));
}

TEST_F(SimPlugin, FrameLoad_LeavesAShaderInPlace) {
    cache.frame = makeFrame(4, 6, 8, 0.5f);
    set("node_transform", Transform{{{2, 0, 0}, {0, 2, 0}, {0, 0, 2}}, {1000010, 0, 0}});
    renderer.frame.sceneOffset = {1000000, 0, 0};
    NimbraRenderer* const shader = load();
    ASSERT_NE(shader, nullptr);
    EXPECT_EQ(log.count("info: [NimbraSimPlugin] grid 4x6x8, cache index 1.\n"), 1);
    EXPECT_EQ(sim->getRenderer(1), nullptr);
    EXPECT_EQ(shader->gridSize[2], 8);
    EXPECT_TRUE(shader->channels[kSlotT].loaded);
    EXPECT_FALSE(shader->moving);
    // Cells of 0.5, doubled by the node.
    EXPECT_FLOAT_EQ(sim->worldCellSize(), 1);
    EXPECT_FLOAT_EQ(shader->cellScale, 1);
    EXPECT_EQ(shader->worldFromGridPoint({2, 4, 6}, 0), (TracePoint{12, 4, 6}));
    EXPECT_EQ(sim->getGridTransforms()->worldFromGrid.axis[0].x, 1);

    sim->frameBegin(&renderer);
    sim->postFrameEnd(&renderer);
    EXPECT_EQ(sim->getRenderer(0), nullptr);
    sim->postFrameEnd(nullptr);
    cache.frame->frameNumber = NimbraFrameData::kNoFrame;
    load();
    EXPECT_EQ(log.count("cache index 0.\n"), 1);
}

TEST_F(SimPlugin, Units_FrameDurationScaleAndUpAxis) {
    set("unit_scale", 3.0f);
    EXPECT_FLOAT_EQ(load()->frameDuration, 1.0f / 30);
    EXPECT_EQ(sim->sceneUpAxis(), 1);
    EXPECT_FLOAT_EQ(sim->timeScale(), 3);
    test::FakeUnits units;
    units.metres = 0.5f;
    renderer.sequence.addInterface(&units, false);
    const std::pair<Vector, int> axes[] = {
        {{0, 0, 1}, 2}, {{0, -1, 0.5f}, 1}, {{1, 1, 1}, 0}, {{0, 1, -1}, 1}};
    for (const auto& [up, axis] : axes) {
        units.up = up;
        EXPECT_FLOAT_EQ(load()->frameDuration, 1.0f / 24);
        EXPECT_EQ(sim->sceneUpAxis(), axis);
    }
    EXPECT_FLOAT_EQ(sim->timeScale(), 1.5f);
    set("frame_duration", 0.001f);  // too short to count
    EXPECT_FLOAT_EQ(load()->frameDuration, 1.0f / 24);
    set("frame_duration", 0.0011f);
    EXPECT_FLOAT_EQ(load()->frameDuration, 0.0011f);
}

TEST_F(SimPlugin, DensityScale_FollowsTheCells) {
    cache.frame = makeFrame(2, 2, 2, 0.25f);
    set("basedensityscale", 2.0f);
    load();
    EXPECT_EQ(sim->getDensityScale(cache.frame.get()), 1);
    set("alphaunitscale", true);
    EXPECT_EQ(sim->getDensityScale(nullptr), 1);
    EXPECT_FLOAT_EQ(sim->getDensityScale(cache.frame.get()), 2.0f * 3 / 0.75f);
    std::fill_n(cache.frame->transform, 12, 0.0f);
    EXPECT_EQ(sim->getDensityScale(cache.frame.get()), 1);
}

TEST_F(SimPlugin, RenderMode_FirstRuleThatHolds) {
    const struct {
        const char* row;
        ParamScalar value;
        RenderMode mode;
    } cases[] = {{"geommode", 0, kModeVolumetric}, {"geommode", 1, kModeVolumetricGeometry},
                 {"heathaze", 1, kModeHeatHaze},   {"rendsolid", 1, kModeIsosurface},
                 {"mesher", true, kModeMesh},      {"ocean", true, kModeOceanMesh},
                 {"rendMode", 0, kModeOceanMesh},  {"rendMode", 2, kModeHeatHaze}};
    for (const auto& c : cases) {
        set(c.row, c.value);
        load();
        EXPECT_EQ(sim->getRenderMode(), c.mode) << c.row;
    }
}

TEST_F(SimPlugin, ChannelBase_CountsSimpleSmokeAsSmoke) {
    const int expected[] = {1, 5, 2, 2, -1};
    for (int which = 0; which < 5; ++which)
        EXPECT_EQ(sim->getChannelBase(which), expected[which]) << which;
    set("targ", 10);
    EXPECT_EQ(sim->getChannelBase(2), 10);
}

TEST_F(SimPlugin, Collector_IsJoinedOnce) {
    const auto& joined = getVolumeRegister(&renderer)->plugins;
    sim->preRenderBegin(&renderer);
    EXPECT_EQ(joined.size, 0);
    sim->postRenderEnd(&renderer);
    set("renderAsVolumetric", true);
    sim->preRenderBegin(&renderer);
    sim->renderBegin(&renderer);
    ASSERT_EQ(joined.size, 1);
    EXPECT_EQ(joined[0], sim.get());
    sim->postRenderEnd(&renderer);
}

TEST_F(SimPlugin, MissingFrame_FallsBackToTheRowsOfItsGrid) {
    test::Made<NimbraCachePlugin> described("NmbShaderCache");
    described.set("cache_path", "/nowhere/a_####.vdb");
    set("cache", described.get());
    for (const char* row : {"grid_size_x", "grid_size_y", "grid_size_z"})
        described.set(row, 10.4f);
    EXPECT_EQ(load()->gridSize[0], 0);
    described.set("cell_size", 0.5f);
    described.set("dynamic_offset_y", 3.0f);
    const NimbraRenderer& shader = *load();
    EXPECT_EQ(shader.gridSize[0], 10);
    EXPECT_EQ(log.count("No simulation data for frame time 0!"), 2);
    // The middle of the bottom stands on the object's offset.
    EXPECT_EQ(shader.worldFromGridPoint({5, 5, 0}, 0), (TracePoint{0, 3, 0}));
}

TEST_F(SimPlugin, LightLinks_KeepEmptyEntries) {
    test::PluginOf<test::DarkLight> light;
    setList("lightlinks", paramtype_plugin, {&light, static_cast<PluginBase*>(nullptr)});
    EXPECT_EQ(load()->lightLinks, (std::vector<PluginBase*>{&light, nullptr}));
    sim->postFrameEnd(&renderer);
    set("enabled", false);
    load();
    EXPECT_TRUE(static_cast<NimbraRenderer*>(sim.get())->lightLinks.empty());
}

TEST_F(SimPlugin, Visibility_HidesByRayClassAndFromOwnLights) {
    const struct Ray {
        const char* row;
        std::uint32_t flags;
        int depth;
    } rays[] = {{"camera_visibility", kRayPath, 0},
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
        set(row, false);
        EXPECT_EQ(load()->visibility, 0x1Bu ^ bit) << row;
        set(row, true);
    }
    ShadingContext context;
    for (const Ray& hidden : rays) {
        set(hidden.row, false);
        load();
        for (const Ray& ray : rays) {
            context.ray.flags = ray.flags;
            context.ray.depth = ray.depth;
            EXPECT_EQ(sim->isVisibleFor(context), ray.row != hidden.row)
                << ray.row << " with " << hidden.row << " off";
        }
        set(hidden.row, true);
    }
    // A shadow ray towards a light of its own.
    context.ray.light = sim.get();
    for (const int selfShadow : {0, 1}) {
        set("selfshadow", selfShadow);
        load();
        EXPECT_EQ(sim->isVisibleFor(context), selfShadow == 1);
    }
    set("selfshadow", 0);
    load();
    context.ray.light = &cache;
    EXPECT_TRUE(sim->isVisibleFor(context));
}

using test::addChannel;

Transform shifted(double x) {
    return {.offs = {x, 0, 0}};
}

class SimMotion : public test::SimFixture {
protected:
    SimMotion() {
        cache.frame = makeFrame(8, 8, 8);
        set("node_transform", shifted(0));
        sim.last().setKey(1, shifted(10));
        sim.last().setKey(2, shifted(20));
        renderer.frame.t = 1.5;
        renderer.frame.frameStart = 1.25;
        renderer.frame.frameEnd = 1.75;
        renderer.sequence.motionBlurOn = 1;
    }
    void addVelocity(float x) {
        for (const int channel : {kVelocityX, kVelocityY, kVelocityZ})
            addChannel(*cache.frame, channel);
        for (int i = 0; i < 512; ++i)
            cache.frame->channels[kVelocityX].write(i, x);
    }
    static double originAt(const NimbraRenderer& shader, float time) {
        return shader.worldFromGridPoint({0, 0, 0}, time).x;
    }
};

TEST_F(SimMotion, Transform_IsReadAtBothEndsOfTheInterval) {
    NimbraRenderer& moving = *load();
    EXPECT_TRUE(moving.moving);
    EXPECT_NEAR(originAt(moving, 0), 12.5, 1e-5);
    EXPECT_NEAR(originAt(moving, 1), 17.5, 1e-5);
    EXPECT_NEAR(moving.gridFromWorldAt(0.5f).applyPoint(Vector{15, 0, 0}).x, 0, 1e-5);
    // The record for other plug-ins stands at the frame's own time.
    EXPECT_NEAR(sim->getGridTransforms()->worldFromGrid.offset.x, 15, 1e-5);
    renderer.sequence.motionBlurOn = 0;
    NimbraRenderer& still = *load();
    EXPECT_FALSE(still.moving);
    EXPECT_NEAR(originAt(still, 1), 15, 1e-5);
}

TEST_F(SimMotion, WindFromMovement_TakesTheContainersWayOut) {
    addVelocity(3);
    set({{"wind_from_movement", true}, {"frame_duration", 0.5f}});
    // Half a frame of half a second each: 5 cells in a quarter of a second.
    const Vector v = load()->getVelocity({4, 4, 4});
    EXPECT_NEAR(v.x, 3 - 20, 1e-4);
    EXPECT_NEAR(v.y, 0, 1e-4);
}

TEST_F(SimMotion, ExplicitVelocities_NeedOneEntryForEachCell) {
    cache.frame = makeFrame(2, 1, 1, 0.5f);
    setList("velocities", paramtype_color, {Color{1, 2, 3}});
    load();
    EXPECT_FALSE(cache.frame->hasChannel(kVelocityX));
    setList("velocities", paramtype_color, {Color{1, 2, 3}, Color{4, 5, 6}});
    // Twice the cells of 0.5 in a scene unit.
    EXPECT_FLOAT_EQ(load()->getVelocity({1, 0, 0}).x, 4 * 2 * 2);
    EXPECT_EQ(log.count("Motion blur without"), 0);
    // The frame's own velocities stay.
    setList("velocities", paramtype_color, {Color{9, 9, 9}, Color{9, 9, 9}});
    load();
    EXPECT_FLOAT_EQ(cache.frame->channels[kVelocityZ].read(1), 6 * 2 * 2);
}

TEST_F(SimMotion, VelocitiesFromOrigin_AreBoundAndFlagged) {
    addVelocity(3);
    set("velocities_from_uvw", true);
    EXPECT_EQ(load()->getVelocity({1, 1, 1}), Vector()) << "the origins that were to tell it";
    set("velocities_from_uvw", false);
    addChannel(*cache.frame, kAdvectionOriginY);
    EXPECT_FALSE(load()->has(kOriginMotion));
    set("velocities_from_uvw", true);
    NimbraRenderer& shader = *load();
    EXPECT_TRUE(shader.has(kOriginMotion));
    EXPECT_FLOAT_EQ(shader.getVelocity({1, 1, 1}).x, 3);
    EXPECT_FALSE(shader.channels[kSlotOrigin].loaded);
    EXPECT_TRUE(shader.channels[kSlotOrigin + 1].loaded);
}

TEST_F(SimMotion, Instance_MovesTheContainerAlong) {
    renderer.frame.sceneOffset.x = 50;  // must not be scaled by the instance
    NimbraRenderer& shader = *load();
    Transform instance = shifted(150);
    instance.f[0] = {2, 0, 0};
    sim->setInstanceTransform(instance, 0);
    sim->setInstanceTransform(shifted(250), 1);
    EXPECT_NEAR(originAt(shader, 0), 100 + 2 * 12.5, 1e-4);
    EXPECT_NEAR(originAt(shader, 1), 200 + 17.5, 1e-4);
    // Placed anew, not on top of the last place.
    sim->setInstanceTransform(shifted(51), 0);
    EXPECT_NEAR(originAt(shader, 0), 1 + 12.5, 1e-4);
    EXPECT_FALSE(shader.moving);
}

struct AskedTexture : test::PluginOf<TextureInterface> {
    TextureContext asked;
    AColor getTexColor(const TextureContext& context) override {
        asked = context;
        return {{0.1f, 0.2f, 0.3f}, 1};
    }
};

TEST_F(SimMotion, Texture_IsAskedInTheWorldAndOverTheGrid) {
    AskedTexture texture;
    set({{"dtex", &texture}, {"darg", 4}});
    NimbraRenderer& shader = *load();
    EXPECT_TRUE(shader.has(kTexDiffuse));
    for (const int index : {-1, 0, 1, 4})
        EXPECT_EQ(shader.hasTexture(index), index == 1);
    shader.beginTextureFrame(1);
    shader.setTextureThread(3);
    Color color;
    shader.sampleTexture(color, 1, {2, 4, 6}, {2, 4, 6});
    EXPECT_EQ(color, (Color{0.1f, 0.2f, 0.3f}));
    EXPECT_NEAR(texture.asked.position.x, 2 + 17.5, 1e-4);
    EXPECT_EQ(texture.asked.uvw, (Vector{0.25f, 0.5f, 0.75f}));
    EXPECT_EQ(texture.asked.threadIndex, 3);
    EXPECT_EQ(texture.asked.object, static_cast<TessraPlugin*>(sim.get()));
    shader.endTextures();
    shader.sampleTexture(color, 1, {}, {2, 4, 6});
    EXPECT_NEAR(texture.asked.position.x, 2 + 12.5, 1e-4);
    color = {7, 7, 7};
    shader.sampleTexture(color, 2, {}, {});
    EXPECT_EQ(color, (Color{7, 7, 7}));
}

}  // namespace
}  // namespace nimbra
