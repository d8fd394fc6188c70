// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra info: what cache files hold.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cache/file_patterns.h"
#include "cli/cache_frame.h"
#include "cli/cache_info.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/exit_codes.h"
#include "cli/frame_info.h"
#include "cli/info_at.h"
#include "cli/prt_info.h"
#include "cli/render_options.h"

namespace nimbra::cli {
namespace {

struct InfoCommand {
    ConsoleOptions console;
    std::vector<std::string> inputs;
    InfoAtOptions at;
    bool json = false, headerOnly = false;
};

/// What to print of a file, and what is wrong with it.
struct Answer {
    bool readable = false;
    std::string text, problem;
};

bool holdsSomething(const VdbFileInfo& file) {
    return !file.grids.empty();
}
bool holdsSomething(const F3dFileInfo& file) {
    return !file.layers.empty();
}
bool holdsSomething(const FrameInfo&) {
    return false;
}
bool holdsSomething(const PrtFileInfo& file) {
    return !file.channels.empty();
}

template <class FileInfo>
Answer describe(const FileInfo& file, bool json) {
    Answer answer;
    answer.readable = file.readable;
    answer.problem = file.problem;
    if (!file.readable && file.problem.empty())
        answer.problem = "can't be read";
    if (json)
        answer.text = infoJson(file);
    else if (file.readable || holdsSomething(file))
        answer.text = infoText(file);
    return answer;
}

Answer describeFile(const std::string& path, const InfoCommand& o) {
    const bool values = !o.headerOnly;
    const std::string extension = fileExtension(path);
    if (extension == "json")
        return {false, "", "is a scene; --at TIME tells what its caches show"};
    if (extension == "f3d")
        return describe(readF3dInfo(path, values), o.json);
    if (extension == "kol")
        return describe(readFrameInfo(path, values), o.json);
    if (extension == "prt")
        return describe(readPrtInfo(path, values), o.json);
    return describe(readVdbInfo(path, values), o.json);
}

class Info {
public:
    Info(const InfoCommand& o, Console& console) : o_(o), console_(console) {}

    int run() {
        int code = kExitDone;
        for (const std::string& input : o_.inputs) {
            const CacheFiles found = findCacheFiles(input, cacheExtensions());
            if (!found.problem.empty())
                code = kExitInput;
            tellOfFiles(found, input, console_.log());
            for (const CacheFile& file : found.files)
                if (!print(file.path))
                    code = kExitInput;
        }
        std::cout << std::flush;
        return code;
    }

private:
    bool print(const std::string& path) {
        const Answer answer = describeFile(path, o_);
        const std::string problem = fmt::format("{}: {}", path, answer.problem);
        if (!answer.readable)
            console_.log().error(problem);
        else if (!answer.problem.empty())
            console_.log().warning(problem);
        if (!answer.text.empty())
            std::cout << (first_ || o_.json ? "" : "\n") << answer.text;
        first_ = first_ && answer.text.empty();
        return answer.readable;
    }

    const InfoCommand& o_;
    Console& console_;
    bool first_ = true;
};

int runInfo(InfoCommand& o) {
    Console console(o.console);
    o.at.json = o.json;
    if (!o.at.times.empty())
        return tellMoments(o.inputs, o.at, console);
    return Info(o, console).run();
}

}  // namespace

void addInfoCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<InfoCommand>();
    CLI::App* command = app.add_subcommand("info", "Tell what cache files hold");
    command
        ->add_option("files", o->inputs,
                     ".kol, .vdb, .f3d and .prt files, folders or patterns; with --at scenes too")
        ->required();
    command->add_flag("--json", o->json, "One JSON object for each file or moment");
    CLI::Option* const headerOnly = command->add_flag("--header-only", o->headerOnly,
                                                      "Look at no values: quick for large files");
    CLI::Option* const at =
        command
            ->add_option("--at", o->at.times,
                         "Which files and which weights these frames of a scene or of a sequence "
                         "resolve to: 12.25, 0-2x0.25 and so on")
            ->type_name("TIME")
            ->excludes(headerOnly);
    for (CLI::Option* const option : addTimeOptions(*command, o->at.time, "the caches"))
        option->needs(at);
    command->add_option("--module", o->at.module, "Plug-in library to load")
        ->type_name("FILE")
        ->needs(at);
    addConsoleOptions(*command, o->console);
    command->callback([o, &exitCode] { exitCode = runInfo(*o); });
}

}  // namespace nimbra::cli
