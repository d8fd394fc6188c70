// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/statistics_text.h"

#include <fmt/format.h>

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

namespace nimbra::cli {
namespace {

const char* statusWord(host::RenderStatus status) {
    switch (status) {
        case host::RenderStatus::Complete:
            return "complete";
        case host::RenderStatus::Aborted:
            return "aborted";
        default:
            return "failed";
    }
}

}  // namespace

std::string statisticsJson(const host::SessionResult& result) {
    using Json = nlohmann::ordered_json;
    Json frames = Json::array();
    for (const host::FrameReport& f : result.frames) {
        const host::FrameStatistics& s = f.statistics;
        frames.push_back(
            {{"frame", f.frame.isWhole() ? Json(f.frame.whole()) : Json(f.frame.time())},
             {"status", statusWord(f.status)},
             {"loadSeconds", s.loadSeconds},
             {"geometrySeconds", s.geometrySeconds},
             {"renderSeconds", s.renderSeconds},
             {"outputSeconds", s.outputSeconds},
             {"cameraSamples", s.cameraSamples},
             {"invalidSamples", s.invalidSamples},
             {"rays", s.rays},
             {"peakMemory", s.peakMemory}});
    }
    return Json({{"seconds", result.seconds}, {"frames", frames}}).dump(2) + "\n";
}

void printStatistics(const host::SessionResult& result, const std::string& file, Console& console) {
    if (!file.empty()) {
        std::ofstream out(file);
        if (!(out << statisticsJson(result) << std::flush))
            console.log().warning("statistics file '" + file + "' can't be written");
        return;
    }
    std::cout << fmt::format("{:>7} {:>9} {:>9} {:>9} {:>9} {:>13} {:>9} {:>9}\n", "frame",
                             "load s", "prepare s", "render s", "write s", "rays", "Mrays/s",
                             "peak MB");
    for (const host::FrameReport& f : result.frames) {
        const host::FrameStatistics& s = f.statistics;
        std::cout << fmt::format(
            "{:>7} {:>9.3f} {:>9.3f} {:>9.3f} {:>9.3f} {:>13} {:>9.3f} {:>9.1f}\n", f.frame.text(),
            s.loadSeconds, s.geometrySeconds, s.renderSeconds, s.outputSeconds, s.rays,
            s.renderSeconds > 0 ? double(s.rays) * 1e-6 / s.renderSeconds : 0.0,
            double(s.peakMemory) / 1048576);
    }
    std::cout << fmt::format("total {:.3f} s\n", result.seconds) << std::flush;
}

}  // namespace nimbra::cli
