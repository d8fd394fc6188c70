// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra info: what cache files hold.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/cache_info.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "cli/render_options.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

struct InfoCommand {
    ConsoleOptions console;
    std::vector<std::string> inputs;
    bool json = false;
};

// Patterns and folders become their files; a name that is none of these stays, so that it is
// reported.
std::vector<std::string> expand(const std::string& input) {
    std::error_code error;
    const bool folder = fs::is_directory(input, error);
    if (!folder && (fs::exists(input, error) || !hasFramePattern(input)))
        return {input};
    const auto sequence = findSequence(input, {".vdb"});
    if (!sequence)
        return {input};
    std::vector<std::string> files;
    for (const std::int64_t frame : sequence->frames)
        files.push_back(fillFramePattern(sequence->pattern, frame));
    return files.empty() ? std::vector<std::string>{sequence->pattern} : files;
}

int runInfo(const InfoCommand& o) {
    Console console(o.console);
    int code = kExitDone;
    bool first = true;
    for (const std::string& input : o.inputs)
        for (const std::string& path : expand(input)) {
            const VdbFileInfo file = readVdbInfo(path);
            if (!file.readable) {
                console.log().error(fmt::format("{}: {}", path, file.problem));
                code = kExitInput;
                if (file.grids.empty() && !o.json)
                    continue;
            }
            if (o.json)
                std::cout << infoJson(file);
            else
                std::cout << (first ? "" : "\n") << infoText(file);
            first = false;
        }
    std::cout << std::flush;
    return code;
}

}  // namespace

void addInfoCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<InfoCommand>();
    CLI::App* command = app.add_subcommand("info", "Tell what cache files hold");
    command->add_option("files", o->inputs, ".vdb files, folders or patterns")->required();
    command->add_flag("--json", o->json, "One JSON object for each file");
    addConsoleOptions(*command, o->console);
    command->callback([o, &exitCode] { exitCode = runInfo(*o); });
}

}  // namespace nimbra::cli
