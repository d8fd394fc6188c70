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
    const auto sequence = findSequence(input, {".vdb", ".f3d"});
    if (!sequence)
        return {input};
    std::vector<std::string> files;
    for (const std::int64_t frame : sequence->frames)
        files.push_back(fillFramePattern(sequence->pattern, frame));
    return files.empty() ? std::vector<std::string>{sequence->pattern} : files;
}

/// What to print of a file, and what is wrong with it.
struct Answer {
    std::string text, problem;
};

bool holdsSomething(const VdbFileInfo& file) {
    return !file.grids.empty();
}
bool holdsSomething(const F3dFileInfo& file) {
    return !file.layers.empty();
}

template <class FileInfo>
Answer describe(const FileInfo& file, bool json) {
    Answer answer;
    if (!file.readable)
        answer.problem = file.problem.empty() ? "can't be read" : file.problem;
    if (json)
        answer.text = infoJson(file);
    else if (file.readable || holdsSomething(file))
        answer.text = infoText(file);
    return answer;
}

int runInfo(const InfoCommand& o) {
    Console console(o.console);
    int code = kExitDone;
    bool first = true;
    for (const std::string& input : o.inputs)
        for (const std::string& path : expand(input)) {
            const Answer answer = fs::path(path).extension() == ".f3d"
                                      ? describe(readF3dInfo(path), o.json)
                                      : describe(readVdbInfo(path), o.json);
            if (!answer.problem.empty()) {
                console.log().error(fmt::format("{}: {}", path, answer.problem));
                code = kExitInput;
            }
            if (answer.text.empty())
                continue;
            std::cout << (first || o.json ? "" : "\n") << answer.text;
            first = false;
        }
    std::cout << std::flush;
    return code;
}

}  // namespace

void addInfoCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<InfoCommand>();
    CLI::App* command = app.add_subcommand("info", "Tell what cache files hold");
    command->add_option("files", o->inputs, ".vdb or .f3d files, folders or patterns")->required();
    command->add_flag("--json", o->json, "One JSON object for each file");
    addConsoleOptions(*command, o->console);
    command->callback([o, &exitCode] { exitCode = runInfo(*o); });
}

}  // namespace nimbra::cli
