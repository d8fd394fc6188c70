// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/session.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "host/host_renderer.h"
#include "host/lifecycle.h"
#include "host/parameter_view.h"
#include "host/task_limit.h"
#include "tessra/thread_manager.h"

namespace nimbra::host {

using namespace TessUtils;

namespace {

constexpr std::size_t kMostFrames = 10'000'000;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::size_t peakMemory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

/// Spreads a frame's noise over the sequence: the same seed in every frame would look like dirt on
/// the lens.
std::uint32_t frameSeed(std::uint32_t seed, FrameNumber frame) {
    const std::int64_t whole = frame.whole();
    const std::int64_t fraction = frame.units() - FrameNumber(whole).units();
    return seed * 0x9e3779b9U + static_cast<std::uint32_t>(whole) * 0x85ebca6bU +
           static_cast<std::uint32_t>(fraction) * 0xc2b2ae35U;
}

struct DeleteThreadManager {
    void operator()(ThreadManager* manager) const { deleteThreadManager(manager); }
};

}  // namespace

std::string SessionResult::failureSummary() const {
    std::string list;
    std::size_t count = 0;
    for (const FrameReport& report : frames)
        if (report.status == RenderStatus::Failed) {
            list += (count ? ", " : "") + report.frame.text();
            ++count;
        }
    if (!count)
        return "";
    return std::to_string(count) + " of " + std::to_string(frames.size()) +
           (frames.size() == 1 ? " frame failed: " : " frames failed: ") + list;
}

struct RenderSession::State {
    Scene& scene;
    FrameTracer& tracer;
    FrameOutput& output;
    HostLog& log;
    AbortFlag& abort;
    ProgressObserver* observer;

    // Of the running render.
    SessionOptions options;
    int threadCount = 1;
    HostProgress* progress = nullptr;
    SettingsPlugin* settingsPlugin = nullptr;
    FrameBuffer pixels;
    std::vector<double> cacheTimes;  // of the frame

    RenderSettings settingsAt(double time) const;
    std::vector<FrameNumber> frameList() const;
    int cameraMotionBlur(double time) const;
    void runFrames(HostRenderer& renderer, Lifecycle& lifecycle,
                   const std::vector<FrameNumber>& frames, SessionResult& result);
    FrameReport runFrame(HostRenderer& renderer, Lifecycle& lifecycle, FrameNumber frame);
    StepFailure prepare(HostRenderer& renderer, Lifecycle& lifecycle,
                        const RenderSettings& settings, FrameReport& report);
    void readCacheTimes();
    void trace(const RenderSettings& settings, FrameReport& report);
    void finish(HostRenderer& renderer, Lifecycle& lifecycle, FrameReport& report);
    void write(const RenderSettings& settings, FrameReport& report);
    void fail(FrameReport& report, const StepFailure& failure);
};

RenderSettings RenderSession::State::settingsAt(double time) const {
    RenderSettings settings;
    if (settingsPlugin)
        settings = settingsPlugin->read(time);
    settings.width = options.width.value_or(settings.width);
    settings.height = options.height.value_or(settings.height);
    settings.samples = options.samples.value_or(settings.samples);
    settings.seed = options.seed.value_or(settings.seed);
    settings.threads = options.threads.value_or(settings.threads);
    // The shutter opens for the camera's sake too.
    settings.motionBlur = settings.motionBlur || cameraMotionBlur(time) == 1;
    return settings;
}

std::vector<FrameNumber> RenderSession::State::frameList() const {
    if (!options.frames.empty())
        return options.frames;
    const RenderSettings settings = settingsAt(0);
    const long long step = std::max(1, settings.frameStep);
    std::vector<FrameNumber> frames;
    for (long long frame = settings.firstFrame; frame <= settings.lastFrame; frame += step) {
        if (frames.size() == kMostFrames)
            return {};
        frames.push_back(frame);
    }
    if (frames.empty())
        frames.push_back(settings.firstFrame);
    return frames;
}

/// 1 if the scene's camera asks for motion blur of its own, else -1.
int RenderSession::State::cameraMotionBlur(double time) const {
    for (TessraPlugin* plugin : scene.pluginsOf<TessraPlugin>())
        if (plugin->getPluginDesc()->supportsInterface(kHostCamera)) {
            const ParameterView view(*plugin, time);
            return view.find("motion_blur") && view.getInt("motion_blur") == 1 ? 1 : -1;
        }
    return -1;
}

/// Before the end of the frame, in which caches give their frames back.
void RenderSession::State::readCacheTimes() {
    cacheTimes.clear();
    for (Plugin* plugin : scene.plugins()) {
        auto* source = dynamic_cast<FrameSourceInterface*>(plugin->getInterface(ids::kFrameSource));
        double time = 0;
        if (source && source->loadedFrame(time))
            cacheTimes.push_back(time);
    }
}

void RenderSession::State::fail(FrameReport& report, const StepFailure& failure) {
    if (!failure.failed() || report.status == RenderStatus::Failed)
        return;
    report.status = RenderStatus::Failed;
    report.error = failure.text;
    report.outOfMemory = failure.outOfMemory;
}

StepFailure RenderSession::State::prepare(HostRenderer& renderer, Lifecycle& lifecycle,
                                          const RenderSettings& settings, FrameReport& report) {
    const auto start = Clock::now();
    StepFailure failure = lifecycle.beginFrame(renderer);
    report.statistics.loadSeconds = secondsSince(start);
    if (failure.failed() || abort.requested())
        return failure;
    failure = guarded("asking for the frames of caches", [&] { readCacheTimes(); });
    if (failure.failed())
        return failure;
    const auto geometryStart = Clock::now();
    failure = lifecycle.compileGeometry(renderer);
    if (!failure.failed() && !abort.requested())
        failure =
            guarded("preparing the frame", [&] { tracer.beginFrame(renderer, scene, settings); });
    report.statistics.geometrySeconds = secondsSince(geometryStart);
    return failure;
}

void RenderSession::State::trace(const RenderSettings& settings, FrameReport& report) {
    FrameRenderJob job;
    job.tracer = &tracer;
    job.abort = &abort;
    job.settings = settings;
    job.settings.seed = frameSeed(settings.seed, report.frame);
    job.threadCount = threadCount;
    job.crop = options.crop;
    job.needs = output.needs(report.frame);
    const auto start = Clock::now();
    job.progress = [&](double share) {
        const double elapsed = secondsSince(start);
        const double remaining = share > 0 ? elapsed / share * (1 - share) : -1;
        progress->rendering(share, elapsed, remaining);
    };
    FrameRenderResult result;
    const StepFailure failure = guarded("rendering", [&] { result = renderFrame(job, pixels); });
    fail(report, failure);
    if (result.status == RenderStatus::Failed)
        fail(report, {result.error, result.outOfMemory});
    else if (report.status == RenderStatus::Complete)
        report.status = result.status;
    report.statistics.renderSeconds = result.seconds;
    report.statistics.cameraSamples = result.cameraSamples;
    report.statistics.invalidSamples = result.invalidSamples;
    report.statistics.rays = tracer.rayCount();
    if (result.invalidSamples)
        log.warning("frame " + report.frame.text() + ": " + std::to_string(result.invalidSamples) +
                    " camera rays gave no finite colour and count as black");
}

void RenderSession::State::finish(HostRenderer& renderer, Lifecycle& lifecycle,
                                  FrameReport& report) {
    fail(report, guarded("ending the frame", [&] { tracer.endFrame(); }));
    fail(report, lifecycle.clearGeometry(renderer));
    fail(report, lifecycle.endFrame(renderer));
}

void RenderSession::State::write(const RenderSettings& settings, FrameReport& report) {
    const auto start = Clock::now();
    report.statistics.peakMemory = peakMemory();
    const FinishedFrame finished{pixels, settings,   report.statistics,      scene, report.frame,
                                 true,   cacheTimes, log.frameWarningCount()};
    std::string error;
    bool written = false;
    const StepFailure failure =
        guarded("writing the picture", [&] { written = output.write(finished, error); });
    report.statistics.outputSeconds = secondsSince(start);
    if (written && !failure.failed())
        return;
    report.outputFailed = !failure.outOfMemory;
    fail(report, failure.failed()
                     ? failure
                     : StepFailure{error.empty() ? "the picture can't be written" : error, false});
}

FrameReport RenderSession::State::runFrame(HostRenderer& renderer, Lifecycle& lifecycle,
                                           FrameNumber frame) {
    FrameReport report;
    report.frame = frame;
    log.startFrame();
    const RenderSettings settings = settingsAt(frame.time());
    renderer.setFrame(frame, settings);
    fail(report, prepare(renderer, lifecycle, settings, report));
    if (report.status == RenderStatus::Complete && !abort.requested())
        trace(settings, report);
    finish(renderer, lifecycle, report);
    if (report.status == RenderStatus::Complete && abort.requested())
        report.status = RenderStatus::Aborted;
    if (report.status == RenderStatus::Complete)
        write(settings, report);
    report.statistics.peakMemory = peakMemory();
    return report;
}

void RenderSession::State::runFrames(HostRenderer& renderer, Lifecycle& lifecycle,
                                     const std::vector<FrameNumber>& frames,
                                     SessionResult& result) {
    int number = 0;
    for (const FrameNumber frame : frames) {
        if (abort.requested())
            break;
        if (observer)
            observer->frameStarted(frame, number, static_cast<int>(frames.size()));
        ++number;
        const FrameReport report = runFrame(renderer, lifecycle, frame);
        if (report.status == RenderStatus::Failed)
            log.error("frame " + frame.text() + ": " + report.error);
        if (observer)
            observer->frameFinished(frame, report.status);
        if (report.status == RenderStatus::Failed && result.status == RenderStatus::Complete) {
            result.status = RenderStatus::Failed;
            result.error = report.error;
        }
        result.outOfMemory = result.outOfMemory || report.outOfMemory;
        result.outputFailed = result.outputFailed || report.outputFailed;
        result.frames.push_back(report);
        if (report.status == RenderStatus::Failed && !options.keepGoing)
            break;
    }
    if (abort.requested())
        result.status = RenderStatus::Aborted;
}

RenderSession::RenderSession(Scene& scene, FrameTracer& tracer, FrameOutput& output, HostLog& log,
                             AbortFlag& abort, ProgressObserver* observer)
    : state_(new State{
          scene, tracer, output, log, abort, observer, {}, 1, nullptr, nullptr, {}, {}}) {}

RenderSession::~RenderSession() = default;

SessionResult RenderSession::run(const SessionOptions& options) {
    State& state = *state_;
    const auto start = Clock::now();
    SessionResult result;
    state.options = options;
    const auto settingsPlugins = state.scene.pluginsOf<SettingsPlugin>();
    state.settingsPlugin = settingsPlugins.empty() ? nullptr : settingsPlugins.front();
    setSceneFolder(state.scene.folder());

    const std::vector<FrameNumber> frames = state.frameList();
    if (frames.empty()) {
        result.status = RenderStatus::Failed;
        result.error = "the scene has more than " + std::to_string(kMostFrames) + " frames";
        state.log.error(result.error);
        return result;
    }
    const RenderSettings settings = state.settingsAt(frames.front().time());
    const int wanted = settings.threads > 0 ? settings.threads : numberOfProcessors();
    state.threadCount = std::clamp(wanted, 1, kMaxRenderThreads);

    const TaskLimit taskLimit(state.threadCount);
    const std::unique_ptr<ThreadManager, DeleteThreadManager> threads(
        newThreadManager(state.threadCount));
    HostProgress progress(state.log, state.abort, state.observer);
    state.progress = &progress;
    HostRenderer renderer(state.scene, settings, state.cameraMotionBlur(frames.front().time()),
                          &progress, threads.get(), state.threadCount);
    renderer.services().channels.channels = options.channels;
    renderer.setFrame(frames.front(), settings);

    std::optional<Lifecycle> lifecycle;
    StepFailure failure = guarded("asking the plug-ins for their interfaces",
                                  [&] { lifecycle.emplace(state.scene, state.log); });
    if (!failure.failed())
        failure = lifecycle->beginRender(renderer);
    if (!failure.failed()) {
        state.runFrames(renderer, *lifecycle, frames, result);
    } else {
        state.log.error(failure.text);
        result.status = RenderStatus::Failed;
        result.error = failure.text;
        result.outOfMemory = failure.outOfMemory;
    }
    failure = lifecycle ? lifecycle->endRender(renderer) : StepFailure();
    if (failure.failed() && result.status == RenderStatus::Complete) {
        result.status = RenderStatus::Failed;
        result.error = failure.text;
    }
    result.seconds = secondsSince(start);
    return result;
}

}  // namespace nimbra::host
