// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/console.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>

#include "cli/terminal.h"

namespace nimbra::cli {
namespace {

constexpr std::string_view kMissing = "No simulation data for ";

host::LogLevel limitOf(const ConsoleOptions& o) {
    if (o.quiet)
        return host::LogLevel::Error;
    return o.verbose >= 2   ? host::LogLevel::Debug
           : o.verbose == 1 ? host::LogLevel::Info
                            : host::LogLevel::Warning;
}

}  // namespace

Console::Console(const ConsoleOptions& options)
    : options_(options),
      printer_(std::cerr, options.quiet ? ProgressMode::None : options.progress,
               isatty(STDERR_FILENO) != 0, terminalColumns(STDERR_FILENO)),
      log_(host::LogLevel::Debug,
           [this](host::LogLevel level, std::string_view text) { line(level, text); }) {
    if (options.logFile.empty())
        return;
    file_.open(options.logFile, std::ios::app);
    if (!file_)
        logFileProblem_ =
            fmt::format("log file '{}' can't be opened: {}", options.logFile, std::strerror(errno));
}

// The library reports a frame without data as mere information; a user must hear of it.
host::LogLevel Console::shownLevel(host::LogLevel level, std::string_view text) const {
    const std::size_t at = text.find(kMissing);
    const bool raised = level == host::LogLevel::Info && at != text.npos &&
                        !toldMissing_.contains(std::string(text.substr(at + kMissing.size())));
    return raised ? host::LogLevel::Warning : level;
}

void Console::expectMissing(const std::vector<host::FrameNumber>& frames) {
    const std::lock_guard lock(mutex_);
    for (const host::FrameNumber frame : frames)
        toldMissing_.insert(fmt::format("frame time {:g}!", frame.time()));
}

void Console::line(host::LogLevel level, std::string_view text) {
    const std::lock_guard lock(mutex_);
    level = shownLevel(level, text);
    if (level > limitOf(options_))
        return;
    printer_.interrupt();
    std::cerr << host::toString(level) << ": " << text << std::endl;
    if (file_) {
        const std::time_t now = std::time(nullptr);
        file_ << fmt::format("{:%Y-%m-%d %H:%M:%S} {}: {}\n", fmt::localtime(now),
                             host::toString(level), text)
              << std::flush;
    }
}

void Console::note(const std::string& text) {
    if (options_.quiet)
        return;
    const std::lock_guard lock(mutex_);
    printer_.interrupt();
    std::cerr << text << std::endl;
    if (file_)
        file_ << text << std::endl;
}

void Console::progress(const ProgressState& state) {
    const std::lock_guard lock(mutex_);
    printer_.update(state);
}

void Console::endProgress() {
    const std::lock_guard lock(mutex_);
    printer_.finish();
}

}  // namespace nimbra::cli
