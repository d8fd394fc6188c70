// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/render_job.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "cli/frame_range.h"
#include "cli/job_progress.h"
#include "cli/picture_size.h"
#include "cli/scene_caches.h"
#include "cli/statistics_text.h"
#include "host/camera_plugin.h"
#include "host/path_tracer.h"
#include "host/picture_output.h"
#include "host/render_settings.h"
#include "host/scene.h"
#include "host/session.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

/// A way out with an exit code; the text goes to the log.
struct JobFailure {
    int code;
    std::string text;
};

std::int64_t environmentNumber(const char* name) {
    const char* text = std::getenv(name);
    std::int64_t n = 0;
    const char* const end = text ? text + std::strlen(text) : nullptr;
    if (!text || std::from_chars(text, end, n).ptr != end || text == end)
        throw JobFailure{kExitUsage,
                         fmt::format("--frames @slurm: {} is not set to a number", name)};
    return n;
}

std::vector<std::int64_t> sceneFrames(const host::RenderSettings& s) {
    std::vector<std::int64_t> frames;
    const std::int64_t step = std::max(s.frameStep, 1);
    if (s.lastFrame < s.firstFrame)
        throw JobFailure{kExitInput,
                         fmt::format("the scene's last frame {} lies before its first, {}",
                                     s.lastFrame, s.firstFrame)};
    if ((std::int64_t(s.lastFrame) - s.firstFrame) / step >= kMaxFrames)
        throw JobFailure{kExitInput, fmt::format("the scene has more than {} frames", kMaxFrames)};
    for (std::int64_t f = s.firstFrame; f <= s.lastFrame; f += step)
        frames.push_back(f);
    return frames;
}

FrameList wholeFrames(const std::vector<std::int64_t>& frames) {
    return {{frames.begin(), frames.end()}};
}

FrameList chosenFrames(const std::string& text, const host::RenderSettings& s) {
    if (text.empty())
        return wholeFrames(sceneFrames(s));
    if (text == "@slurm") {
        const std::int64_t first = environmentNumber("SLURM_ARRAY_TASK_MIN");
        return wholeFrames(frameShare(sceneFrames(s),
                                      environmentNumber("SLURM_ARRAY_TASK_ID") - first,
                                      environmentNumber("SLURM_ARRAY_TASK_COUNT")));
    }
    return parseFrameList(text);
}

bool isPictureName(const std::string& path) {
    const std::string extension = fs::path(path).extension();
    return extension == ".exr" || extension == ".png";
}

/// What is to be rendered, all of it checked.
struct Job {
    host::RenderSettings settings;
    host::SessionOptions session;
    std::string output;
    bool severalFrames = false;
    int decimals = 0;  // of the frame numbers in names

    std::string pathOf(host::FrameNumber frame) const {
        return outputName(output, frame, severalFrames, decimals);
    }
};

// The whole sequence decides whether a frame number goes into the names, so that parts of it that
// are rendered elsewhere fit together.
Job planJob(const host::RenderSettings& settings, const RenderOptions& o,
            const std::string& defaultOutput) {
    Job job;
    job.settings = settings;
    PictureSize size{settings.width, settings.height};
    if (!o.size.empty())
        size = parseSize(o.size, size);
    else if (o.preview)
        size = parseSize("50%", size);
    job.session.width = size.width;
    job.session.height = size.height;
    if (!o.crop.empty()) {
        const PictureCrop c = parseCrop(o.crop, size);
        job.session.crop = {c.x0, c.y0, c.x1, c.y1};
    }
    job.session.samples = o.samples;
    if (!o.samples && o.preview)
        job.session.samples = std::max(1, settings.samples / 4);
    job.session.seed = o.seed;
    job.session.keepGoing = o.keepGoing;
    const int threads = chosenThreads(o);
    if (threads > 0 || o.threads)
        job.session.threads = threads;

    const auto [frames, decimals] = chosenFrames(o.frames, settings);
    job.decimals = decimals;
    job.output = o.output.empty() ? defaultOutput : o.output;
    if (!isPictureName(job.output)) {
        std::error_code ignored;
        const bool folder = job.output.ends_with('/') || fs::is_directory(job.output, ignored);
        throw JobFailure{
            kExitUsage,
            folder ? fmt::format("output '{}' is a folder: give a name in it, like '{}'",
                                 job.output, (fs::path(job.output) / defaultOutput).string())
                   : fmt::format("output '{}': the name must end in .exr or .png", job.output)};
    }
    job.severalFrames = frames.size() > 1 || o.frames == "@slurm";
    if (const auto clash = clashingOutput(job.output, frames, decimals))
        throw JobFailure{kExitUsage, fmt::format("two frames would be written to '{}'", *clash)};
    job.session.frames = frames;
    return job;
}

bool isCompletePicture(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return false;
    host::Picture picture;
    std::string problem;
    if (!host::readPicture(path, picture, problem))
        return false;
    const auto complete = picture.attributes.find("nimbra/complete");
    return complete == picture.attributes.end() || complete->second != "0";
}

void leaveOutExisting(Job& job, Console& console) {
    std::vector<host::FrameNumber> there;
    std::erase_if(job.session.frames, [&](host::FrameNumber frame) {
        const bool done = isCompletePicture(job.pathOf(frame));
        if (done)
            there.push_back(frame);
        return done;
    });
    if (!there.empty())
        console.note(fmt::format("already there: {}", describeFrames(there)));
}

void applyPreview(host::SceneDocument& document, Console& console) {
    host::SceneDiagnostics ignored;
    std::string changed = "half size, a quarter of the samples";
    for (const host::ScenePluginEntry& entry : document.plugins) {
        if (entry.type != "NmbShaderSim")
            continue;
        int step = 90, shadowStep = 200;
        for (const auto& p : entry.parameters) {
            if (p.key == "rendstep" && p.value.isNumber())
                step = static_cast<int>(p.value.number);
            if (p.key == "rendshadstep" && p.value.isNumber())
                shadowStep = static_cast<int>(p.value.number);
        }
        document.setOverride(fmt::format("{}.rendstep={}", entry.name, 2 * step), ignored);
        document.setOverride(fmt::format("{}.rendshadstep={}", entry.name, 2 * shadowStep),
                             ignored);
        changed += fmt::format(", {0}.rendstep={1}, {0}.rendshadstep={2}", entry.name, 2 * step,
                               2 * shadowStep);
    }
    console.note("preview: " + changed);
}

void report(const host::SceneDiagnostics& diagnostics, Console& console) {
    for (const host::SceneMessage& message : diagnostics.messages())
        console.log().error(message.str());
}

int exitCodeOf(const host::SessionResult& result, const host::AbortFlag& abort) {
    if (result.status == host::RenderStatus::Aborted)
        return abort.reason() > 0 ? 128 + abort.reason() : kExitFrameFailed;
    for (const host::FrameReport& f : result.frames) {
        if (f.outputFailed)
            return kExitOutput;
        if (f.outOfMemory)
            return kExitMemory;
    }
    return result.status == host::RenderStatus::Complete ? kExitDone : kExitFrameFailed;
}

host::PictureOutputOptions outputOptions(const Job& job, const RenderOptions& o) {
    host::PictureOutputOptions out;
    out.paths = [&job](host::FrameNumber frame) {
        return std::vector<std::string>{job.pathOf(frame)};
    };
    out.version = NIMBRA_VERSION;
    // Builds that can be repeated say so by this variable (reproducible-builds.org).
    out.deterministic = o.deterministic || std::getenv("SOURCE_DATE_EPOCH");
    return out;
}

/// The frames that a render left undone.
std::string describeUnfinished(const Job& job, const host::SessionResult& result) {
    std::vector<host::FrameNumber> left = job.session.frames;
    for (const host::FrameReport& f : result.frames)
        if (f.status == host::RenderStatus::Complete)
            std::erase(left, f.frame);
    return left.size() == 1 ? fmt::format("frame {} isn't rendered", left.front().text())
                            : fmt::format("frames {} aren't rendered", describeFrames(left));
}

int runJob(host::Scene& scene, const Job& job, const RenderOptions& o, Console& console) {
    host::PictureOutput output(outputOptions(job, o));
    std::string problem;
    if (!output.prepare(job.session.frames, problem))
        throw JobFailure{kExitOutput, problem};
    host::AbortFlag abort;
    const host::SignalAbort signals(abort);
    host::PathTracer tracer(console.log());
    JobProgress progress(console, [&job](host::FrameNumber frame) { return job.pathOf(frame); });
    host::RenderSession session(scene, tracer, output, console.log(), abort, &progress);
    const host::SessionResult result = session.run(job.session);
    console.endProgress();
    console.log().finish();
    if (const std::string summary = result.failureSummary(); !summary.empty())
        console.log().error(summary);
    if (result.status == host::RenderStatus::Aborted && abort.reason() > 0)
        console.log().error("interrupted: " + describeUnfinished(job, result));
    if (o.stats)
        printStatistics(result, o.statsFile, console);
    return exitCodeOf(result, abort);
}

}  // namespace

bool loadPlugins(host::PluginRegistry& registry, const std::string& module, host::HostLog& log) {
    host::addHostPlugins(registry);
    std::string error;
    if (registry.loadModule(module.empty() ? host::PluginRegistry::defaultModulePath() : module,
                            error))
        return true;
    log.error(error);
    return false;
}

int renderDocument(host::SceneDocument& document, const RenderOptions& o,
                   const std::string& defaultOutput, host::PluginRegistry& registry,
                   Console& console) try {
    if (!applyTimeOptions(document, o.time, console))
        return kExitUsage;
    host::SceneDiagnostics overrides;
    for (const std::string& set : o.sets)
        document.setOverride(set, overrides);
    if (!overrides.empty()) {
        report(overrides, console);
        return kExitUsage;
    }
    warnOfUnusedTime(document, o.time, console);
    if (o.preview)
        applyPreview(document, console);
    host::SceneDiagnostics faults;
    const std::unique_ptr<host::Scene> scene = host::Scene::create(document, registry, faults);
    report(faults, console);
    if (!scene)
        return std::any_of(faults.messages().begin(), faults.messages().end(),
                           [](const host::SceneMessage& m) { return m.location.line == 0; })
                   ? kExitUsage
                   : kExitInput;
    if (scene->pluginsOf<host::CameraPlugin>().empty()) {
        console.log().error(document.path + ": the scene has no TessraCamera");
        return kExitInput;
    }
    Job job = planJob(scene->pluginsOf<host::SettingsPlugin>().front()->read(0), o, defaultOutput);
    if (o.skipExisting)
        leaveOutExisting(job, console);
    if (job.session.frames.empty())
        return kExitDone;
    console.expectMissing(warnOfMissingFiles(*scene, job.session.frames, console.log()));
    return runJob(*scene, job, o, console);
} catch (const JobFailure& failure) {
    console.log().error(failure.text);
    return failure.code;
} catch (const FrameRangeError& e) {
    console.log().error(e.what());
    return kExitUsage;
} catch (const PictureSizeError& e) {
    console.log().error(e.what());
    return kExitUsage;
} catch (const std::invalid_argument& e) {
    console.log().error(e.what());
    return kExitUsage;
}

}  // namespace nimbra::cli
