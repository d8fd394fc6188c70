// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/cache_plugin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "cache/nimbra_frame.h"
#include "plugin/fake_host.h"
#include "support/failing_allocations.h"
#include "support/kol_sequence.h"
#include "support/threads.h"

namespace nimbra {
namespace {

using namespace test;
using namespace TessUtils;

/// A cache of the library on a short sequence, driven as a host does.
class CachePlugin : public testing::Test {
protected:
    using Cache = Made<NimbraCachePlugin>;

    CachePlugin() {
        for (const int frame : {1, 2, 4})
            std::filesystem::copy(NIMBRA_TEST_DATA "/vdb/campfire_0040.vdb",
                                  folder / ("s_000" + std::to_string(frame) + ".vdb"));
        set({{"cache_path", pattern}, {"usrchmap", "2,density;1,temperature;"}});
        cache->preRenderBegin(&renderer);
    }
    ~CachePlugin() override {
        for (Cache& other : others)
            end(other);
        end(cache);
    }
    void end(Cache& plugin) {
        plugin->postFrameEnd(&renderer);
        plugin->postRenderEnd(&renderer);
    }
    void set(const char* name, ParamScalar value) { cache.set(name, std::move(value)); }
    void set(std::initializer_list<std::pair<const char*, ParamScalar>> rows) { cache.set(rows); }
    /// A second plug-in with the values so far.
    Cache& another() {
        others.emplace_back(cache)->preRenderBegin(&renderer);
        return others.back();
    }
    /// The cache of frames 1 to 3 whose smoke is 10, 20 and 30.
    void useKolFiles() {
        for (const int n : {1, 2, 3})
            files.write(n, static_cast<float>(10 * n));
        set({{"cache_path", files.pattern()}, {"usrchmap", ""}});
    }
    /// A channel's value in the third cell, -1 without it.
    static float valueOf(NimbraFrameData* frame, int channel = kSmoke) {
        return frame && frame->hasChannel(channel) ? frame->getChannelProxy(channel).read(2) : -1;
    }
    /// Number and smoke of the frame of a moment, -1 without; in a render frame of its own.
    std::pair<int, float> at(double time) {
        renderer.frame.t = time;
        cache->preFrameBegin(&renderer);
        NimbraFrameData* const frame = cache->getFrameByTime(time);
        const std::pair<int, float> found(frame ? frame->frameNumber : -1, valueOf(frame));
        cache->postFrameEnd(&renderer);
        return found;
    }
    int frameAt(double time) { return at(time).first; }
    float smokeAt(double time) { return at(time).second; }
    int said(const std::string& text) { return renderer.log.count(text); }

    TempFolder folder;
    const std::string pattern = folder / "s_####.vdb";
    KolSequence files;
    FakeRenderer renderer;
    Cache cache{"NmbShaderCache"};
    std::deque<Cache> others;
};

TEST_F(CachePlugin, FramesByTime) {
    EXPECT_EQ(frameAt(2), 2);
    EXPECT_EQ(said("info: [NimbraCachePlugin] Frame data 2000 successfully loaded from " + pattern +
                   ".\n"),
              1);
    EXPECT_EQ(frameAt(3), -1);
    EXPECT_EQ(said("[NimbraCachePlugin] Frame data 3000 can't be loaded from "), 1);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 0);
    // The time bend is followed.
    set({{"read_offset", 1}, {"play_at", 100}, {"max_length", 3}});
    EXPECT_EQ(frameAt(101), 2);
    EXPECT_EQ(frameAt(99), -1);
    EXPECT_EQ(cache->getFrameIndices(99, true, nullptr, nullptr), INT32_MIN) << "saturated";
    set("load_nearest", true);
    EXPECT_EQ(frameAt(99), 1);
    EXPECT_EQ(frameAt(5000), 4);
    // What is asked for by its content isn't bent.
    EXPECT_EQ(cache->getFrameByContentTime(2000)->frameNumber, 2);
    EXPECT_EQ(said("loaded from '" + pattern + "'.\n"), 1);
    cache->postFrameEnd(&renderer);
    set("time_tform", false);
    EXPECT_EQ(frameAt(2), 2);
    float blend = 0;
    int frame = 0;
    EXPECT_EQ(cache->getFrameIndices(101, true, &blend, &frame), 2000);
    EXPECT_EQ(cache->getFrameIndices(101, false, nullptr, nullptr), 101000);
    EXPECT_EQ(blend, -1);
}

TEST_F(CachePlugin, OneFrameIsPreparedOnce) {
    // Whoever asks first: the others get the same.
    std::vector<NimbraFrameData*> got(6);
    onThreads(6, [&](int i) {
        cache->getFrameByTime(kLoadedFrameTime);
        got[static_cast<std::size_t>(i)] = cache->getFrameByTime(1);
    });
    NimbraFrameData* const first = got[0];
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(std::count(got.begin(), got.end(), first), 6);
    EXPECT_EQ(first->refCount, 1);
    EXPECT_EQ(cache->getFrameByTime(2), first);
    EXPECT_EQ(cache->getFrameByTime(kLoadedFrameTime), first);
    EXPECT_EQ(said("successfully loaded"), 1);
    cache->frameEnd(&renderer);
    EXPECT_EQ(cache->getFrameByTime(kLoadedFrameTime), nullptr);
    EXPECT_EQ(frameAt(2), 2);
}

TEST_F(CachePlugin, NoMapping_DefaultsOfTheSequence) {
    set("usrchmap", "");
    const NimbraFrameData* const frame = cache->getFrameByTime(1);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->channelMap, "2,density;1,temperature;");
    EXPECT_EQ(frame->channelMask, 6u);
    EXPECT_EQ(said("Loading vdb/f3d without specified channel mappings! Defaults will be used "
                   "instead!"),
              1);
}

TEST_F(CachePlugin, Paths_OfTheEnvironmentAndRelativeToTheScene) {
    setenv("NIMBRA_TEST_FOLDER", folder.path().c_str(), 1);
    set("cache_path", "$env(NIMBRA_TEST_FOLDER)/s_%04d.vdb");
    EXPECT_EQ(frameAt(4), 4);
    unsetenv("NIMBRA_TEST_FOLDER");
    setSceneFolder(folder.path());
    set("cache_path", "s_<frame04>.vdb");
    EXPECT_EQ(frameAt(2), 2);
    setSceneFolder("");
}

TEST_F(CachePlugin, DamagedFiles_SayWhatIsWrong) {
    const std::string damaged = folder.write("s_0003.vdb", "no cache");
    EXPECT_EQ(frameAt(3), -1);
    EXPECT_EQ(said("warning: [NimbraCachePlugin] " + damaged + ": isn't an OpenVDB file"), 1);
    // Also where the other frame of a blend stands in for it, before or behind.
    EXPECT_EQ(frameAt(2.5), 2);
    EXPECT_EQ(frameAt(3.5), 4);
    EXPECT_EQ(said(": isn't an OpenVDB file"), 3);
    useKolFiles();
    files.damage(2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(frameAt(2), -1);
        EXPECT_EQ(said("[NimbraCachePlugin] The input.kol file is damaged"), 1) << "remembered";
    }
    EXPECT_EQ(said("Frame data 2000 can't be loaded from "), 2);
}

TEST_F(CachePlugin, NoPath_EmptyGrid) {
    set({{"cache_path", ""},
         {"usrchmap", ""},
         {"grid_size_x", 10.4f},
         {"grid_size_y", 7.5f},
         {"grid_size_z", -3.0f}});
    const NimbraFrameData* const frame = cache->getFrameByTime(1);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(std::vector<int>(frame->gridSize, frame->gridSize + 3), (std::vector{10, 8, 1}));
    EXPECT_FALSE(frame->upAxisFlipped);
    EXPECT_EQ(frame->transform[4], 1.0f);
    cache->postFrameEnd(&renderer);
    // Without one there is nothing else to be told.
    set("cell_size", 0.0005f);
    EXPECT_EQ(cache->getFrameByTime(1), nullptr);
    EXPECT_EQ(said("warning: "), 0);
}

TEST_F(CachePlugin, TwoCaches_ShareTheirFrame) {
    Cache& second = another();
    NimbraFrameData* const frame = cache->getFrameByTime(2);
    EXPECT_EQ(second->getFrameByTime(2), frame);
    EXPECT_EQ(frame->refCount, 2);
    second->postFrameEnd(&renderer);
    EXPECT_EQ(frame->refCount, 1);
    // One that smooths has a frame of its own; of the others, the last one turns it for both.
    set("smooth_mask", 4);
    EXPECT_TRUE(another()->getFrameByTime(2)->flags & kFramePrivate);
    set({{"smooth_mask", 0}, {"flip_yz", true}});
    EXPECT_EQ(another()->getFrameByTime(2), frame);
    EXPECT_TRUE(frame->upAxisFlipped);
    EXPECT_EQ(second->getFrameByTime(2), frame);
    EXPECT_FALSE(frame->upAxisFlipped);
}

TEST_F(CachePlugin, Blending_FollowsTheTicks) {
    useKolFiles();
    set("play_speed", 0.25f);
    EXPECT_EQ(valueOf(cache->getFrameByTime(5)), 12.5f);
    EXPECT_EQ(said("Frame data 1250 successfully loaded from " + files.pattern()), 1);
    double time = 0;
    EXPECT_TRUE(cache->loadedFrame(time));
    EXPECT_EQ(time, 1.25);
    // Requests within the frame share what is read.
    Cache& second = another();
    OpenCount opens(files.folder);
    EXPECT_EQ(valueOf(second->getFrameByTime(7)), 17.5f);
    EXPECT_EQ(valueOf(cache->getFrameByContentTime(1750)), 17.5f);
    EXPECT_EQ(opens.take(), 0);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 4);
}

TEST_F(CachePlugin, WhatABlendLacks_IsToldToTheUser) {
    const struct {
        float scaleOfSecond;
        const char* group;
        int method;
        const char* told;
    } cases[] = {{1, "", 0, nullptr},
                 {1, "", 1, "no velocities to blend along"},
                 {2, "", 0, "the first one is shown"},
                 {1, "spray", 0, "a group has no IDs"}};
    for (const auto& c : cases) {
        useKolFiles();
        for (const int n : {1, 2})
            files.write(n,
                        {{{kSmoke, {1}}}, {3, 2, 2}, {}, n == 2 ? c.scaleOfSecond : 1, 1, c.group});
        set("blend_method", c.method);
        renderer.log.lines.clear();
        EXPECT_NE(frameAt(1.5), -1);
        EXPECT_EQ(said("warning: "), c.told ? 1 : 0);
        EXPECT_EQ(said(c.told ? c.told : "Between two frames"), c.told ? 1 : 0);
    }
    const auto told = [&](double time, const char* text) {
        renderer.log.lines.clear();
        frameAt(time);
        EXPECT_EQ(said("warning: [NimbraCachePlugin] Between two frames"), 1) << time;
        EXPECT_EQ(said(text), 1) << time;
    };
    files.remove(2);
    for (const double time : {1.5, 2.5})
        told(time, "frame 2 is missing, the other one is shown");
    files.damage(2);
    for (const double time : {1.5, 2.5})
        told(time, "frame 2 can't be read, the other one is shown");
    files.remove(3);
    told(2.5, "frame 2 can't be read, the other one is missing");
    files.remove(1);
    told(1.5, "frame 2 can't be read, the other one is missing");
}

TEST_F(CachePlugin, LoopOverlap_BlendsWithTheFrameBehindTheEnd) {
    useKolFiles();
    files.write(4, 100);
    set({{"anim_mode", 2}, {"max_length", 2}, {"loop_overlap", 1}, {"read_offset", 1}});
    EXPECT_EQ(smokeAt(1), 60) << "a frame after the loop's start: 2, half of frame 1 + 1 + 2";
    EXPECT_EQ(valueOf(cache->getFrameByContentTime(2000)), 20) << "by its content it is alone";
    cache->postFrameEnd(&renderer);
    set("loop_overlap", 0);
    EXPECT_EQ(smokeAt(1), 20);
}

TEST_F(CachePlugin, VelocitiesFromOrigin_WhereMotionBlurNeedsThem) {
    for (const int n : {1, 2}) {
        const float origin = n == 2 ? 0.5f : 0.0f;
        KolFrame f{{{kSmoke, {1}}}};
        f.timeStep = 0.5f;
        for (int a = 0; a < 3; ++a)
            f.channels[kAdvectionOriginX + a] = {origin};
        files.write(n, f);
    }
    set({{"cache_path", files.pattern()}, {"usrchmap", ""}});
    constexpr float kNone = -1;
    const auto velocityAt1 = [&](Cache& plugin) {
        const float v = valueOf(plugin->getFrameByTime(1), kVelocityX);
        plugin->postFrameEnd(&renderer);
        return v;
    };
    FakeCamera camera;
    renderer.addInterface(&camera, false);
    set("velocities_from_uvw", true);
    EXPECT_EQ(velocityAt1(cache), kNone);
    camera.motionBlur = 0;
    EXPECT_EQ(velocityAt1(cache), (2 - 1.5f) / 0.5f);
    camera.motionBlur = -1;
    renderer.sequence.motionBlurOn = 1;
    // Made once for all who share the frame; the frame behind it isn't kept.
    EXPECT_EQ(valueOf(cache->getFrameByTime(1), kVelocityX), 1);
    OpenCount opens(files.folder);
    EXPECT_EQ(velocityAt1(another()), 1);
    EXPECT_EQ(opens.take(), 0);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 1);
    cache->postFrameEnd(&renderer);
    // A damaged next frame is said; there are no velocities then.
    files.damage(2);
    EXPECT_EQ(velocityAt1(cache), kNone);
    EXPECT_EQ(said("warning: [NimbraCachePlugin] The input.kol file is damaged, incomplete or in "
                   "unsupported file format!\nIf the file was "),
              1);
    renderer.removeInterface(&camera);
}

// Whichever allocation of a request fails, the plug-in doesn't throw and the next frame works.
TEST_F(CachePlugin, WithoutMemory) {
    useKolFiles();
    EXPECT_EQ(smokeAt(1.25), 12.5f);
    failEachAllocation(
        200,
        [&] {
            EXPECT_NO_THROW(cache->getFrameByTime(1.5));
            return 0;
        },
        [&](int) {
            cache->postFrameEnd(&renderer);
            EXPECT_EQ(NimbraFrame::frameDataArray.size, 0);
            EXPECT_EQ(smokeAt(1.25), 12.5f);
        });
}

TEST_F(CachePlugin, Interfaces) {
    for (const auto id : {ids::kSceneModifier, ids::kTessraPlugin, ids::kNimbraSim})
        ASSERT_NE(cache->getInterface(id), nullptr);
    auto* const sim = static_cast<NimbraSimInterface*>(cache->getInterface(ids::kNimbraSim));
    EXPECT_TRUE(!sim->getRenderer(0) && !sim->isRenderable() && sim->isValid());
    NimbraMesh mesh{7, 8};
    EXPECT_EQ(sim->getNimbraMesh(mesh), 0);
    EXPECT_EQ(mesh.vertexCount, 7) << "only the faces are taken away";
    EXPECT_EQ(mesh.faceCount, 0);
}

}  // namespace
}  // namespace nimbra
