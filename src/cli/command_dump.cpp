// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra dump: values out of cache files.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/cache_frame.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/dump_arrays.h"
#include "cli/exit_codes.h"
#include "cli/frame_json.h"
#include "cli/json_text.h"
#include "cli/render_options.h"
#include "cli/usage.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

struct DumpCommand {
    ConsoleOptions console;
    std::vector<std::string> inputs;
    std::string mapping;
    bool json = false, headerOnly = false;
    std::vector<std::string> voxels;
    DumpArrays arrays;
};

struct Cell {
    int at[3];
};

/// Cells of "x,y,z" texts; throws std::invalid_argument.
std::vector<Cell> parseCells(const std::vector<std::string>& texts) {
    std::vector<Cell> cells;
    for (const std::string& text : texts) {
        Cell cell{};
        const char* at = text.data();
        const char* const end = at + text.size();
        for (int a = 0; a < 3; ++a) {
            const auto [rest, error] = std::from_chars(at, end, cell.at[a]);
            const bool separated = a < 2 ? rest != end && *rest == ',' : rest == end;
            if (error != std::errc() || !separated)
                throw std::invalid_argument(
                    fmt::format("--voxel '{}': three numbers are needed, like 10,20,30", text));
            at = rest + 1;
        }
        cells.push_back(cell);
    }
    return cells;
}

int printJson(const CacheFrame& frame, const DumpCommand& o, Console& console) {
    nlohmann::ordered_json out{{"file", fs::path(frame.path).filename().string()},
                               {"status", frame.status}};
    std::vector<int> tooLarge;
    if (frame.data)
        out["frame"] = frameJson(*frame.data, {o.headerOnly, o.arrays.mostVoxels}, tooLarge);
    std::cout << jsonText(out) << std::endl;
    if (tooLarge.empty())
        return kExitDone;
    console.log().error(beyondLimitText(frame, tooLarge.size(), o.arrays.mostVoxels));
    return kExitMemory;
}

int printCells(const CacheFrame& frame, const std::vector<Cell>& cells, const DumpCommand& o,
               Console& console) {
    NimbraFrameData& data = *frame.data;
    std::vector<int> channels = chosenChannels(data, o.arrays);
    // The one channel that takes memory for the whole grid even where that is a tree.
    if (!withinLimit(data, 1, o.arrays.mostVoxels))
        std::erase(channels, static_cast<int>(kSpeed));
    std::cout << frame.path << "\nx y z";
    for (const int c : channels)
        std::cout << " " << channelName(c);
    std::cout << "\n";
    int code = kExitDone;
    for (const Cell& cell : cells) {
        const auto* const n = data.gridSize;
        bool inside = true;
        for (int a = 0; a < 3; ++a)
            inside = inside && cell.at[a] >= 0 && cell.at[a] < n[a];
        if (!inside) {
            console.log().error(
                fmt::format("{}: cell {},{},{} lies outside the grid of {} x {} x {}", frame.path,
                            cell.at[0], cell.at[1], cell.at[2], n[0], n[1], n[2]));
            code = kExitUsage;
            continue;
        }
        std::cout << fmt::format("{} {} {}", cell.at[0], cell.at[1], cell.at[2]);
        for (const int c : channels) {
            float value = 0;
            if (data.readChannelCells(cell.at, c, 1, &value))
                std::cout << fmt::format(" {:.9g}", value);
            else
                std::cout << " -";
        }
        std::cout << "\n";
    }
    std::cout << std::flush;
    return code;
}

class Dump {
public:
    Dump(const DumpCommand& o, Console& console)
        : o_(o), console_(console), cells_(parseCells(o.voxels)), writer_(o.arrays, console) {}

    int run() {
        std::vector<CacheFile> files;
        bool isSequence = false;
        for (const std::string& input : o_.inputs) {
            const CacheFiles found = findCacheFiles(input, cacheExtensions());
            files.insert(files.end(), found.files.begin(), found.files.end());
            isSequence = isSequence || found.isSequence;
            tellOfFiles(found, input, console_.log());
            if (!found.problem.empty())
                worst_ = kExitInput;
        }
        if (!o_.arrays.output.empty()) {
            if (files.size() > 1 && !isSequence)
                throw std::invalid_argument("-o takes the values of one file or of one sequence");
            if (const int code = writer_.prepare(files, isSequence); code != kExitDone)
                return code;
        }
        for (const CacheFile& file : files) {
            const int code = dumpFile(file);
            if (code >= kExitInterrupted)
                return code;
            if (worst_ == kExitDone)
                worst_ = code;
        }
        return worst_;
    }

private:
    int dumpFile(const CacheFile& file) {
        const CacheFrame frame = loadCacheFrame(file.path, o_.mapping, o_.headerOnly);
        if (!frame.data)
            console_.log().error(frame.problem);
        else if (!frame.problem.empty())
            console_.log().warning(frame.problem);
        int code = frame.data ? kExitDone : kExitInput;
        if (o_.json)
            code = std::max(code, printJson(frame, o_, console_));
        else if (frame.data && !cells_.empty())
            code = printCells(frame, cells_, o_, console_);
        if (frame.data && !o_.arrays.output.empty() && code == kExitDone)
            code = writer_.write(frame, file.frame);
        return code;
    }

    const DumpCommand& o_;
    Console& console_;
    std::vector<Cell> cells_;
    ArrayWriter writer_;
    int worst_ = kExitDone;
};

int runDump(const DumpCommand& o) {
    Console console(o.console);
    if (!console.logFileProblem().empty()) {
        console.log().error(console.logFileProblem());
        return kExitOutput;
    }
    try {
        if (!o.json && o.voxels.empty() && o.arrays.output.empty())
            throw std::invalid_argument(
                "nothing to dump: give --json, --voxel X,Y,Z, or -o FILE.npy or FILE.ply");
        return Dump(o, console).run();
    } catch (const std::invalid_argument& e) {
        console.log().error(e.what());
        return kExitUsage;
    }
}

}  // namespace

void addDumpCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<DumpCommand>();
    CLI::App* command = app.add_subcommand("dump", "Take values out of cache files");
    command->add_option("files", o->inputs, ".kol, .vdb, .f3d and .prt files, folders or patterns")
        ->required();
    auto* json = command->add_flag("--json", o->json,
                                   "Header values, ranges, check sums and samples of all channels");
    command->add_flag("--header-only", o->headerOnly, "With --json: read no voxels and particles")
        ->needs(json);
    auto* voxel = command->add_option("--voxel", o->voxels,
                                      "Print the values of a cell, like 10,20,30; may be repeated");
    auto* output = command->add_option(
        "-o,--output", o->arrays.output,
        "Write values to FILE.npy, or particles to FILE.ply; the names of channels, groups and "
        "frames go before the extension where there are several");
    output->type_name("FILE");
    json->excludes(voxel)->excludes(output);
    command
        ->add_option("--channel", o->arrays.channels,
                     "Only this channel, by name or number; may be repeated")
        ->excludes(json);
    command->add_option("--group", o->arrays.group, "Particles of this group in place of voxels")
        ->excludes(json);
    command
        ->add_option("--map", o->mapping,
                     "Which grids of .vdb and .f3d files become which channels, like "
                     "'2,density;1,heat;'; known names otherwise")
        ->check(checkMapping);
    command
        ->add_option("--max-voxels", o->arrays.mostVoxels,
                     "Leave channels out that have more cells together")
        ->check(checkAboveZero)
        ->capture_default_str();
    addConsoleOptions(*command, o->console);
    command->callback([o, &exitCode] { exitCode = runDump(*o); });
}

}  // namespace nimbra::cli
