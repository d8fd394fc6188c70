// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "cli/cache_frame.h"
#include "cli/cache_moment.h"
#include "cli/json_text.h"
#include "cli/time_options.h"

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;

const char* modeName(int mode) {
    switch (mode) {
        case kPlayLinear:
            return "linear";
        case kPlayFrameIndex:
            return "frame index";
        case kPlayLoop:
            return "loop";
        default:
            return "none";
    }
}

/// The name of a method, or its number where it has none.
std::string methodText(const CacheMoment& m) {
    const std::string name = blendMethodName(m.playback.blendMethod);
    return name == "none" ? fmt::format("method {}", m.playback.blendMethod) : name;
}

std::string bendText(const CachePlayback& p) {
    const TimeBend& b = p.bend;
    if (!p.bent)
        return "as it is (time_tform off)";
    if (b.mode == kPlayFrameIndex)
        return fmt::format("frame index {}", b.frameIndex);
    if (b.mode != kPlayLinear && b.mode != kPlayLoop)
        return fmt::format("as it is (anim_mode {})", b.mode);
    std::string text = fmt::format("{}, speed {}, cache start {}, play start {}", modeName(b.mode),
                                   b.playSpeed, b.readOffset, b.playAt);
    if (b.maxLength != 0)
        text += fmt::format(", play length {}", b.maxLength);
    if (b.mode == kPlayLoop && b.loopOverlap != 0)
        text += fmt::format(", loop overlap {}", b.loopOverlap);
    return text;
}

std::string fileText(const WantedFrame& f) {
    std::string note;
    if (!f.exists)
        note = f.found == f.frame ? "missing"
                                  : fmt::format("missing; the nearest is frame {}", f.found);
    else if (f.servesAll)
        note = "single file, serves all frames";
    else if (f.found != f.frame)
        note = fmt::format("frame {} is the nearest", f.found);
    return fmt::format("{}  {}{}", f.frame, f.file, note.empty() ? "" : "  (" + note + ")");
}

/// What comes out, in words.
std::string shownText(const CacheMoment& m) {
    if (m.outside)
        return "nothing: outside the play range, or of any number that a frame has";
    if (m.frames.empty())
        return m.mix.kind == FrameMix::kWhole
                   ? "an empty grid: cache_path is empty"
                   : "nothing: cache_path is empty, and empty grids are made for whole frames";
    const WantedFrame& first = m.frames.front();
    if (m.frames.size() == 1)
        return first.exists ? fmt::format("frame {}", first.frame) : "nothing";
    const WantedFrame& second = m.frames.back();
    if (!first.exists && !second.exists)
        return "nothing";
    if (!first.exists || !second.exists)
        return fmt::format("frame {} alone", first.exists ? first.frame : second.frame);
    const double share = 100.0 * m.mix.weight;
    if (m.mix.kind == FrameMix::kOverlap)
        return fmt::format("frame {} with {:.4g} % of frame {}, where the loop overlaps",
                           first.frame, share, second.frame);
    return fmt::format("{:.4g} % of frame {}, {:.4g} % of frame {}, by {}", 100 - share,
                       first.frame, share, second.frame, methodText(m));
}

Json frameJson(const WantedFrame& f) {
    Json out{{"frame", f.frame}, {"file", f.file}, {"exists", f.exists}};
    if (f.exists && !f.servesAll)
        out["found"] = f.found;
    return out;
}

Json blendJson(const CacheMoment& m) {
    if (m.mix.kind == FrameMix::kWhole || m.frames.size() < 2)
        return nullptr;
    const bool overlap = m.mix.kind == FrameMix::kOverlap;
    return {{"from", m.mix.first},
            {"to", m.mix.second},
            {"weight", floatJson(m.mix.weight)},
            {"method", overlap ? "interpolation" : methodText(m)},
            {"loopOverlap", overlap}};
}

Json bendJson(const CachePlayback& p) {
    const TimeBend& b = p.bend;
    return {{"mode", p.bent ? modeName(b.mode) : "none"},
            {"speed", floatJson(b.playSpeed)},
            {"cacheStart", b.readOffset},
            {"playStart", b.playAt},
            {"playLength", b.maxLength},
            {"loopOverlap", b.loopOverlap},
            {"frameIndex", floatJson(b.frameIndex)},
            {"loadNearest", b.loadNearest}};
}

}  // namespace

std::string momentText(const CacheMoment& m, const std::string& input) {
    const CachePlayback& p = m.playback;
    std::string text = p.name.empty() ? p.path : fmt::format("{}, {}: {}", input, p.name, p.path);
    text += "\n";
    const std::string frame =
        m.outside ? "none" : fmt::format("{} ({} ticks)", m.cacheFrame(), m.ticks);
    text += fmt::format("  time     {} -> cache frame {}\n", m.time.text(), frame);
    text += fmt::format("  played   {}{}\n", bendText(p), p.bend.loadNearest ? ", nearest" : "");
    for (const WantedFrame& f : m.frames)
        text += fmt::format("  file     {}\n", fileText(f));
    text += fmt::format("  shows    {}\n", shownText(m));
    for (const auto& s : p.smoothing)
        text += fmt::format("  smooth   {}: threshold {}, similarity {}, randomize {}\n",
                            channelName(s.channel), s.threshold, s.similarity, s.randomize);
    return text;
}

std::string momentJson(const CacheMoment& m, const std::string& input) {
    const CachePlayback& p = m.playback;
    Json out{{"input", input}, {"time", doubleJson(m.time.time())}};
    if (!p.name.empty())
        out["cache"] = p.name;
    out["path"] = p.path;
    out["timeBend"] = bendJson(p);
    out["ticksPerFrame"] = p.ticksPerFrame;
    out["ticks"] = m.outside ? Json(nullptr) : Json(m.ticks);
    out["cacheFrame"] = m.outside ? Json(nullptr) : doubleJson(m.cacheFrame());
    out["files"] = Json::array();
    for (const WantedFrame& f : m.frames)
        out["files"].push_back(frameJson(f));
    out["blend"] = blendJson(m);
    out["shows"] = shownText(m);
    out["smoothing"] = Json::array();
    for (const auto& s : p.smoothing)
        out["smoothing"].push_back({{"channel", channelName(s.channel)},
                                    {"threshold", floatJson(s.threshold)},
                                    {"similarity", floatJson(s.similarity)},
                                    {"randomize", floatJson(s.randomize)}});
    return jsonText(out) + "\n";
}

}  // namespace nimbra::cli
