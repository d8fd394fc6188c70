// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The container's movement within a frame, that of its content, and its textures.
#include <gtest/gtest.h>

#include "plugin/fake_host.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::makeFrame;
using test::SimFixture;

Transform shifted(double x) {
    Transform t;
    t.offs.x = x;
    return t;
}

class SimMotion : public ::testing::Test {
protected:
    SimMotion() {
        f.cache.frame = makeFrame(8, 8, 8);
        f.set("node_transform", shifted(0));
        f.last().setKey(1, shifted(10));
        f.last().setKey(2, shifted(20));
        f.renderer.frame.t = 1.5;
        f.renderer.frame.frameStart = 1.25;
        f.renderer.frame.frameEnd = 1.75;
    }
    void addVelocity(float x) {
        for (int channel : {kVelocityX, kVelocityY, kVelocityZ}) {
            f.cache.frame->channels[channel].allocate(f.cache.frame->gridSize);
            f.cache.frame->channelMask |= channelBit(channel);
        }
        for (int i = 0; i < 512; ++i)
            f.cache.frame->channels[kVelocityX].write(i, x);
    }
    NimbraRenderer& load() {
        f.sim->preFrameBegin(&f.renderer);
        return *f.sim->getRenderer(0);
    }
    double originAt(const NimbraRenderer& shader, float time) {
        return shader.worldFromGridPoint({0, 0, 0}, time).x;
    }

    SimFixture f;
};

TEST_F(SimMotion, Transform_IsReadAtBothEndsOfTheInterval) {
    NimbraRenderer& still = load();
    EXPECT_FALSE(still.moving);
    EXPECT_NEAR(originAt(still, 1), 15, 1e-5);
    f.renderer.sequence.motionBlurOn = 1;
    NimbraRenderer& moving = load();
    EXPECT_TRUE(moving.moving);
    EXPECT_NEAR(originAt(moving, 0), 12.5, 1e-5);
    EXPECT_NEAR(originAt(moving, 1), 17.5, 1e-5);
    EXPECT_NEAR(moving.gridFromWorldAt(0.5f).applyPoint(Vector{15, 0, 0}).x, 0, 1e-5);
    // The record for other plug-ins stands at the frame's own time.
    EXPECT_NEAR(f.sim->getGridTransforms()->worldFromGrid.offset.x, 15, 1e-5);
}

TEST_F(SimMotion, WindFromMovement_TakesTheContainersWayOut) {
    addVelocity(3);
    f.renderer.sequence.motionBlurOn = 1;
    f.set("wind_from_movement", true);
    f.set("frame_duration", 0.5f);
    // Half a frame of half a second each: 5 cells in a quarter of a second.
    const Vector v = load().getVelocity({4, 4, 4});
    EXPECT_NEAR(v.x, 3 - 20, 1e-4);
    EXPECT_NEAR(v.y, 0, 1e-4);
}

TEST_F(SimMotion, ExplicitVelocities_NeedOneEntryForEachCell) {
    f.cache.frame = makeFrame(2, 1, 1, 0.5f);
    f.renderer.sequence.motionBlurOn = 1;
    f.setList("velocities", paramtype_color, {Color{1, 2, 3}});
    load();
    EXPECT_FALSE(f.cache.frame->hasChannel(kVelocityX));
    f.setList("velocities", paramtype_color, {Color{1, 2, 3}, Color{4, 5, 6}});
    NimbraRenderer& shader = load();
    // Twice the cells of 0.5 in a scene unit.
    EXPECT_FLOAT_EQ(f.cache.frame->channels[kVelocityZ].read(1), 6 * 2 * 2);
    EXPECT_FLOAT_EQ(shader.getVelocity({1, 0, 0}).x, 4 * 2 * 2);
    EXPECT_EQ(f.log.count("Motion blur without"), 0);
    // The frame's own velocities stay.
    f.setList("velocities", paramtype_color, {Color{9, 9, 9}, Color{9, 9, 9}});
    load();
    EXPECT_FLOAT_EQ(f.cache.frame->channels[kVelocityZ].read(1), 6 * 2 * 2);
}

TEST_F(SimMotion, VelocitiesFromOrigin_AreBoundAndFlagged) {
    f.renderer.sequence.motionBlurOn = 1;
    addVelocity(3);
    f.set("velocities_from_uvw", true);
    EXPECT_EQ(load().getVelocity({1, 1, 1}), Vector()) << "the origins that were to tell it";
    f.set("velocities_from_uvw", false);
    f.cache.frame->channels[kAdvectionOriginY].allocate(f.cache.frame->gridSize);
    f.cache.frame->channelMask |= channelBit(kAdvectionOriginY);
    EXPECT_FALSE(load().has(kOriginMotion));
    f.set("velocities_from_uvw", true);
    NimbraRenderer& shader = load();
    EXPECT_TRUE(shader.has(kOriginMotion));
    EXPECT_FLOAT_EQ(shader.getVelocity({1, 1, 1}).x, 3);
    EXPECT_FALSE(shader.channels[kSlotOrigin].loaded);
    EXPECT_TRUE(shader.channels[kSlotOrigin + 1].loaded);
}

TEST_F(SimMotion, Instance_MovesTheContainerAlong) {
    f.renderer.sequence.motionBlurOn = 1;
    f.renderer.frame.sceneOffset.x = 50;  // must not be scaled by the instance
    NimbraRenderer& shader = load();
    Transform instance = shifted(150);
    instance.f[0] = {2, 0, 0};
    f.sim->setInstanceTransform(instance, 0);
    f.sim->setInstanceTransform(shifted(250), 1);
    EXPECT_NEAR(originAt(shader, 0), 100 + 2 * 12.5, 1e-4);
    EXPECT_NEAR(originAt(shader, 1), 200 + 17.5, 1e-4);
    // Placed anew, not on top of the last place.
    f.sim->setInstanceTransform(shifted(51), 0);
    EXPECT_NEAR(originAt(shader, 0), 1 + 12.5, 1e-4);
    EXPECT_FALSE(shader.moving);
}

struct AskedTexture : Plugin, TextureInterface {
    mutable TextureContext asked;
    PluginDesc* getPluginDesc() override { return nullptr; }
    PluginInterface* getInterface(InterfaceID id) override {
        return id == ids::kTexture ? static_cast<TextureInterface*>(this)
                                   : Plugin::getInterface(id);
    }
    Plugin* getPlugin() override { return this; }
    AColor getTexColor(const TextureContext& context) override {
        asked = context;
        return {{0.1f, 0.2f, 0.3f}, 1};
    }
};

TEST_F(SimMotion, Texture_IsAskedInTheWorldAndOverTheGrid) {
    AskedTexture texture;
    f.set("dtex", static_cast<PluginBase*>(static_cast<Plugin*>(&texture)));
    f.set("darg", 4);
    f.renderer.sequence.motionBlurOn = 1;
    NimbraRenderer& shader = load();
    EXPECT_TRUE(shader.has(kTexDiffuse));
    EXPECT_TRUE(shader.hasTexture(1));
    EXPECT_FALSE(shader.hasTexture(0));
    EXPECT_FALSE(shader.hasTexture(4));
    EXPECT_FALSE(shader.hasTexture(-1));
    shader.beginTextureFrame(1);
    shader.setTextureThread(3);
    Color color;
    shader.sampleTexture(color, 1, {2, 4, 6}, {2, 4, 6});
    EXPECT_EQ(color, (Color{0.1f, 0.2f, 0.3f}));
    EXPECT_NEAR(texture.asked.position.x, 2 + 17.5, 1e-4);
    EXPECT_EQ(texture.asked.uvw, (Vector{0.25f, 0.5f, 0.75f}));
    EXPECT_EQ(texture.asked.threadIndex, 3);
    EXPECT_EQ(texture.asked.object, static_cast<TessraPlugin*>(f.sim));
    shader.endTextures();
    shader.sampleTexture(color, 1, {}, {2, 4, 6});
    EXPECT_NEAR(texture.asked.position.x, 2 + 12.5, 1e-4);
    color = {7, 7, 7};
    shader.sampleTexture(color, 2, {}, {});
    EXPECT_EQ(color, (Color{7, 7, 7}));
}

}  // namespace
}  // namespace nimbra
