// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra view: a picture of a cache with no scene at all.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>

#include "cache/file_patterns.h"
#include "cli/cache_frame.h"
#include "cli/commands.h"
#include "cli/exit_codes.h"
#include "cli/frame_info.h"
#include "cli/frame_names.h"
#include "cli/frame_range.h"
#include "cli/grid_summary.h"
#include "cli/picture_size.h"
#include "cli/render_job.h"
#include "cli/usage.h"
#include "cli/view_scene.h"
#include "host/atomic_file.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

struct ViewCommand {
    ConsoleOptions console;
    RenderOptions render;
    std::string input;
    ViewWishes wishes;
    std::string up;
    std::string writeScene;
    double azimuth = 35, elevation = 12;
    bool ground = false;
};

/// The files to show: one, or a sequence with the frames that were asked for.
struct ViewInput {
    std::string path;  // for the cache: file or pattern, absolute
    // The first that can be read decides the look by its contents.
    std::vector<std::string> samples;
    std::string stem;  // for the picture's name
    std::vector<host::FrameNumber> frames;
    std::string others{};  // what a folder holds beside it
};

std::string absolutePath(const std::string& path) {
    return fs::absolute(path).lexically_normal().string();
}

bool isOneFile(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error) && !fs::is_directory(path, error);
}

/// A file whose name caches would take for a pattern, under a name that they don't.
class PlainAlias {
public:
    PlainAlias() = default;
    PlainAlias(const PlainAlias&) = delete;
    PlainAlias& operator=(const PlainAlias&) = delete;
    ~PlainAlias() {
        std::error_code ignored;
        if (!folder_.empty())
            fs::remove_all(folder_, ignored);
    }
    static bool isNeeded(const std::string& path) {
        return FilePattern(path).hasNumber() && isOneFile(path);
    }
    /// Makes it. Throws std::runtime_error.
    std::string of(const std::string& file) {
        std::string folder = (fs::temp_directory_path() / "nimbra_XXXXXX").string();
        if (!::mkdtemp(folder.data()))
            throw std::runtime_error(
                fmt::format("'{}': the name looks like a frame pattern, and no folder can be made "
                            "for a link with another one; rename the file",
                            file));
        folder_ = folder;
        const fs::path link = folder_ / ("cache" + fs::path(file).extension().string());
        fs::create_symlink(file, link);
        return link.string();
    }

private:
    fs::path folder_;
};

std::string stemOf(const std::string& pattern) {
    std::string stem = fs::path(pattern).stem().string();
    while (!stem.empty() && (stem.back() == '#' || stem.back() == '_' || stem.back() == '.'))
        stem.pop_back();
    return stem.empty() ? "view" : plainName(stem);
}

/// Where the cache stands at a frame of the render; nothing for a time without a cache frame.
std::int64_t cacheFrame(const TimeOptions& o, host::FrameNumber frame) {
    constexpr int kTicks = 1000;
    const std::int64_t ticks =
        timeBend(o.applied({}), ticksOfTime(frame.time(), kTicks), kTicks, true);
    return ticks / kTicks;
}

/// The whole frame of the render at which the cache comes nearest to one of its own.
host::FrameNumber frameShowing(const TimeOptions& o, std::int64_t cacheFrame) {
    const TimeBend bend = o.applied({});
    const double frame =
        (static_cast<double>(cacheFrame) - bend.readOffset) / static_cast<double>(bend.playSpeed);
    constexpr double kFarthest = 1e9;
    return std::llround(std::clamp(frame, -kFarthest, kFarthest));
}

/// Some files of a sequence, the nearest to a frame first, at last the one in the middle.
std::vector<std::string> filesNearest(const FileSequence& sequence, std::int64_t wanted) {
    constexpr std::size_t kMost = 5;
    std::vector<std::size_t> order(sequence.frames.size());
    std::iota(order.begin(), order.end(), std::size_t(0));
    const auto distance = [&](std::size_t i) { return std::abs(sequence.frames[i] - wanted); };
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return distance(a) < distance(b); });
    std::vector<std::string> files;
    for (std::size_t i = 0; i < std::min(order.size(), kMost); ++i)
        files.push_back(sequence.files[order[i]]);
    // Where all around is empty yet.
    if (order.size() > kMost)
        files.push_back(sequence.files[order.size() / 2]);
    return files;
}

// Of a sequence without a wish, the frame in the middle: it shows most of what goes on.
ViewInput findInput(const ViewCommand& o) {
    const std::vector<std::string> extensions = {".kol", ".vdb", ".f3d"};
    if (const std::string problem = wrongExtension(o.input, extensions);
        isOneFile(o.input) && !problem.empty())
        throw std::runtime_error(fmt::format("{}: {}", o.input, problem));
    if (isOneFile(o.input) && o.render.frames.empty() && !o.render.time.any())
        return {absolutePath(o.input), {o.input}, stemOf(o.input), {1}};
    const auto sequence = findSequence(o.input, extensions);
    if (!sequence)
        throw std::runtime_error(
            fmt::format("{}; give a .kol, .vdb or .f3d file, a folder with some, or a pattern like "
                        "smoke_####.vdb",
                        whyNoSequence(o.input, extensions)));
    ViewInput in{absolutePath(sequence->pattern),
                 {sequence->pattern},
                 stemOf(sequence->pattern),
                 {1},
                 othersText(o.input, *sequence, "is shown")};
    if (sequence->frames.empty())
        return in;
    if (o.render.frames.empty())
        in.frames = {frameShowing(o.render.time, sequence->frames[sequence->frames.size() / 2])};
    else
        in.frames = parseFrameList(o.render.frames).frames;
    const std::int64_t wanted = cacheFrame(o.render.time, in.frames[in.frames.size() / 2]);
    in.samples = filesNearest(*sequence, wanted);
    return in;
}

int upAxisNamed(const std::string& name) {
    return name.empty() ? -1 : name == "x" ? 0 : name == "y" ? 1 : 2;
}

bool writeSceneFile(const std::string& path, const std::string& text, Console& console) {
    std::string error;
    if (host::prepareOutputFolder(path, error) && host::writeFileAtomically(path, text, error)) {
        console.note("wrote " + path);
        return true;
    }
    console.log().error(error);
    return false;
}

ViewScene makeScene(const ViewCommand& o, const ViewInput& in, const ViewLook& look) {
    ViewScene scene;
    scene.cachePath = in.path;
    const auto [first, last] = std::minmax_element(in.frames.begin(), in.frames.end());
    scene.firstFrame = static_cast<int>(first->whole());
    scene.lastFrame = static_cast<int>(last->whole());
    scene.time = o.render.time;
    scene.look = look;
    const PictureSize size =
        o.render.size.empty() ? PictureSize{960, 540} : parseSize(o.render.size, {960, 540});
    scene.width = size.width;
    scene.height = size.height;
    scene.azimuth = o.azimuth;
    scene.elevation = o.elevation;
    scene.ground = o.ground;
    return scene;
}

/// The grids of a .kol file; where it holds particles alone, they are the problem.
std::vector<GridSummary> readKolSummaries(const std::string& path, std::string& problem) {
    const CacheFrame frame = loadCacheFrame(path, "", false);
    if (!frame.data) {
        // The caller names the file.
        problem = frame.problem.substr(std::min(path.size() + 2, frame.problem.size()));
        return {};
    }
    std::vector<GridSummary> grids = summarize(*frame.data);
    if (grids.empty())
        problem =
            frame.data->groups.size > 0 ? "holds particles and no grids to show" : "holds no grids";
    return grids;
}

bool isKol(const std::string& path) {
    return fs::path(path).extension() == ".kol";
}

/// What a file holds; nothing with a problem.
std::vector<GridSummary> readSummaries(const std::string& path, UpConvention& up,
                                       std::string& problem) {
    up = {};
    if (isKol(path)) {
        // Its grids without a file stand on z, too.
        up.format = 2;
        return readKolSummaries(path, problem);
    }
    std::vector<GridSummary> grids;
    bool readable = false;
    if (fs::path(path).extension() == ".f3d") {
        const F3dFileInfo file = readF3dInfo(path);
        grids = summarize(file);
        readable = file.readable;
        problem = file.problem;
    } else {
        const VdbFileInfo file = readVdbInfo(path);
        grids = summarize(file);
        up = upConventionOf(file);
        readable = file.readable;
        problem = file.problem;
    }
    if (readable || !grids.empty())
        problem.clear();
    return grids;
}

/// The file that decides the look, and its look.
struct Sample {
    std::string file;
    ViewLook look;
};

/// Of the first file that has something to show; nothing, with the reasons said, for none. A frame
/// in front of the first smoke is no reason for a word as long as others have some.
std::optional<Sample> chooseSample(const std::vector<std::string>& files, const ViewWishes& wishes,
                                   Console& console) {
    std::vector<std::string> problems, empty;
    for (const std::string& file : files) {
        std::string problem;
        UpConvention up;
        const std::vector<GridSummary> grids = readSummaries(file, up, problem);
        if (!problem.empty()) {
            problems.push_back(fmt::format("{}: {}", file, problem));
            continue;
        }
        const ViewLook look = chooseLook(grids, wishes, up);
        if (look.subject == Subject::Nothing) {
            empty.push_back(fmt::format("{}: {}", file, look.explanation));
            continue;
        }
        for (const std::string& text : problems)
            console.log().warning(text);
        return Sample{file, look};
    }
    problems.insert(problems.end(), empty.begin(), empty.end());
    for (const std::string& text : problems)
        console.log().error(text);
    return std::nullopt;
}

int showCache(ViewCommand& o, Console& console) {
    if (fileExtension(o.input) == "json")
        throw std::runtime_error(
            fmt::format("'{}' is a scene; 'nimbra render' makes pictures of it", o.input));
    ViewInput in = findInput(o);
    if (!in.others.empty())
        console.log().warning(in.others);
    PlainAlias alias;
    if (PlainAlias::isNeeded(in.path)) {
        if (!o.writeScene.empty()) {
            console.log().error(fmt::format(
                "'{}': a scene would take the name for a frame pattern; rename the file", o.input));
            return kExitUsage;
        }
        in.path = alias.of(in.path);
    }
    o.wishes.upAxis = upAxisNamed(o.up);
    const bool kol = isKol(in.samples.front());
    if (kol && !o.wishes.mapping.empty()) {
        console.log().warning(
            "--map is left aside: .kol files say themselves what their grids are");
        o.wishes.mapping.clear();
    }
    std::optional<Sample> sample = chooseSample(in.samples, o.wishes, console);
    if (!sample)
        return kExitInput;
    ViewLook& look = sample->look;
    if (kol)
        look.mapping.clear();
    console.note(fmt::format("{}: {}", sample->file, look.explanation));
    const std::string text = sceneText(makeScene(o, in, look));
    if (!o.writeScene.empty() && !writeSceneFile(o.writeScene, text, console))
        return kExitOutput;
    host::SceneDiagnostics faults;
    host::SceneDocument document = host::SceneDocument::parse(text, "view", faults);
    host::PluginRegistry registry(console.log());
    if (!loadPlugins(registry, o.render.module, console.log()))
        return kExitInput;
    RenderOptions render = o.render;
    render.size.clear();
    if (render.frames.empty())
        render.frames = in.frames.front().text();
    // They are in the scene.
    render.time = {};
    return renderDocument(document, render, in.stem + ".png", registry, console);
}

int runView(ViewCommand& o) {
    o.console.progress = *progressModeNamed(o.render.progress);
    Console console(o.console);
    if (!console.logFileProblem().empty()) {
        console.log().error(console.logFileProblem());
        return kExitOutput;
    }
    try {
        return showCache(o, console);
    } catch (const FrameRangeError& e) {
        console.log().error(e.what());
        return kExitUsage;
    } catch (const PictureSizeError& e) {
        console.log().error(e.what());
        return kExitUsage;
    } catch (const std::runtime_error& e) {
        console.log().error(e.what());
        return kExitInput;
    }
}

}  // namespace

void addViewCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<ViewCommand>();
    CLI::App* command = app.add_subcommand(
        "view", "Show a cache: camera, light, mapping and colours are chosen from what it holds");
    command
        ->add_option("cache", o->input,
                     "A .kol, .vdb or .f3d file, a folder, or a pattern like smoke_####.vdb")
        ->required();
    command
        ->add_option("--map", o->wishes.mapping,
                     "Channel mapping in place of the chosen one, like '2,density;1,heat;'")
        ->check(checkMapping)
        ->type_name("TEXT");
    command->add_option("--density", o->wishes.densityScale, "Thicker (>1) or thinner (<1) smoke")
        ->check(checkAboveZero);
    command->add_option("--fire", o->wishes.fireScale, "Brighter (>1) or darker (<1) fire")
        ->check(checkAboveZero);
    command->add_option("--up", o->up, "Which axis points up; chosen from the data if not given")
        ->check(CLI::IsMember({"x", "y", "z"}));
    command->add_option("--azimuth", o->azimuth, "Camera around the up axis, in degrees")
        ->check(checkBetween(-3600, 3600));
    command
        ->add_option("--elevation", o->elevation, "Camera above the horizon, in degrees, -89 to 89")
        ->check(checkBetween(-89, 89));
    command->add_flag("--ground", o->ground, "A floor that catches shadows");
    command->add_option("--write-scene", o->writeScene, "Write the scene too, to go on from there")
        ->type_name("FILE");
    addRenderOptions(*command, o->render);
    addTimeOptions(*command, o->render.time, "the cache");
    addConsoleOptions(*command, o->console);
    command->callback([o, &exitCode] { exitCode = runView(*o); });
}

}  // namespace nimbra::cli
