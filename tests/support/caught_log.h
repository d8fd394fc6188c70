// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Catches what the library tells its developers, for a scope.
#pragma once

#include <cstdio>
#include <string>

#include "foundation/log.h"
#include "support/temp_folder.h"

namespace nimbra::test {

/// The trace.
class CaughtLog {
public:
    CaughtLog() {
        std::snprintf(NMBUtils::logFilePath, sizeof NMBUtils::logFilePath, "%s",
                      (folder_ / "log.txt").c_str());
    }
    ~CaughtLog() { NMBUtils::logFilePath[0] = 0; }
    CaughtLog(const CaughtLog&) = delete;
    CaughtLog& operator=(const CaughtLog&) = delete;

    /// What was logged since the last take.
    std::string take() {
        const std::string text = readFile(folder_ / "log.txt");
        folder_.write("log.txt", "");
        return text;
    }

private:
    TempFolder folder_;
};

/// What a debugger is told.
class DebuggerTexts {
public:
    DebuggerTexts() {
        text().clear();
        NMBUtils::setDebugSink([](const char* line) { text() += line; });
    }
    ~DebuggerTexts() { NMBUtils::setDebugSink(nullptr); }
    DebuggerTexts(const DebuggerTexts&) = delete;
    DebuggerTexts& operator=(const DebuggerTexts&) = delete;

    static std::string& text() {
        static std::string gathered;
        return gathered;
    }
};

}  // namespace nimbra::test
