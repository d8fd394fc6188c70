// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/host_log.h"

#include <cstdio>
#include <utility>

namespace nimbra::host {

const char* toString(LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return "error";
        case LogLevel::Warning:
            return "warning";
        case LogLevel::Info:
            return "info";
        case LogLevel::Debug:
            return "debug";
    }
    return "";
}

namespace {

std::string cleaned(std::string_view line) {
    std::string text(line);
    for (char& c : text)
        if (c != '\t' && (static_cast<unsigned char>(c) < 0x20 || c == 0x7f))
            c = '?';
    return text;
}

void writeToStandardError(LogLevel level, std::string_view line) {
    std::fprintf(stderr, "%s: %.*s\n", toString(level), static_cast<int>(line.size()), line.data());
}

}  // namespace

HostLog::HostLog(LogLevel limit, Sink sink)
    : limit_(limit), sink_(sink ? std::move(sink) : Sink(writeToStandardError)) {}

HostLog::~HostLog() {
    finish();
}

void HostLog::write(LogLevel level, std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    std::lock_guard lock(mutex_);
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (!line.empty())
            emit(level, cleaned(line));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
}

void HostLog::emit(LogLevel level, const std::string& line) {
    // Warnings that are all different must not fill the memory of a long render.
    constexpr std::size_t kMostRemembered = 10000;
    if (level == LogLevel::Warning && warnings_.size() < kMostRemembered) {
        Repeated& warning = warnings_[line];
        if (warning.lastFrame != frame_)
            ++frameWarningCount_;
        warning.lastFrame = frame_;
        if (++warning.count > 1)
            return;
        ++warningCount_;
    }
    if (level <= limit_)
        sink_(level, line);
}

void HostLog::setLimit(LogLevel limit) {
    std::lock_guard lock(mutex_);
    limit_ = limit;
}

int HostLog::warningCount() const {
    std::lock_guard lock(mutex_);
    return warningCount_;
}

void HostLog::startFrame() {
    std::lock_guard lock(mutex_);
    ++frame_;
    frameWarningCount_ = 0;
}

int HostLog::frameWarningCount() const {
    std::lock_guard lock(mutex_);
    return frameWarningCount_;
}

void HostLog::finish() {
    std::lock_guard lock(mutex_);
    if (limit_ >= LogLevel::Warning)
        for (const auto& [line, warning] : warnings_)
            if (warning.count > 1)
                sink_(LogLevel::Warning, line + " (" + std::to_string(warning.count) + " times)");
    warnings_.clear();
}

}  // namespace nimbra::host
