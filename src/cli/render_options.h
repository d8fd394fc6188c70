// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Options that all commands which make pictures share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/time_options.h"

namespace CLI {
class App;
}

namespace nimbra::cli {

struct RenderOptions {
    std::string output;  // empty: made from the input's name
    std::string frames;  // grammar of frame_range.h, or "@slurm"; empty: the scene's own range
    std::string size;    // grammar of picture_size.h; empty: the scene's own
    std::string crop;
    TimeOptions time;
    std::optional<int> samples;
    std::optional<int> threads;
    std::optional<std::uint32_t> seed;
    std::vector<std::string> sets;  // "plugin.param=value"
    bool preview = false;
    bool keepGoing = false;
    bool skipExisting = false;
    bool deterministic = false;
    bool stats = false;
    std::string statsFile;
    std::string module;  // the plug-in library to load; empty: the one beside the program
    std::string progress = "auto";
};

/// Adds the options to a command. The struct must outlive the parsing.
void addRenderOptions(CLI::App& command, RenderOptions& options);
/// Adds -q, -v and --log-file.
void addConsoleOptions(CLI::App& command, ConsoleOptions& options);

/// Render threads to use: the option, else SLURM_CPUS_PER_TASK, else 0 (all allowed).
int chosenThreads(const RenderOptions& options);

}  // namespace nimbra::cli
