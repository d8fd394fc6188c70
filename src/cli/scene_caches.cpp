// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/scene_caches.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>

#include "cli/cache_moment.h"
#include "cli/frame_range.h"
#include "host/scene.h"
#include "tessra/renderer.h"

namespace nimbra::cli {

std::vector<TessUtils::TessraPlugin*> cachesOf(host::Scene& scene) {
    std::vector<TessUtils::TessraPlugin*> caches;
    for (TessUtils::TessraPlugin* plugin : scene.pluginsOf<TessUtils::TessraPlugin>())
        if (plugin->getPluginDesc()->getName() == std::string("NmbShaderCache"))
            caches.push_back(plugin);
    return caches;
}

std::vector<host::FrameNumber> warnOfMissingFiles(host::Scene& scene,
                                                  const std::vector<host::FrameNumber>& frames,
                                                  host::HostLog& log) {
    constexpr std::size_t kMostLookups = 10'000;
    const std::size_t count = std::min(frames.size(), kMostLookups);
    std::vector<host::FrameNumber> all;
    TessUtils::setSceneFolder(scene.folder());
    for (TessUtils::TessraPlugin* cache : cachesOf(scene)) {
        std::vector<host::FrameNumber> missing;
        std::optional<CacheMoment> first;
        for (std::size_t i = 0; i < count; ++i) {
            CacheMoment moment = momentOf(playbackOf(*cache, frames[i].time()), frames[i], false);
            // The nearest file serves all other frames, too.
            if (moment.playback.bend.loadNearest && moment.hasFile())
                break;
            if (moment.playback.path.empty() || moment.hasFile())
                continue;
            missing.push_back(frames[i]);
            if (!first)
                first = std::move(moment);
        }
        if (missing.empty())
            continue;
        const std::string why = first->frames.empty()
                                    ? "outside the play range of " + first->playback.path
                                    : "there is no file " + first->frames.front().file;
        log.warning(fmt::format("{}: nothing to see at frame{} {}: {}", first->playback.name,
                                missing.size() == 1 ? "" : "s", describeFrames(missing), why));
        all.insert(all.end(), missing.begin(), missing.end());
    }
    return all;
}

}  // namespace nimbra::cli
