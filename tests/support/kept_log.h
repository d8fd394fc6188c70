// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The messages that plug-ins give their host, kept.
#pragma once

#include <string>
#include <vector>

#include "tessra/progress.h"

namespace nimbra::test {

/// Lines as "level: text".
struct KeptLog : TessUtils::ProgressCallback {
    void setProgressTitle(const char*) override {}
    bool getAbort() override { return false; }
    void setAbort(int) override {}
    void setProgress(int) override {}
    void processEvents() override {}
    void message(Level level, const char* text) override {
        const char* names[] = {"statistic: ", "warning: ", "info: "};
        lines.push_back(std::string(names[static_cast<int>(level)]) + text);
    }
    /// Messages that contain a text.
    int count(const std::string& text) const {
        int n = 0;
        for (const std::string& line : lines)
            n += line.find(text) != std::string::npos;
        return n;
    }
    std::vector<std::string> lines;
};

}  // namespace nimbra::test
