// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Options for the time of caches: how fast they play, from which frame on, and how moments between
// two frames are made.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cache/time_bend.h"
#include "cli/console.h"
#include "host/scene_file.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace nimbra::cli {

/// What isn't given stays as it is.
struct TimeOptions {
    std::optional<float> speed;  // play_speed; neither 0 nor infinite
    std::optional<int> offset;   // read_offset
    std::optional<int> blend;    // blend_method

    bool any() const { return speed || offset || blend; }
    /// The time bend with the options in it.
    TimeBend applied(TimeBend bend) const;
};

/// Adds --speed, --offset and --blend to a command. `whose`: what the options apply to, for the
/// help. Answers the options. The struct must outlive the parsing.
std::vector<CLI::Option*> addTimeOptions(CLI::App& command, TimeOptions& options,
                                         const std::string& whose);

/// Sets the rows of every cache of the scene and says which. False with a line in the log for a
/// scene without any cache.
bool applyTimeOptions(host::SceneDocument& document, const TimeOptions& options, Console& console);

/// Warns of caches whose mode of playback leaves speed and offset unused.
void warnOfUnusedTime(const host::SceneDocument& document, const TimeOptions& options,
                      Console& console);

/// "interpolation" or "velocity".
const char* blendMethodName(int method);

}  // namespace nimbra::cli
