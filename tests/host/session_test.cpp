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

/// Writes down when it is called among the plug-ins, and gives every pixel the frame's time.
class FakeTracer final : public FrameTracer {
public:
    explicit FakeTracer(test::Record& record) : record_(record) {}
    void beginFrame(TessraRenderer& renderer, Scene&, const RenderSettings& settings) override {
        record_.call("tracer.beginFrame", &renderer);
        time_ = static_cast<float>(renderer.getFrameData().t);
        settings_ = settings;
    }
    void endFrame() override { record_.call("tracer.endFrame", nullptr); }
    void radiance(const CameraSample& sample, SampleValue& out) override {
        if (throwing)
            throw std::runtime_error("the ray broke");
        out.color = {time_, sample.random->next(), 0};
        out.alpha = 1;
    }
    std::uint64_t rayCount() const override { return 123; }

    bool throwing = false;
    RenderSettings settings_;

private:
    test::Record& record_;
    float time_ = 0;
};

class FakeOutput final : public FrameOutput {
public:
    explicit FakeOutput(test::Record& record) : record_(record) {}
    bool write(const FinishedFrame& frame, std::string& error) override {
        record_.call("output.write", nullptr);
        frames.push_back(frame.frame);
        firstPixels.push_back(frame.pixels.channels[0].at(0));
        cacheTimes = frame.cacheTimes;
        warnings = frame.warnings;
        if (throwing)
            throw std::bad_alloc();
        if (frame.frame == failing)
            error = "/full/disk.exr: no space left";
        return frame.frame != failing;
    }
    std::vector<FrameNumber> frames;
    std::vector<float> firstPixels;
    std::vector<double> cacheTimes;  // of the last frame
    int warnings = 0;
    FrameNumber failing = -1;
    bool throwing = false;

private:
    test::Record& record_;
};

class SessionTest : public ::testing::Test {
protected:
    SessionTest() {
        SceneDiagnostics diagnostics;
        const SceneDocument document = SceneDocument::parse(
            R"({"nimbra": 1, "user": {"plugin": "Recorder", "source": "@used",
                 "amount": {"keys": [[0, 0], [100, 100]]}},
                "used": {"plugin": "Recorder"},
                "s": {"plugin": "TessraSettings", "width": 4, "height": 3, "samples": 1,
                      "threads": 2, "first_frame": 5, "last_frame": 9, "frame_step": 2,
                      "fps": 25, "up_axis": "z", "meters_per_unit": 0.5, "motion_blur": true,
                      "shutter_interval": 0.5, "shutter_center": 0.25, "gi": true,
                      "probabilistic_samples": 7, "scene_offset": [1, 2, 3]}})",
            "/scenes/s.json", diagnostics);
        scene_ = Scene::create(document, registry_.registry, diagnostics);
        EXPECT_EQ(diagnostics.str(), "");
    }

    SessionResult run(std::vector<FrameNumber> frames, bool keepGoing = false) {
        SessionOptions options;
        options.frames = std::move(frames);
        options.keepGoing = keepGoing;
        return run(options);
    }
    SessionResult run(const SessionOptions& options) {
        return RenderSession(*scene_, tracer_, output_, registry_.log.log, abort_, &observer_)
            .run(options);
    }
    std::vector<std::string>& calls() { return registry_.record.calls; }
    int countOf(const std::string& call) {
        return static_cast<int>(std::count(calls().begin(), calls().end(), call));
    }

    struct Observer final : ProgressObserver {
        std::vector<std::string> events;
        void frameStarted(FrameNumber frame, int number, int count) override {
            events.push_back("start " + frame.text() + " " + std::to_string(number) + "/" +
                             std::to_string(count));
        }
        void phase(const std::string& title) override { events.push_back("phase " + title); }
        void rendering(double share, double, double) override { lastShare = share; }
        void frameFinished(FrameNumber frame, RenderStatus status) override {
            events.push_back("end " + frame.text() + " " +
                             std::to_string(static_cast<int>(status)));
        }
        double lastShare = -1;
    };

    TestRegistry registry_;
    std::unique_ptr<Scene> scene_;
    FakeTracer tracer_{registry_.record};
    FakeOutput output_{registry_.record};
    AbortFlag abort_;
    Observer observer_;
};

TEST_F(SessionTest, TwoFrames_CallEverythingInOrder) {
    EXPECT_EQ(run({5, 6}).status, RenderStatus::Complete);
    std::vector<std::string> expected;
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
    const std::vector<std::string> events{"start 5 0/2", "end 5 0", "start 6 1/2", "end 6 0"};
    EXPECT_EQ(observer_.events, events);
    EXPECT_EQ(observer_.lastShare, 1.0);
}

TEST_F(SessionTest, Renderer_AnswersWhatPluginsAskFor) {
    int seen = 0;
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call != "user.frameBegin")
            return;
        ++seen;
        const TessraSequenceData& sequence = renderer->getSequenceData();
        const TessraFrameData& frame = renderer->getFrameData();
        EXPECT_EQ(sequence.threadCount, 2);
        EXPECT_NE(sequence.progress, nullptr);
        EXPECT_NE(sequence.threadManager, nullptr);
        EXPECT_TRUE(sequence.motionBlurOn && sequence.giOn && !sequence.isInteractive);
        EXPECT_EQ(frame.t, 9.0);
        EXPECT_EQ(frame.frameNumber, 9);
        EXPECT_EQ(frame.frameStart, 9.0);
        EXPECT_EQ(frame.frameEnd, 9.5);
        EXPECT_EQ(frame.sceneOffset, (TracePoint{1, 2, 3}));
        auto* asked = const_cast<TessraSequenceData*>(&sequence);
        for (PluginBase* object :
             {static_cast<PluginBase*>(renderer), static_cast<PluginBase*>(asked)}) {
            auto* units =
                dynamic_cast<SceneUnitsInterface*>(object->getInterface(ids::kSceneUnits));
            ASSERT_NE(units, nullptr);
            EXPECT_EQ(units->upDirection(), (Vector{0, 0, 1}));
            EXPECT_EQ(units->scale(), 0.5f);
            EXPECT_FLOAT_EQ(units->frameDuration(), 0.04f);
            auto* chance = dynamic_cast<ProbabilisticSettingsInterface*>(
                object->getInterface(ids::kProbabilisticSettings));
            EXPECT_EQ(chance->samples(), 7);
            EXPECT_EQ(chance->samplesGI(), 0);
            auto* camera =
                dynamic_cast<CameraSettingsInterface*>(object->getInterface(ids::kCameraSettings));
            EXPECT_EQ(camera->getValue(kCameraMotionBlurKey), -1);
            auto* scene = dynamic_cast<SceneInterface*>(object->getInterface(ids::kScene));
            EXPECT_EQ(scene->findPlugin("used"), scene_->findPlugin("used"));
            EXPECT_NE(object->getInterface(ids::kVolumetricList), nullptr);
            EXPECT_NE(object->getInterface(ids::kRenderChannelList), nullptr);
            EXPECT_NE(object->getInterface(ids::kPlanckTable), nullptr);
            EXPECT_EQ(object->getInterface(ids::kInteractiveEngine), nullptr);
        }
        EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "/scenes/smoke.vdb");
    };
    run({9});
    EXPECT_EQ(seen, 1);
}

TEST_F(SessionTest, FramesOfTheSettings_AreRenderedWithoutAList) {
    EXPECT_EQ(run(std::vector<FrameNumber>{}).status, RenderStatus::Complete);
    EXPECT_EQ(output_.frames, (std::vector<FrameNumber>{5, 7, 9}));
    EXPECT_EQ(output_.firstPixels, (std::vector<float>{5, 7, 9}));
}

TEST_F(SessionTest, FramesBetweenFrames_HaveTheirOwnTimeAndNoise) {
    std::vector<double> times;
    std::vector<int> numbers;
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call != "used.frameBegin")
            return;
        const TessraFrameData& frame = renderer->getFrameData();
        times.insert(times.end(), {frame.t, frame.frameStart, frame.frameEnd});
        numbers.push_back(frame.frameNumber);
    };
    output_.failing = FrameNumber::ofUnits(-500'000);
    const SessionResult result = run({FrameNumber::ofUnits(2'250'000), output_.failing}, true);
    EXPECT_EQ(times, (std::vector<double>{2.25, 2.25, 2.75, -0.5, -0.5, 0}));
    EXPECT_EQ(numbers, (std::vector<int>{2, -1}));
    EXPECT_EQ(result.failureSummary(), "1 of 2 frames failed: -0.5");
    EXPECT_EQ(output_.firstPixels.front(), 2.25f);
}

struct Failure {
    const char* at;
    const char* message;
    std::vector<std::string> absent;  // calls of frame 1 that must not come
    std::vector<std::string> present;
};

TEST_F(SessionTest, ThrowInAFrame_FailsThatFrameAndClosesWhatWasBegun) {
    const Failure failures[] = {
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
    for (const Failure& failure : failures) {
        calls().clear();
        registry_.record.throwAt = failure.at;
        const SessionResult result = run({1, 2});
        EXPECT_EQ(result.status, RenderStatus::Failed) << failure.at;
        EXPECT_EQ(result.error, failure.message);
        EXPECT_EQ(result.frames.size(), 1u);
        EXPECT_EQ(result.failureSummary(), "1 of 1 frame failed: 1");
        for (const std::string& call : failure.absent)
            EXPECT_EQ(countOf(call), 0) << failure.at << " / " << call;
        for (const std::string& call : failure.present)
            EXPECT_EQ(countOf(call), 1) << failure.at << " / " << call;
        EXPECT_EQ(countOf("user.renderEnd"), 1) << failure.at;
        EXPECT_EQ(countOf("used.postRenderEnd"), 1) << failure.at;
    }
    EXPECT_TRUE(registry_.log.contains("error: frame 1: user: preFrameBegin: broken on purpose"));
}

TEST_F(SessionTest, ThrowBeforeTheFrames_RendersNothing) {
    registry_.record.throwAt = "used.renderBegin";
    const SessionResult result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_EQ(result.error, "used: renderBegin: broken on purpose");
    EXPECT_TRUE(result.frames.empty());
    EXPECT_EQ(countOf("used.preFrameBegin"), 0);
    EXPECT_EQ(countOf("used.renderEnd"), 1);
    // It had its setupRender, which renderEnd takes back.
    EXPECT_EQ(countOf("user.renderEnd"), 1);
    EXPECT_EQ(countOf("user.postRenderEnd"), 1);
}

TEST_F(SessionTest, KeepGoing_RendersTheOtherFrames) {
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call == "user.frameBegin" && renderer->getFrameData().frameNumber % 2 == 0)
            throw std::bad_alloc();
    };
    output_.failing = 3;
    const SessionResult result = run({1, 2, 3, 4, 5}, true);
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory);
    EXPECT_TRUE(result.outputFailed);
    EXPECT_EQ(result.error, "user: frameBegin: out of memory");
    EXPECT_EQ(result.frames.at(2).error, "/full/disk.exr: no space left");
    EXPECT_EQ(result.failureSummary(), "3 of 5 frames failed: 2, 3, 4");
    EXPECT_EQ(output_.frames, (std::vector<FrameNumber>{1, 3, 5}));
}

TEST_F(SessionTest, NoMemoryForThePicture_IsNoFaultOfTheDisk) {
    output_.throwing = true;
    const SessionResult result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory);
    EXPECT_FALSE(result.outputFailed);
    EXPECT_EQ(result.error, "writing the picture: out of memory");
}

TEST_F(SessionTest, Output_LearnsOfCacheFramesAndWarnings) {
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        auto& loaded = registry_.record.loadedFrames;
        if (call == "used.preFrameBegin")
            loaded = {{"user", 12.5}, {"used", renderer->getFrameData().t}};
        if (call == "used.preFrameBegin" && renderer->getFrameData().frameNumber == 3)
            loaded.erase("user");
        if (call == "user.preRenderBegin")
            renderer->getSequenceData().progress->printWarning("of no frame\n");
        if (call == "user.frameBegin" || call == "used.frameBegin")
            renderer->getSequenceData().progress->printWarning("same each frame\n");
        if (call == "user.frameBegin" && renderer->getFrameData().frameNumber == 2)
            renderer->getSequenceData().progress->printWarning("only once\n");
        // Caches give their frames back before the picture is written.
        if (call == "user.frameEnd")
            loaded.clear();
    };
    run({2});
    EXPECT_EQ(output_.cacheTimes, (std::vector<double>{12.5, 2}));
    EXPECT_EQ(output_.warnings, 2);
    // A frame's file says the same whether other frames came before it or not.
    run({2, 3});
    EXPECT_EQ(output_.cacheTimes, (std::vector<double>{3}));
    EXPECT_EQ(output_.warnings, 1);
}

TEST_F(SessionTest, ThrowOnARenderThread_FailsTheFrame) {
    tracer_.throwing = true;
    const SessionResult result = run({1});
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_EQ(result.error, "rendering failed: the ray broke");
    EXPECT_TRUE(output_.frames.empty());
    EXPECT_EQ(countOf("used.postFrameEnd"), 1);
}

TEST_F(SessionTest, Abort_StopsWithoutWriting) {
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call == "used.frameBegin" && renderer->getFrameData().frameNumber == 2) {
            EXPECT_FALSE(renderer->getSequenceData().progress->getAbort());
            renderer->getSequenceData().progress->setAbort(1);
        }
    };
    const SessionResult result = run({1, 2, 3});
    EXPECT_EQ(result.status, RenderStatus::Aborted);
    EXPECT_EQ(output_.frames, (std::vector<FrameNumber>{1}));
    ASSERT_EQ(result.frames.size(), 2u);
    EXPECT_EQ(result.frames[1].status, RenderStatus::Aborted);
    EXPECT_EQ(result.failureSummary(), "");
    EXPECT_EQ(countOf("used.postFrameEnd"), 2);
    EXPECT_EQ(countOf("used.postRenderEnd"), 1);
}

TEST_F(SessionTest, PluginCannotTakeBackTheUsersStop) {
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call != "used.frameBegin")
            return;
        ProgressCallback* progress = renderer->getSequenceData().progress;
        progress->setAbort(1);
        progress->setAbort(0);
        EXPECT_FALSE(progress->getAbort());
        abort_.request(2);
        progress->setAbort(0);
        EXPECT_TRUE(progress->getAbort());
    };
    EXPECT_EQ(run({1}).status, RenderStatus::Aborted);
    EXPECT_EQ(abort_.reason(), 2);
}

TEST_F(SessionTest, Messages_GoToTheLogByLevel) {
    registry_.record.hook = [&](const std::string& call, TessraRenderer* renderer) {
        if (call != "used.frameBegin")
            return;
        ProgressCallback* progress = renderer->getSequenceData().progress;
        progress->setProgressTitle("mapping light");
        progress->printWarning("[Used] nothing in '%s'\n", "grid");
        progress->printInfo("[Used] ready\n");
        progress->printStatistic("[Used] %d cells\n", 5);
        progress->setProgressTitle(nullptr);
    };
    run({1, 2});
    registry_.log.log.finish();
    const std::vector<std::string> expected{
        "debug: mapping light",  "warning: [Used] nothing in 'grid'",
        "info: [Used] ready",    "debug: [Used] 5 cells",
        "debug: mapping light",  "info: [Used] ready",
        "debug: [Used] 5 cells", "warning: [Used] nothing in 'grid' (2 times)"};
    EXPECT_EQ(registry_.log.lines, expected);
    EXPECT_EQ(observer_.events.at(1), "phase mapping light");
    EXPECT_EQ(observer_.events.at(2), "phase ");
}

}  // namespace
}  // namespace nimbra::host
