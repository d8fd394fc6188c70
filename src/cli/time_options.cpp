// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/time_options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>

namespace nimbra::cli {
namespace {

constexpr const char* kCacheType = "NmbShaderCache";

template <class Number>
bool readNumber(const std::string& text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

std::string checkSpeed(const std::string& text) {
    float speed = 0;
    if (readNumber(text, speed) && std::isfinite(speed) && speed != 0)
        return "";
    return fmt::format(
        "found '{}', allowed is a number of cache frames in a frame, like 0.25; not 0", text);
}

std::string checkOffset(const std::string& text) {
    int offset = 0;
    constexpr int kMost = 1'000'000'000;
    if (readNumber(text, offset) && std::abs(offset) <= kMost)
        return "";
    return fmt::format("found '{}', allowed is a whole frame number, like 31", text);
}

/// Blend methods that can be chosen, by their numbers.
const std::vector<std::string>& blendMethods() {
    static const std::vector<std::string> kNames = {"interpolation", "velocity"};
    return kNames;
}

std::string checkBlend(const std::string& text) {
    const auto& names = blendMethods();
    if (std::find(names.begin(), names.end(), text) != names.end())
        return "";
    return fmt::format("found '{}', allowed are {}", text, fmt::join(names, " and "));
}

/// Whether speed and offset reach the frames of the cache, as far as its rows stand still.
bool playsBySpeed(const host::ScenePluginEntry& cache) {
    for (const auto& [key, where, value] : cache.parameters) {
        if (key == "anim_mode" && value.isNumber() && value.number == int(kPlayFrameIndex))
            return false;
        if (key == "time_tform" && ((value.kind == host::SceneNode::Kind::Bool && !value.boolean) ||
                                    (value.isNumber() && value.number == 0)))
            return false;
    }
    return true;
}

}  // namespace

TimeBend TimeOptions::applied(TimeBend bend) const {
    bend.playSpeed = speed.value_or(bend.playSpeed);
    bend.readOffset = offset.value_or(bend.readOffset);
    return bend;
}

const char* blendMethodName(int method) {
    const auto& names = blendMethods();
    return method >= 0 && method < static_cast<int>(names.size()) ? names[method].c_str() : "none";
}

std::vector<CLI::Option*> addTimeOptions(CLI::App& command, TimeOptions& o,
                                         const std::string& whose) {
    CLI::Option* const speed = command.add_option_function<std::string>(
        "--speed", [&o](const std::string& text) { readNumber(text, o.speed.emplace()); },
        fmt::format("Cache frames in a frame: 0.25 plays {} at quarter speed, -1 backwards",
                    whose));
    CLI::Option* const offset = command.add_option_function<std::string>(
        "--offset", [&o](const std::string& text) { readNumber(text, o.offset.emplace()); },
        fmt::format("Cache start: the frame of {} that plays first, at frame 0", whose));
    CLI::Option* const blend = command.add_option_function<std::string>(
        "--blend",
        [&o](const std::string& text) {
            const auto& names = blendMethods();
            o.blend = static_cast<int>(std::find(names.begin(), names.end(), text) - names.begin());
        },
        "Between two cache frames: interpolation fades, velocity moves what is there");
    speed->check(checkSpeed)->type_name("NUMBER");
    offset->check(checkOffset)->type_name("FRAME");
    blend->check(checkBlend)->type_name("METHOD");
    return {speed, offset, blend};
}

bool applyTimeOptions(host::SceneDocument& document, const TimeOptions& o, Console& console) {
    if (!o.any())
        return true;
    host::SceneDiagnostics ignored;
    std::string changed;
    const auto set = [&](const std::string& assignment) {
        document.setOverride(assignment, ignored);
        changed += (changed.empty() ? "" : ", ") + assignment;
    };
    for (const host::ScenePluginEntry& entry : document.plugins) {
        if (entry.type != kCacheType)
            continue;
        // Overrides add to the entry that is being looked at.
        const std::string name = entry.name;
        if (o.speed)
            set(fmt::format("{}.play_speed={}", name, *o.speed));
        if (o.offset)
            set(fmt::format("{}.read_offset={}", name, *o.offset));
        if (o.blend)
            set(fmt::format("{}.blend_method={}", name, *o.blend));
    }
    if (changed.empty()) {
        console.log().error("--speed, --offset and --blend need a cache: the scene has none");
        return false;
    }
    console.note("time: " + changed);
    return true;
}

void warnOfUnusedTime(const host::SceneDocument& document, const TimeOptions& o, Console& console) {
    if (!o.speed && !o.offset)
        return;
    for (const host::ScenePluginEntry& entry : document.plugins)
        if (entry.type == kCacheType && !playsBySpeed(entry))
            console.log().warning(fmt::format(
                "{}: --speed and --offset have no effect: anim_mode is 1 or time_tform off",
                entry.name));
}

}  // namespace nimbra::cli
