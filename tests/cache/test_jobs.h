// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Threads for jobs, and a user who wants to stop them.
#pragma once

#include <atomic>

#include "foundation/parallel.h"
#include "tessra/progress.h"
#include "tessra/thread_manager.h"

namespace nimbra::test {

/// Threads for all jobs of a scope; 0: none are lent.
class Threads {
public:
    explicit Threads(int count) : manager_(count ? TessUtils::newThreadManager(count) : nullptr) {
        NMBUtils::setGlobalThreadManager(manager_);
    }
    ~Threads() {
        NMBUtils::releaseGlobalThreadManager();
        TessUtils::deleteThreadManager(manager_);
    }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

private:
    TessUtils::ThreadManager* manager_;
};

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
