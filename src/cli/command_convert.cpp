// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra convert: caches from one format to another.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "cache/vdb_tree.h"
#include "cli/cache_frame.h"
#include "cli/cache_info.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/convert_frame.h"
#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "cli/frame_range.h"
#include "cli/render_options.h"
#include "cli/usage.h"
#include "cli/whole_mapping.h"
#include "host/atomic_file.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

struct ConvertCommand {
    ConsoleOptions console;
    std::string input, output, frames, mapping;
    KolPacking packing;
};

/// A file to convert and the name of what becomes of it.
struct Conversion {
    std::string from, to;
    std::int64_t frame = 0;
};

class Converter {
public:
    Converter(const ConvertCommand& o, Console& console)
        : o_(o), console_(console), signals_(abort_) {}

    int run() {
        toKol_ = fs::path(o_.output).extension() == ".kol";
        if (!toKol_ && fs::path(o_.output).extension() != ".vdb")
            throw std::invalid_argument(
                fmt::format("'{}': the name has to end in .kol or .vdb", o_.output));
        const std::vector<Conversion> work = plan();
        const std::size_t wanted = work.size() + failed_.size();
        if (work.empty())
            return summarize(wanted);
        std::string error;
        if (!host::prepareOutputFolder(o_.output, error)) {
            console_.log().error(error);
            return kExitOutput;
        }
        std::vector<std::string> leftOut;
        mapping_ = o_.mapping.empty() ? wholeMappingText(inputsOf(work), leftOut) : o_.mapping;
        if (!leftOut.empty())
            console_.log().warning(fmt::format("{}: left out, since no channel stands for them: {}",
                                               o_.input, fmt::join(leftOut, ", ")));
        for (const Conversion& c : work) {
            const int code = convert(c);
            if (code >= kExitInterrupted || code == kExitOutput)
                return code;
            if (code != kExitDone)
                failed_.push_back({c.frame, code});
        }
        return summarize(wanted);
    }

private:
    std::vector<Conversion> plan() {
        CacheFiles found = findCacheFiles(o_.input, cacheExtensions());
        std::vector<std::int64_t> frames;
        for (const CacheFile& file : found.files)
            frames.push_back(file.frame);
        if (!o_.frames.empty()) {
            frames = parseFrameRange(o_.frames);
            found.missing.clear();
        }
        tellOfFiles(found, o_.input, console_.log());
        if (!found.problem.empty()) {
            failed_.push_back({0, kExitInput});
            return {};
        }
        if (!o_.frames.empty() && !found.isSequence)
            throw std::invalid_argument("--frames takes a sequence: give a pattern or a folder");
        std::vector<Conversion> work;
        for (const std::int64_t frame : frames) {
            const auto at = std::find_if(found.files.begin(), found.files.end(),
                                         [&](const CacheFile& f) { return f.frame == frame; });
            if (at == found.files.end()) {
                console_.log().error(
                    fmt::format("{}: there is no file of frame {}", o_.input, frame));
                failed_.push_back({frame, kExitInput});
                continue;
            }
            // A sequence keeps its numbers even if one frame alone is taken from it.
            work.push_back({at->path, cacheOutputName(o_.output, frame, found.isSequence), frame});
            std::error_code ignored;
            if (fs::equivalent(work.back().from, work.back().to, ignored))
                throw std::invalid_argument(work.back().to + " would be written onto itself");
        }
        return work;
    }

    static std::vector<std::string> inputsOf(const std::vector<Conversion>& work) {
        std::vector<std::string> files;
        files.reserve(work.size());
        for (const Conversion& c : work)
            files.push_back(c.from);
        return files;
    }

    /// Voxels are held once as they were, once as integers and once as they are read back.
    bool fitsMemory(const NimbraFrameData& frame) {
        constexpr double kCopies = 4, kGigabyte = 1 << 30;
        const double needed =
            kCopies * sizeof(float) *
            static_cast<double>(std::max<std::int64_t>(voxelCount(frame.gridSize), 0));
        const auto limit = static_cast<double>(memoryOfProcess());
        if (storedChannels(frame).empty() || needed <= limit)
            return true;
        console_.log().error(fmt::format(
            "a grid of {} x {} x {} cells needs {:.1f} GB, limit {:.1f} GB", frame.gridSize[0],
            frame.gridSize[1], frame.gridSize[2], needed / kGigabyte, limit / kGigabyte));
        return false;
    }

    int convert(const Conversion& c) {
        CacheFrame frame = loadCacheFrame(c.from, mapping_, false);
        if (!frame.data) {
            console_.log().error(frame.problem);
            return kExitInput;
        }
        if (!frame.problem.empty())
            console_.log().warning(frame.problem);
        if (abort_.requested())
            return abortCode();
        if (!fitsMemory(*frame.data))
            return kExitMemory;
        ConvertReport report;
        std::string bytes, error;
        switch (toKol_ ? packKol(*frame.data, o_.packing, abort_, bytes, report)
                       : packVdb(*frame.data, abort_, bytes, report, error)) {
            case ConvertResult::Aborted:
                return abortCode();
            case ConvertResult::NoMemory:
                console_.log().error(c.from + ": there isn't enough memory");
                return kExitMemory;
            case ConvertResult::Failed:
                console_.log().error(c.from + ": " + error);
                return kExitFrameFailed;
            case ConvertResult::Done:
                break;
        }
        if (abort_.requested())
            return abortCode();
        if (!host::writeFileAtomically(c.to, bytes, error)) {
            console_.log().error(error);
            return kExitOutput;
        }
        print(c, report);
        return kExitDone;
    }

    void print(const Conversion& c, const ConvertReport& report) {
        std::error_code ignored;
        const std::uintmax_t before = fs::file_size(c.from, ignored);
        const std::uintmax_t after = fs::file_size(c.to, ignored);
        std::cout << fmt::format("{} -> {}: {} -> {}\n", c.from, c.to, sizeText(before),
                                 sizeText(after));
        for (const PackedChannelReport& r : report.channels) {
            std::cout << fmt::format("  {:<12}", r.name);
            if (toKol_)
                std::cout << fmt::format(" {:>9}, ", sizeText(r.bytes));
            std::cout << fmt::format(" largest error {:.3g}", r.largestError);
            if (r.range > 0 && r.largestError > 0)
                std::cout << fmt::format(" ({:.2g} % of the range)",
                                         100 * r.largestError / r.range);
            std::cout << "\n";
            if (r.notFinite > 0)
                console_.log().warning(
                    fmt::format("{}: channel '{}': {} values that aren't finite became 0", c.to,
                                r.name, r.notFinite));
        }
        std::cout << std::flush;
        for (const std::string& text : report.leftOut)
            console_.log().warning(fmt::format("{}: left out: {}", c.to, text));
    }

    int abortCode() const {
        return abort_.reason() == SIGTERM ? kExitTerminated : kExitInterrupted;
    }

    int summarize(std::size_t wanted) {
        if (failed_.empty())
            return kExitDone;
        if (wanted == 1)
            return failed_.front().second;
        std::vector<host::FrameNumber> frames;
        for (const auto& [frame, code] : failed_)
            frames.push_back(frame);
        console_.log().error("failed frames: " + describeFrames(frames));
        return kExitFrameFailed;
    }

    const ConvertCommand& o_;
    Console& console_;
    host::AbortFlag abort_;
    host::SignalAbort signals_;
    bool toKol_ = true;
    std::string mapping_;
    std::vector<std::pair<std::int64_t, int>> failed_;
};

int runConvert(const ConvertCommand& o) {
    Console console(o.console);
    if (!console.logFileProblem().empty()) {
        console.log().error(console.logFileProblem());
        return kExitOutput;
    }
    try {
        return Converter(o, console).run();
    } catch (const std::invalid_argument& e) {
        console.log().error(e.what());
    } catch (const FrameRangeError& e) {
        console.log().error(e.what());
    }
    return kExitUsage;
}

}  // namespace

void addConvertCommand(CLI::App& app, int& exitCode) {
    auto o = std::make_shared<ConvertCommand>();
    CLI::App* command = app.add_subcommand("convert", "Turn caches into .kol or .vdb files");
    command
        ->add_option("input", o->input,
                     "A .kol, .vdb, .f3d or .prt file, a folder, or a pattern like smoke_####.vdb")
        ->required();
    command
        ->add_option("output", o->output,
                     "The .kol or .vdb file; of a sequence a pattern, or '.####' goes before the "
                     "extension")
        ->required();
    auto* bits = command->add_option(
        "--bits", o->packing.bits,
        "Values in .kol files: 2^BITS steps over the range of a channel; 20: exact floats");
    bits->check(CLI::Range(1, 20))->capture_default_str();
    auto* step = command
                     ->add_option("--step", o->packing.step,
                                  "Values in .kol files: steps of this size in place of --bits")
                     ->check(checkAboveZero)
                     ->excludes(bits);
    command->add_option("--frames", o->frames, "Only these frames, like 1-20x2");
    command
        ->add_option("--map", o->mapping,
                     "Which grids of .vdb and .f3d files become which channels, like "
                     "'2,density;10,flame;'; known names otherwise")
        ->check(checkMapping);
    addConsoleOptions(*command, o->console);
    command->callback([o, bits, step, &exitCode] {
        const bool packed = bits->count() > 0 || step->count() > 0;
        if (packed && fs::path(o->output).extension() == ".vdb")
            throw CLI::ValidationError("--bits, --step", "go with .kol files; .vdb keeps floats");
        exitCode = runConvert(*o);
    });
}

}  // namespace nimbra::cli
