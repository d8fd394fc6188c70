// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Standard error of the program: log lines and the progress display share it without tearing each
// other, and log lines go to a file too where the user wants that.
#pragma once

#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "cli/progress_printer.h"
#include "host/frame_number.h"
#include "host/host_log.h"

namespace nimbra::cli {

struct ConsoleOptions {
    bool quiet = false;   // errors only, no progress
    int verbose = 0;      // 1: information of plug-ins, 2: debug lines
    std::string logFile;  // empty: none
    ProgressMode progress = ProgressMode::Auto;
};

/// Lives as long as anything logs. Log lines may come from any thread.
class Console {
public:
    /// A log file that can't be opened: `logFileProblem` says so, all else works.
    explicit Console(const ConsoleOptions& options);

    host::HostLog& log() { return log_; }
    /// Something the user should see unless quiet, with no level in front.
    void note(const std::string& line);
    /// Frames of which the user already knows that a cache has nothing for them.
    void expectMissing(const std::vector<host::FrameNumber>& frames);
    void progress(const ProgressState& state);
    void endProgress();
    const std::string& logFileProblem() const { return logFileProblem_; }

private:
    void line(host::LogLevel level, std::string_view text);
    host::LogLevel shownLevel(host::LogLevel level, std::string_view text) const;

    ConsoleOptions options_;
    std::recursive_mutex mutex_;
    ProgressPrinter printer_;
    std::set<std::string, std::less<>> toldMissing_;
    std::ofstream file_;
    std::string logFileProblem_;
    host::HostLog log_;
};

}  // namespace nimbra::cli
