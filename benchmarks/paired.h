// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Two jobs measured against each other: they run in turn, so that whatever else the machine does
// hits both, and the counter "ratio" tells how many times as long the first one takes.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "foundation/parallel.h"
#include "tessra/thread_manager.h"

namespace nimbra::bench {

/// Threads for all jobs of a scope.
class Threads {
public:
    explicit Threads(int count) : manager_(TessUtils::newThreadManager(count)) {
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

template <class F>
double secondsOf(const F& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Manual time is that of `job`. `reset` runs before each `job`, unmeasured. The ratio is that of
/// the medians.
template <class Reset, class Job, class Reference>
void compare(benchmark::State& state, const Reset& reset, const Job& job,
             const Reference& reference) {
    std::vector<double> times, references;
    for (auto _ : state) {
        reset();
        references.push_back(secondsOf(reference));
        times.push_back(secondsOf(job));
        state.SetIterationTime(times.back());
    }
    const auto median = [](std::vector<double>& v) {
        std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
        return v[v.size() / 2];
    };
    const double middle = median(references);
    state.counters["reference_ms"] = middle * 1000;
    state.counters["ratio"] = median(times) / middle;
}

}  // namespace nimbra::bench
