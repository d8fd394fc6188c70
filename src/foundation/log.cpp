// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

namespace NMBUtils {

char logFilePath[512] = "";
bool logTimestamps = false;
bool logEcho = false;

namespace {

constexpr std::size_t kDebugBytes = 4096;

std::atomic<DebugSink> debugSink{nullptr};

void sendToDebugger(const char* text) {
    if (const DebugSink sink = debugSink.load())
        sink(text);
}

void formatForDebugger(const char* format, va_list args) {
    char text[kDebugBytes] = {};
    std::vsnprintf(text, sizeof text, format, args);
    sendToDebugger(text);
}

/// "[2026/Jan/7|09:05:00] " of the local clock.
std::string timestamp() {
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char date[32];
    char time[32];
    std::snprintf(date, sizeof date, "%i/%s/%i", local.tm_year + 1900, kMonths[local.tm_mon],
                  local.tm_mday);
    std::snprintf(time, sizeof time, "%02i:%02i:%02i", local.tm_hour, local.tm_min, local.tm_sec);
    char prefix[80];
    std::snprintf(prefix, sizeof prefix, "[%s|%s] ", date, time);
    return prefix;
}

void writeTo(std::FILE* file, const char* prefix, const char* format, va_list args) {
    std::fputs(prefix, file);
    va_list again;
    va_copy(again, args);
    std::vfprintf(file, format, again);
    va_end(again);
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

void logLine(const char* format, ...) {
    if (!format)
        return;
    // Never destroyed: lines come until the very end of the process.
    static std::mutex* const mutex = new std::mutex;
    const std::lock_guard lock(*mutex);
    const std::unique_ptr<std::FILE, CloseFile> file(logFilePath[0] ? std::fopen(logFilePath, "at")
                                                                    : nullptr);
    const std::string prefix = logTimestamps ? timestamp() : std::string();

    va_list args;
    va_start(args, format);
    if (format[0] == '#') {
        va_list again;
        va_copy(again, args);
        formatForDebugger(format, again);
        va_end(again);
        ++format;
    }
    if (file)
        writeTo(file.get(), prefix.c_str(), format, args);
    if (logEcho)
        writeTo(stdout, prefix.c_str(), format, args);
    va_end(args);
}

void printLine(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stdout, format, args);
    va_end(args);
}

void debugOut(const char* format, ...) {
    va_list args;
    va_start(args, format);
    formatForDebugger(format, args);
    va_end(args);
}

void setDebugSink(DebugSink sink) {
    debugSink.store(sink);
}

}  // namespace NMBUtils
