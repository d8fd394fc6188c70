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
using Lines = std::vector<std::string>;

class SimMessages : public test::SimFixture {
protected:
    SimMessages() { cache.frame = makeFrame(30, 40, 1); }

    /// The warnings of one frame load.
    Lines warnings() {
        log.lines.clear();
        load();
        Lines found;
        for (const std::string& line : log.lines)
            if (line.starts_with("warning: "))
                found.push_back(line.substr(9));
        return found;
    }
    NimbraRenderer& shader() { return *sim->getRenderer(0); }
    const Lines kQuiet;
    TessraSequenceData& sequence = renderer.sequence;
};

TEST_F(SimMessages, MotionBlur_NeedsVelocities) {
    EXPECT_EQ(warnings(), kQuiet);
    const Lines expected = {
        "[NimbraSimPlugin] Motion blur without velocity channel will not work properly.\n"};
    test::FakeCamera camera;
    sequence.addInterface(&camera, false);
    EXPECT_EQ(warnings(), kQuiet);
    camera.motionBlur = 0;
    EXPECT_EQ(warnings(), expected);
    sequence.removeInterface(&camera);
    sequence.motionBlurOn = 1;
    for (const int channel : {kVelocityX, kVelocityY, kVelocityZ}) {
        EXPECT_EQ(warnings(), expected);
        test::addChannel(*cache.frame, channel);
    }
    EXPECT_EQ(warnings(), kQuiet);

    cache.frame = makeFrame(2, 2, 2);
    set("velocity_mult", 1e-7f);
    EXPECT_EQ(warnings(), kQuiet);
    set("velocity_mult", 1.0f);
    setList("velocities", paramtype_color, {});
    EXPECT_EQ(warnings(), kQuiet);
}

TEST_F(SimMessages, GeometryMode_WantsTransparencyLevels) {
    set({{"geommode", 1}, {"rendstep", 50}});
    // 50 cells across, half a cell each: 100 steps.
    sequence.maxTransparencyLevels = 101;
    EXPECT_EQ(warnings(), kQuiet);
    sequence.maxTransparencyLevels = 99;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] To get better results with Volumetric Geometry mode "
                     "rendering, you may need to increase the Max transparency levels of Tessra "
                     "to about 100.\n"}));
    set("rendstep", 0);
    EXPECT_EQ(warnings(), kQuiet);
    set("rendstep", 50);
    interact(true, false);
    EXPECT_EQ(warnings(), kQuiet);
    EXPECT_TRUE(shader().has(kInteractive));
}

TEST_F(SimMessages, GI_WantsEmissiveLights) {
    sequence.giOn = 1;
    set("al_enable", false);
    EXPECT_EQ(warnings(), kQuiet);
    sequence.maxRayIntensityOn = 1;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] Rendering in GI mode without using the Nimbra Emissive "
                     "Lights will produce incorrect illumination unless you turn off 'Max ray "
                     "intens' in Tessra.\n"}));
    renderer.sequence.progress = nullptr;
    EXPECT_EQ(warnings(), kQuiet);
    renderer.sequence.progress = &log;
    set("al_enable", true);
    EXPECT_EQ(warnings(), kQuiet);
    set({{"al_enable", false}, {"earg", 0}});
    EXPECT_EQ(warnings(), kQuiet);
}

TEST_F(SimMessages, ProgressiveSampler_HasNoUseForTheLightCache) {
    EXPECT_EQ(warnings(), kQuiet);
    EXPECT_TRUE(shader().has(kLightCache));
    sequence.imageSamplerType = kProgressiveSampler;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] Using the Progressive sampler with the Nimbra Light Cache "
                     "will slow down the rendering considerably. The Nimbra Light Cache will not "
                     "be used for this render.\n"}));
    EXPECT_EQ(warnings(), kQuiet) << "told once a render";
    EXPECT_FALSE(shader().has(kLightCache));
    sim->renderBegin(&renderer);
    EXPECT_EQ(warnings().size(), 1u);
    sim->renderBegin(&renderer);
    interact(false, true);
    EXPECT_EQ(warnings(), kQuiet);
    EXPECT_FALSE(shader().has(kLightCache));
}

TEST_F(SimMessages, VisibleFire_CannotBeProbabilistic) {
    test::FakeSamples samples(0, 0);
    sequence.addInterface(&samples, false);
    set("fire_opacity_mode", 1);
    EXPECT_EQ(warnings(), kQuiet);
    EXPECT_EQ(shader().fire_opacity_mode, kFireVisible);
    samples.countGI = 4;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraSimPlugin] The 'Fully Visible' Fire Opacity Mode will not work "
                     "correctly with Probabilistic Shading. Falling back to 'Use Smoke Opacity' "
                     "for this render.\n"}));
    EXPECT_EQ(shader().fire_opacity_mode, kFireUsesSmoke);
}

TEST_F(SimMessages, DistributedRender_WantsSharedCaches) {
    const Lines hosts = {"node1"};
    sequence.distributedHosts = &hosts;
    EXPECT_EQ(warnings(),
              (Lines{"[NimbraCachePlugin] You are using local machine Input path for distributed "
                     "rendering:\n",
                     "/caches/fake_0001.vdb\n",
                     "[NimbraCachePlugin] Please share the caches on a network location and adjust "
                     "you Input path.\n"}));
    for (const char* path : {"//server/caches/fake_0001.vdb", ""}) {
        cache.frame->path = path;
        EXPECT_EQ(warnings(), kQuiet);
    }
}

}  // namespace
}  // namespace nimbra
