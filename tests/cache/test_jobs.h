// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Threads for jobs, and a user who wants to stop them.
#pragma once

#include <atomic>

#include "support/lent_threads.h"
#include "tessra/progress.h"

namespace nimbra::test {

using Threads = LentThreads;

/// Wants to stop once so many questions are answered.
class Stop : public TessUtils::ProgressCallback {
public:
    explicit Stop(int questions = 0) : left(questions) {}
    void setProgressTitle(const char*) override {}
    bool getAbort() override { return --left < 0; }
    void setAbort(int) override {}
    void setProgress(int) override {}
    void processEvents() override {}
    std::atomic<int> left;

private:
    void message(Level, const char*) override {}
};

}  // namespace nimbra::test
