// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The developers' trace. It is silent unless somebody sets the statics below by hand; messages for
// users go to the host's progress object instead.
#pragma once

namespace NMBUtils {

/// The file that `logLine` appends to; empty: none.
extern char logFilePath[512];
/// Puts "[date|time] " before each line.
extern bool logTimestamps;
/// Repeats each line on standard output.
extern bool logEcho;

/// Appends to the log, whole lines from any thread. A format that begins with "#" also goes to the
/// debugger, with its "#". A null format is ignored.
void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Standard output.
void printLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The debugger's window; texts are cut to 4095 characters.
void debugOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Where the debugger's texts go: there is no such service here, so null (the start) drops them.
/// The sink may be called from any thread.
using DebugSink = void (*)(const char* text);
void setDebugSink(DebugSink sink);

}  // namespace NMBUtils
