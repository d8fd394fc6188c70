// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/task_limit.h"

#include <oneapi/tbb/global_control.h>

#include <algorithm>

namespace nimbra::host {

struct TaskLimit::Control {
    explicit Control(int threads)
        : limit(tbb::global_control::max_allowed_parallelism,
                static_cast<std::size_t>(std::max(1, threads))) {}
    tbb::global_control limit;
};

TaskLimit::TaskLimit(int threads) : control_(std::make_unique<Control>(threads)) {}
TaskLimit::~TaskLimit() = default;

}  // namespace nimbra::host
