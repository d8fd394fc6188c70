// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host's log: four levels, one line a message, repeated warnings said once.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace nimbra::host {

enum class LogLevel { Error, Warning, Info, Debug };

const char* toString(LogLevel level);

/// Receives lines from any thread, one at a time. A warning that was given before is counted
/// instead of being written again; `finish` says how often.
class HostLog {
public:
    /// Takes one line without its line feed.
    using Sink = std::function<void(LogLevel level, std::string_view line)>;

    /// Without a sink, lines go to standard error as "level: line".
    explicit HostLog(LogLevel limit = LogLevel::Info, Sink sink = {});
    ~HostLog();
    HostLog(const HostLog&) = delete;
    HostLog& operator=(const HostLog&) = delete;

    /// Writes the message if its level is within the limit; line feeds at its end are dropped, each
    /// of several lines becomes one message, other control characters turn into '?'.
    void write(LogLevel level, std::string_view text);
    void error(std::string_view text) { write(LogLevel::Error, text); }
    void warning(std::string_view text) { write(LogLevel::Warning, text); }
    void info(std::string_view text) { write(LogLevel::Info, text); }
    void debug(std::string_view text) { write(LogLevel::Debug, text); }

    void setLimit(LogLevel limit);
    /// Different warnings so far.
    int warningCount() const;
    /// Begins a new count for `frameWarningCount`.
    void startFrame();
    /// Different warnings since the last startFrame, those that were given before it as well.
    int frameWarningCount() const;
    /// Writes the counts of the repeated warnings and forgets them.
    void finish();

private:
    void emit(LogLevel level, const std::string& line);

    mutable std::mutex mutex_;
    LogLevel limit_;
    Sink sink_;
    struct Repeated {
        int count = 0;
        int lastFrame = -1;  // number of the startFrame before it was given last
    };
    std::map<std::string, Repeated, std::less<>> warnings_;
    int warningCount_ = 0;
    int frame_ = 0, frameWarningCount_ = 0;
};

}  // namespace nimbra::host
