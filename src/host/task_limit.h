// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Holds the task threads of the libraries below us to the number of threads that a render may use.
#pragma once

#include <memory>

namespace nimbra::host {

/// While it lives, task-parallel code anywhere in the process runs on at most `threads` threads.
class TaskLimit {
public:
    explicit TaskLimit(int threads);
    ~TaskLimit();
    TaskLimit(const TaskLimit&) = delete;
    TaskLimit& operator=(const TaskLimit&) = delete;

private:
    struct Control;
    std::unique_ptr<Control> control_;
};

}  // namespace nimbra::host
