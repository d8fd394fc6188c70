// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/render_options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "cli/progress_printer.h"

namespace nimbra::cli {

void addRenderOptions(CLI::App& command, RenderOptions& o) {
    command
        .add_option("-o,--output", o.output,
                    "Picture to write: .exr or .png; '####' stands for the frame number")
        ->type_name("FILE");
    command
        .add_option("-f,--frames", o.frames,
                    "Frames: N, A-B, A-BxS (every S-th), A-ByS (all but those), A-B:S (coarse to "
                    "fine), joined by commas; 12.25 and 0-2x0.25 lie between frames; @slurm: this "
                    "array task's share")
        ->type_name("RANGE");
    command.add_option("--size", o.size, "Picture size: 960x540, or 50% of the scene's")
        ->type_name("WxH");
    command.add_option("--crop", o.crop, "Part to render: x0,y0,x1,y1 in pixels or %")
        ->type_name("BOX");
    command.add_option("-s,--samples", o.samples, "Camera rays a pixel")
        ->check(CLI::Range(1, 1 << 20));
    command.add_option("-t,--threads", o.threads, "Render threads; 0: all allowed processors")
        ->check(CLI::Range(0, 64));
    command.add_option("--seed", o.seed, "Seed of the random numbers");
    command
        .add_option("--set", o.sets,
                    "A parameter of the scene, like --set NmbShaderSim.rendstep=50")
        ->type_name("PLUGIN.PARAM=VALUE")
        ->allow_extra_args(false);
    command.add_flag("--preview", o.preview, "Half size, a quarter of the samples, larger steps");
    command.add_flag("--keep-going", o.keepGoing, "Go on with the next frame when one fails");
    command.add_flag("--skip-existing", o.skipExisting,
                     "Leave out frames whose picture is there and complete");
    command.add_flag("--deterministic", o.deterministic,
                     "No date, host, time or memory in the picture: the same input gives the same "
                     "bytes");
    command
        .add_option_function<std::string>(
            "--stats",
            [&o](const std::string& file) {
                o.stats = true;
                o.statsFile = file;
            },
            "Times, rays and memory at the end; with =FILE.json into a file")
        ->expected(0, 1)
        ->type_name("[=FILE]");
    command.add_option("--progress", o.progress, "auto, bar, plain, json, alf or none")
        ->check([](const std::string& name) {
            return progressModeNamed(name)
                       ? std::string()
                       : "'" + name + "' is none of auto, bar, plain, json, alf, none";
        });
    command.add_option("--module", o.module, "Plug-in library to load")->type_name("FILE");
}

void addConsoleOptions(CLI::App& command, ConsoleOptions& o) {
    command.add_flag("-q,--quiet", o.quiet, "Errors only");
    command.add_flag("-v,--verbose", o.verbose, "More messages; twice: all");
    command.add_option("--log-file", o.logFile, "Messages into this file too")->type_name("FILE");
}

int chosenThreads(const RenderOptions& options) {
    if (options.threads)
        return *options.threads;
    const char* slurm = std::getenv("SLURM_CPUS_PER_TASK");
    int n = 0;
    if (slurm && std::from_chars(slurm, slurm + std::strlen(slurm), n).ec == std::errc() && n > 0)
        return n < 64 ? n : 64;
    return 0;
}

}  // namespace nimbra::cli
