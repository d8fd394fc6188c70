// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/info_at.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>

#include "cache/file_patterns.h"
#include "cli/cache_frame.h"
#include "cli/cache_moment.h"
#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "cli/frame_range.h"
#include "cli/render_job.h"
#include "cli/scene_caches.h"
#include "host/scene.h"
#include "tessra/renderer.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

/// The caches of an input at a time.
using Playbacks = std::function<std::vector<CachePlayback>(double time)>;

class MomentTeller {
public:
    MomentTeller(const InfoAtOptions& o, Console& console)
        : o_(o), console_(console), times_(parseFrameList(o.times).frames) {}

    int run(const std::vector<std::string>& inputs) {
        for (const std::string& input : inputs)
            if (const int code =
                    fileExtension(input) == "json" ? tellScene(input) : tellSequence(input);
                code != kExitDone)
                code_ = code;
        std::cout << std::flush;
        return code_;
    }

private:
    int unusable(const std::string& text) {
        console_.log().error(text);
        return kExitInput;
    }

    int tellScene(const std::string& path) {
        host::SceneDiagnostics faults;
        host::SceneDocument document = host::SceneDocument::load(path, faults);
        if (!faults.empty())
            return unusable(faults);
        if (!applyTimeOptions(document, o_.time, console_))
            return kExitUsage;
        warnOfUnusedTime(document, o_.time, console_);
        host::PluginRegistry registry(console_.log());
        if (!loadPlugins(registry, o_.module, console_.log()))
            return kExitInput;
        const std::unique_ptr<host::Scene> scene = host::Scene::create(document, registry, faults);
        if (!scene)
            return unusable(faults);
        TessUtils::setSceneFolder(scene->folder());
        const std::vector<TessUtils::TessraPlugin*> caches = cachesOf(*scene);
        if (caches.empty())
            return unusable(path + ": the scene has no cache");
        return tell(path, [&](double time) {
            std::vector<CachePlayback> playbacks;
            playbacks.reserve(caches.size());
            for (TessUtils::TessraPlugin* cache : caches)
                playbacks.push_back(playbackOf(*cache, time));
            return playbacks;
        });
    }

    int unusable(const host::SceneDiagnostics& faults) {
        for (const host::SceneMessage& message : faults.messages())
            console_.log().error(message.str());
        return kExitInput;
    }

    int tellSequence(const std::string& input) {
        const std::vector<std::string> extensions = {".kol", ".vdb", ".f3d"};
        const auto sequence = findSequence(input, extensions);
        const std::string extension = "." + fileExtension(sequence ? sequence->pattern : input);
        std::error_code error;
        if (!fs::is_directory(input, error) &&
            std::find(extensions.begin(), extensions.end(), extension) == extensions.end())
            return unusable(fmt::format(
                "'{}': --at takes scenes (.json) and sequences of .kol, .vdb or .f3d files",
                input));
        if (!sequence)
            return unusable(whyNoSequence(input, extensions));
        if (const std::string others = othersText(input, *sequence, "is told"); !others.empty())
            console_.log().warning(others);
        CachePlayback playback;
        playback.path = fs::absolute(sequence->pattern).lexically_normal().string();
        playback.isFile = sequence->frames.empty();
        playback.bend = o_.time.applied({});
        playback.blendMethod = o_.time.blend.value_or(0);
        return tell(input, [&](double) { return std::vector<CachePlayback>{playback}; });
    }

    int tell(const std::string& input, const Playbacks& playbacks) {
        int code = kExitDone;
        for (const host::FrameNumber time : times_)
            for (const CachePlayback& playback : playbacks(time.time())) {
                const CacheMoment moment = momentOf(playback, time);
                if (moment.lacksFile())
                    code = kExitInput;
                std::cout << (first_ || o_.json ? "" : "\n")
                          << (o_.json ? momentJson(moment, input) : momentText(moment, input));
                first_ = false;
            }
        return code;
    }

    const InfoAtOptions& o_;
    Console& console_;
    const std::vector<host::FrameNumber> times_;
    int code_ = kExitDone;
    bool first_ = true;
};

}  // namespace

int tellMoments(const std::vector<std::string>& inputs, const InfoAtOptions& options,
                Console& console) try {
    return MomentTeller(options, console).run(inputs);
} catch (const FrameRangeError& e) {
    console.log().error(std::string("--at: ") + e.what());
    return kExitUsage;
}

}  // namespace nimbra::cli
