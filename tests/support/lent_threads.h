// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Threads for the jobs of a scope.
#pragma once

#include "foundation/parallel.h"
#include "tessra/thread_manager.h"

namespace nimbra::test {

/// The global manager of a scope; 0 threads: there is none.
class LentThreads {
public:
    explicit LentThreads(int count)
        : manager_(count ? TessUtils::newThreadManager(count) : nullptr) {
        NMBUtils::setGlobalThreadManager(manager_);
    }
    ~LentThreads() {
        NMBUtils::releaseGlobalThreadManager();
        TessUtils::deleteThreadManager(manager_);
    }
    LentThreads(const LentThreads&) = delete;
    LentThreads& operator=(const LentThreads&) = delete;

private:
    TessUtils::ThreadManager* manager_;
};

}  // namespace nimbra::test
