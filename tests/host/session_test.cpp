// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/session.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/fake_library.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using test::TestRegistry;

/// Plays all that a session calls beside the plug-ins: the tracer, whose pixels hold the frame's
/// time, the output and the observer.
class SessionTest : public ::testing::Test,
                    protected FrameTracer,
                    protected FrameOutput,
                    protected ProgressObserver {
protected:
    using Frames = std::vector<FrameNumber>;
    using Texts = std::vector<std::string>;

    void beginFrame(TessraRenderer& renderer, Scene&, const RenderSettings&) override {
        registry_.record.call("tracer.beginFrame", &renderer);
        time_ = static_cast<float>(renderer.getFrameData().t);
    }
    void endFrame() override { registry_.record.call("tracer.endFrame", nullptr); }
    void radiance(const CameraSample& sample, SampleValue& out) override {
        if (rayThrows_)
            throw std::runtime_error("the ray broke");
        out.color = {time_, sample.random->next(), 0};
        out.alpha = 1;
    }
    std::uint64_t rayCount() const override { return 123; }

    bool write(const FinishedFrame& frame, std::string& error) override {
        registry_.record.call("output.write", nullptr);
        written_.push_back(frame.frame);
        firstPixels_.push_back(frame.pixels.channels[0].at(0));
        cacheTimes_ = frame.cacheTimes;
        warnings_ = frame.warnings;
        if (outputThrows_)
            throw std::bad_alloc();
        if (frame.frame == failing_)
            error = "/full/disk.exr: no space left";
        return frame.frame != failing_;
    }

    void frameStarted(FrameNumber frame, int number, int count) override {
        events_.push_back("start " + frame.text() + " " + std::to_string(number) + "/" +
                          std::to_string(count));
    }
    void phase(const std::string& title) override { events_.push_back("phase " + title); }
    void rendering(double share, double, double) override { lastShare_ = share; }
    void frameFinished(FrameNumber frame, RenderStatus status) override {
        events_.push_back("end " + frame.text() + " " + std::to_string(static_cast<int>(status)));
    }

    SessionResult run(Frames frames, bool keepGoing = false) {
        SessionOptions options;
        options.frames = std::move(frames);
        options.keepGoing = keepGoing;
        return RenderSession(*scene_, *this, *this, registry_.log.log, abort_, this).run(options);
    }
    Texts& calls() { return registry_.record.calls; }
    int countOf(const std::string& call) {
        return static_cast<int>(std::count(calls().begin(), calls().end(), call));
    }
    /// Has a call of a plug-in run `body`, too.
    void on(const std::string& call, std::function<void(TessraRenderer&)> body) {
        registry_.record.hooks[call] = std::move(body);
    }

    TestRegistry registry_;
    std::unique_ptr<Scene> scene_ =
        registry_.scene(R"("user": {"plugin": "Recorder", "source": "@used",
             "amount": {"keys": [[0, 0], [100, 100]]}},
            "used": {"plugin": "Recorder"},
            "s": {"plugin": "TessraSettings", "width": 4, "height": 3, "samples": 1,
                  "threads": 2, "first_frame": 5, "last_frame": 9, "frame_step": 2,
                  "fps": 25, "up_axis": "z", "meters_per_unit": 0.5, "motion_blur": true,
                  "shutter_interval": 0.5, "shutter_center": 0.25, "gi": true,
                  "probabilistic_samples": 7, "scene_offset": [1, 2, 3]})",
                        "/scenes/s.json");
    AbortFlag abort_;
    bool rayThrows_ = false, outputThrows_ = false;
    FrameNumber failing_ = -1;  // to write
    Frames written_;
    std::vector<float> firstPixels_;
    std::vector<double> cacheTimes_;  // of the last frame
    int warnings_ = 0;                // of the last frame
    Texts events_;
    double lastShare_ = -1;

private:
    float time_ = 0;
};

TEST_F(SessionTest, TwoFrames_CallEverythingInOrder) {
    EXPECT_EQ(run({5, 6}).status, RenderStatus::Complete);
    Texts expected;
    const auto add = [&](std::initializer_list<const char*> operations, bool usersFirst) {
        for (const std::string operation : operations)
            for (const bool user : {usersFirst, !usersFirst})
                expected.push_back((user ? "user." : "used.") + operation);
    };
    add({"preRenderBegin", "setupRender", "renderBegin"}, false);
    for (int frame = 0; frame < 2; ++frame) {
        add({"preFrameBegin", "frameBegin", "compileGeometry"}, false);
        expected.insert(expected.end(), {"tracer.beginFrame", "tracer.endFrame"});
        add({"clearGeometry", "frameEnd", "postFrameEnd"}, true);
        expected.push_back("output.write");
    }
    add({"renderEnd", "postRenderEnd"}, true);
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(events_, (Texts{"start 5 0/2", "end 5 0", "start 6 1/2", "end 6 0"}));
    EXPECT_EQ(lastShare_, 1.0);
}

TEST_F(SessionTest, Renderer_AnswersWhatPluginsAskFor) {
    on("user.frameBegin", [&](TessraRenderer& renderer) {
        const TessraSequenceData& sequence = renderer.getSequenceData();
        const TessraFrameData& frame = renderer.getFrameData();
        EXPECT_EQ(sequence.threadCount, 2);
        EXPECT_TRUE(sequence.progress && sequence.threadManager);
        EXPECT_TRUE(sequence.motionBlurOn && sequence.giOn && !sequence.isInteractive);
        EXPECT_EQ(frame.t, 9.0);
        EXPECT_EQ(frame.frameNumber, 9);
        EXPECT_EQ(frame.frameStart, 9.0);
        EXPECT_EQ(frame.frameEnd, 9.5);
        EXPECT_EQ(frame.sceneOffset, (TracePoint{1, 2, 3}));
        for (PluginBase* object :
             {static_cast<PluginBase*>(&renderer),
              static_cast<PluginBase*>(const_cast<TessraSequenceData*>(&sequence))}) {
            const auto ask = [&](InterfaceID id) { return object->getInterface(id); };
            auto* units = dynamic_cast<SceneUnitsInterface*>(ask(ids::kSceneUnits));
            ASSERT_NE(units, nullptr);
            EXPECT_EQ(units->upDirection(), (Vector{0, 0, 1}));
            EXPECT_EQ(units->scale(), 0.5f);
            EXPECT_FLOAT_EQ(units->frameDuration(), 0.04f);
            auto* chance =
                dynamic_cast<ProbabilisticSettingsInterface*>(ask(ids::kProbabilisticSettings));
            EXPECT_EQ(chance->samples(), 7);
            EXPECT_EQ(chance->samplesGI(), 0);
            auto* camera = dynamic_cast<CameraSettingsInterface*>(ask(ids::kCameraSettings));
            EXPECT_EQ(camera->getValue(kCameraMotionBlurKey), -1);
            auto* scene = dynamic_cast<SceneInterface*>(ask(ids::kScene));
            EXPECT_EQ(scene->findPlugin("used"), scene_->findPlugin("used"));
            EXPECT_TRUE(ask(ids::kVolumetricList) && ask(ids::kRenderChannelList) &&
                        ask(ids::kPlanckTable) && !ask(ids::kInteractiveEngine));
        }
        EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "/scenes/smoke.vdb");
    });
    run({9});
    EXPECT_EQ(countOf("user.frameBegin"), 1);
}

TEST_F(SessionTest, FramesOfTheSettings_AreRenderedWithoutAList) {
    EXPECT_EQ(run({}).status, RenderStatus::Complete);
    EXPECT_EQ(written_, (Frames{5, 7, 9}));
    EXPECT_EQ(firstPixels_, (std::vector<float>{5, 7, 9}));
}

TEST_F(SessionTest, FramesBetweenFrames_HaveTheirOwnTimeAndNoise) {
    std::vector<double> times;
    on("used.frameBegin", [&](TessraRenderer& renderer) {
        const TessraFrameData& frame = renderer.getFrameData();
        times.insert(times.end(),
                     {frame.t, frame.frameStart, frame.frameEnd, double(frame.frameNumber)});
    });
    failing_ = FrameNumber::ofUnits(-500'000);
    const SessionResult result = run({FrameNumber::ofUnits(2'250'000), failing_}, true);
    EXPECT_EQ(times, (std::vector<double>{2.25, 2.25, 2.75, 2, -0.5, -0.5, 0, -1}));
    EXPECT_EQ(result.failureSummary(), "1 of 2 frames failed: -0.5");
    EXPECT_EQ(firstPixels_.front(), 2.25f);
}

TEST_F(SessionTest, ThrowInAFrame_FailsThatFrameAndClosesWhatWasBegun) {
    const struct {
        std::string at, message;
        Texts absent, present;  // calls of frame 1
    } failures[] = {
        {"user.preFrameBegin",
         "user: preFrameBegin: broken on purpose",
         {"used.frameBegin", "used.frameEnd", "output.write"},
         {"user.postFrameEnd", "used.postFrameEnd", "tracer.endFrame"}},
        {"used.frameBegin",
         "used: frameBegin: broken on purpose",
         {"user.frameBegin", "user.frameEnd", "tracer.beginFrame"},
         {"used.frameEnd", "user.postFrameEnd"}},
        {"used.compileGeometry",
         "used: compileGeometry: broken on purpose",
         {"user.compileGeometry", "user.clearGeometry", "tracer.beginFrame"},
         {"used.clearGeometry", "user.frameEnd"}},
        {"tracer.beginFrame",
         "preparing the frame: broken on purpose",
         {"output.write"},
         {"tracer.endFrame", "user.clearGeometry", "user.frameEnd", "used.postFrameEnd"}},
        {"user.frameEnd",
         "user: frameEnd: broken on purpose",
         {"output.write"},
         {"used.frameEnd", "used.postFrameEnd"}},
    };
    for (const auto& failure : failures) {
        SCOPED_TRACE(failure.at);
        calls().clear();
        registry_.record.throwAt = failure.at;
        const SessionResult result = run({1, 2});
        EXPECT_EQ(result.status, RenderStatus::Failed);
        EXPECT_EQ(result.error, failure.message);
        EXPECT_EQ(result.failureSummary(), "1 of 1 frame failed: 1");
        for (const std::string& call : failure.absent)
            EXPECT_EQ(countOf(call), 0) << call;
        for (const std::string& call : failure.present)
            EXPECT_EQ(countOf(call), 1) << call;
        EXPECT_EQ(countOf("user.renderEnd"), 1);
        EXPECT_EQ(countOf("used.postRenderEnd"), 1);
    }
    EXPECT_EQ(registry_.log.count("error: frame 1: user: preFrameBegin: broken on purpose"), 1);
}

TEST_F(SessionTest, ThrowBeforeTheFrames_RendersNothing) {
    registry_.record.throwAt = "used.renderBegin";
    const SessionResult result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_EQ(result.error, "used: renderBegin: broken on purpose");
    EXPECT_TRUE(result.frames.empty());
    EXPECT_EQ(countOf("used.preFrameBegin"), 0);
    // The user had its setupRender, which renderEnd takes back.
    for (const char* call : {"used.renderEnd", "user.renderEnd", "user.postRenderEnd"})
        EXPECT_EQ(countOf(call), 1) << call;
}

TEST_F(SessionTest, KeepGoing_RendersTheOtherFrames) {
    on("user.frameBegin", [&](TessraRenderer& renderer) {
        if (renderer.getFrameData().frameNumber % 2 == 0)
            throw std::bad_alloc();
    });
    failing_ = 3;
    const SessionResult result = run({1, 2, 3, 4, 5}, true);
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory && result.outputFailed);
    EXPECT_EQ(result.error, "user: frameBegin: out of memory");
    EXPECT_EQ(result.frames.at(2).error, "/full/disk.exr: no space left");
    EXPECT_EQ(result.failureSummary(), "3 of 5 frames failed: 2, 3, 4");
    EXPECT_EQ(written_, (Frames{1, 3, 5}));
}

TEST_F(SessionTest, ThrowWhileRenderingOrWriting_FailsTheFrame) {
    rayThrows_ = true;
    SessionResult result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_EQ(result.error, "rendering failed: the ray broke");
    EXPECT_TRUE(written_.empty());
    EXPECT_EQ(countOf("used.postFrameEnd"), 1);
    rayThrows_ = false;
    outputThrows_ = true;
    result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory && !result.outputFailed) << "no fault of the disk";
    EXPECT_EQ(result.error, "writing the picture: out of memory");
}

TEST_F(SessionTest, Output_LearnsOfCacheFramesAndWarnings) {
    auto& loaded = registry_.record.loadedFrames;
    const auto warn = [](const char* text) {
        return [text](TessraRenderer& r) { r.getSequenceData().progress->printWarning(text); };
    };
    on("used.preFrameBegin", [&](TessraRenderer& renderer) {
        loaded = {{"used", renderer.getFrameData().t}};
        if (renderer.getFrameData().frameNumber == 2)
            loaded["user"] = 12.5;
    });
    on("user.preRenderBegin", warn("of no frame\n"));
    on("used.frameBegin", warn("same each frame\n"));
    on("user.frameBegin", [&](TessraRenderer& renderer) {
        warn("same each frame\n")(renderer);
        if (renderer.getFrameData().frameNumber == 2)
            warn("only once\n")(renderer);
    });
    // Caches give their frames back before the picture is written.
    on("user.frameEnd", [&](TessraRenderer&) { loaded.clear(); });
    run({2});
    EXPECT_EQ(cacheTimes_, (std::vector<double>{12.5, 2}));
    EXPECT_EQ(warnings_, 2);
    // A frame's file says the same whether other frames came before it or not.
    run({2, 3});
    EXPECT_EQ(cacheTimes_, (std::vector<double>{3}));
    EXPECT_EQ(warnings_, 1);
}

TEST_F(SessionTest, Abort_StopsWithoutWriting) {
    on("used.frameBegin", [&](TessraRenderer& renderer) {
        if (renderer.getFrameData().frameNumber == 2)
            renderer.getSequenceData().progress->setAbort(1);
    });
    const SessionResult result = run({1, 2, 3});
    EXPECT_EQ(result.status, RenderStatus::Aborted);
    EXPECT_EQ(written_, (Frames{1}));
    ASSERT_EQ(result.frames.size(), 2u);
    EXPECT_EQ(result.frames[1].status, RenderStatus::Aborted);
    EXPECT_EQ(result.failureSummary(), "");
    EXPECT_EQ(countOf("used.postFrameEnd"), 2);
    EXPECT_EQ(countOf("used.postRenderEnd"), 1);
}

TEST_F(SessionTest, PluginCannotTakeBackTheUsersStop) {
    on("used.frameBegin", [&](TessraRenderer& renderer) {
        ProgressCallback* progress = renderer.getSequenceData().progress;
        progress->setAbort(1);
        progress->setAbort(0);
        EXPECT_FALSE(progress->getAbort());
        abort_.request(2);
        progress->setAbort(0);
        EXPECT_TRUE(progress->getAbort());
    });
    EXPECT_EQ(run({1}).status, RenderStatus::Aborted);
    EXPECT_EQ(abort_.reason(), 2);
}

TEST_F(SessionTest, Messages_GoToTheLogByLevel) {
    on("used.frameBegin", [&](TessraRenderer& renderer) {
        ProgressCallback* progress = renderer.getSequenceData().progress;
        progress->setProgressTitle("mapping light");
        progress->printWarning("[Used] nothing in '%s'\n", "grid");
        progress->printInfo("[Used] ready\n");
        progress->printStatistic("[Used] %d cells\n", 5);
        progress->setProgressTitle(nullptr);
    });
    run({1, 2});
    registry_.log.log.finish();
    EXPECT_EQ(
        registry_.log.lines,
        (Texts{"debug: mapping light", "warning: [Used] nothing in 'grid'", "info: [Used] ready",
               "debug: [Used] 5 cells", "debug: mapping light", "info: [Used] ready",
               "debug: [Used] 5 cells", "warning: [Used] nothing in 'grid' (2 times)"}));
    EXPECT_EQ(events_.at(1), "phase mapping light");
    EXPECT_EQ(events_.at(2), "phase ");
}

}  // namespace
}  // namespace nimbra::host
