// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a container says about settings that don't work together, and what it switches off.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugin/fake_host.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using test::makeFrame;
using test::SimFixture;

class SimMessages : public ::testing::Test {
protected:
    SimMessages() { f.cache.frame = makeFrame(30, 40, 1); }

    /// The warnings of one frame load.
    std::vector<std::string> warnings() {
        f.log.lines.clear();
        f.sim->preFrameBegin(&f.renderer);
        std::vector<std::string> found;
        for (const std::string& line : f.log.lines)
            if (line.rfind("warning: ", 0) == 0)
                found.push_back(line.substr(9));
        return found;
    }
    NimbraRenderer& shader() { return *f.sim->getRenderer(0); }
    using Lines = std::vector<std::string>;

    SimFixture f;
};

TEST_F(SimMessages, DefaultContainer_IsQuiet) {
    EXPECT_EQ(warnings(), Lines());
    f.renderer.sequence.progress = nullptr;
    EXPECT_EQ(warnings(), Lines());
}

TEST_F(SimMessages, MotionBlur_NeedsVelocities) {
    const Lines expected = {
        "[NimbraSimPlugin] Motion blur without velocity channel will not work properly.\n"};
    f.renderer.sequence.motionBlurOn = 1;
    EXPECT_EQ(warnings(), expected);
    for (int channel : {kVelocityX, kVelocityY}) {
        f.cache.frame->channels[channel].allocate(f.cache.frame->gridSize);
        f.cache.frame->channelMask |= channelBit(channel);
    }
    EXPECT_EQ(warnings(), expected);
    f.cache.frame->channels[kVelocityZ].allocate(f.cache.frame->gridSize);
    f.cache.frame->channelMask |= channelBit(kVelocityZ);
    EXPECT_EQ(warnings(), Lines());

    f.cache.frame = makeFrame(2, 2, 2);
    f.set("velocity_mult", 1e-7f);
    EXPECT_EQ(warnings(), Lines());
    f.set("velocity_mult", 1.0f);
    f.setList("velocities", paramtype_color, {});
    EXPECT_EQ(warnings(), Lines());
}

TEST_F(SimMessages, CameraWithMotionBlur_CountsAsWell) {
    struct Camera : CameraSettingsInterface {
        int blur = -1;
        int getValue(int key) override { return key == kCameraMotionBlurKey ? blur : 12345; }
    } camera;
    f.renderer.sequence.addInterface(&camera, false);
    EXPECT_EQ(warnings(), Lines());
    camera.blur = 0;
    EXPECT_EQ(warnings().size(), 1u);
}

TEST_F(SimMessages, GeometryMode_WantsTransparencyLevels) {
    f.set("geommode", 1);
    f.set("rendstep", 50);
    // 50 cells across, half a cell each: 100 steps.
    f.renderer.sequence.maxTransparencyLevels = 101;
    EXPECT_EQ(warnings(), Lines());
    f.renderer.sequence.maxTransparencyLevels = 99;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] To get better results with Volumetric Geometry mode "
                     "rendering, you may need to increase the Max transparency levels of Tessra "
                     "to about 100.\n"}));
    f.set("rendstep", 0);
    EXPECT_EQ(warnings(), Lines());
    f.set("rendstep", 50);
    test::FakeEngine engine;
    engine.progressive = true;
    f.renderer.sequence.addInterface(&engine, false);
    f.renderer.sequence.isInteractive = 1;
    EXPECT_EQ(warnings(), Lines());
    EXPECT_TRUE(shader().has(kInteractive));
}

TEST_F(SimMessages, GI_WantsEmissiveLights) {
    f.renderer.sequence.giOn = 1;
    f.set("al_enable", false);
    EXPECT_EQ(warnings(), Lines());
    f.renderer.sequence.maxRayIntensityOn = 1;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] Rendering in GI mode without using the Nimbra Emissive "
                     "Lights will produce incorrect illumination unless you turn off 'Max ray "
                     "intens' in Tessra.\n"}));
    f.set("al_enable", true);
    EXPECT_EQ(warnings(), Lines());
    f.set("al_enable", false);
    f.set("earg", 0);
    EXPECT_EQ(warnings(), Lines());
}

TEST_F(SimMessages, ProgressiveSampler_HasNoUseForTheLightCache) {
    EXPECT_EQ(warnings(), Lines());
    EXPECT_TRUE(shader().has(kLightCache));
    f.renderer.sequence.imageSamplerType = kProgressiveSampler;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] Using the Progressive sampler with the Nimbra Light Cache "
                     "will slow down the rendering considerably. The Nimbra Light Cache will not "
                     "be used for this render.\n"}));
    EXPECT_EQ(warnings(), Lines()) << "told once a render";
    EXPECT_FALSE(shader().has(kLightCache));
    f.sim->renderBegin(&f.renderer);
    EXPECT_EQ(warnings().size(), 1u);

    f.sim->renderBegin(&f.renderer);
    test::FakeEngine engine;
    engine.realtime = true;
    f.renderer.sequence.addInterface(&engine, false);
    f.renderer.sequence.isInteractive = 1;
    EXPECT_EQ(warnings(), Lines());
    EXPECT_FALSE(shader().has(kLightCache));
}

TEST_F(SimMessages, VisibleFire_CannotBeProbabilistic) {
    struct Samples : ProbabilisticSettingsInterface {
        int count = 0, countGI = 0;
        int samples() const override { return count; }
        int samplesGI() const override { return countGI; }
    } samples;
    f.renderer.sequence.addInterface(&samples, false);
    f.set("fire_opacity_mode", 1);
    EXPECT_EQ(warnings(), Lines());
    EXPECT_EQ(shader().fire_opacity_mode, kFireVisible);
    samples.countGI = 4;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] The 'Fully Visible' Fire Opacity Mode will not work "
                     "correctly with Probabilistic Shading. Falling back to 'Use Smoke Opacity' "
                     "for this render.\n"}));
    EXPECT_EQ(shader().fire_opacity_mode, kFireUsesSmoke);
}

TEST_F(SimMessages, DistributedRender_WantsSharedCaches) {
    const std::vector<std::string> hosts = {"node1"};
    f.renderer.sequence.distributedHosts = &hosts;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraCachePlugin] You are using local machine Input path for distributed "
                     "rendering:\n",
                     "/caches/fake_0001.vdb\n",
                     "[NimbraCachePlugin] Please share the caches on a network location and adjust "
                     "you Input path.\n"}));
    f.cache.frame->path = "//server/caches/fake_0001.vdb";
    EXPECT_EQ(warnings(), Lines());
    f.cache.frame->path = "";
    EXPECT_EQ(warnings(), Lines());
}

}  // namespace
}  // namespace nimbra
