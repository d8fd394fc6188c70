// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/processors.h"

#include <sched.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <thread>

#include "tessra/thread_manager.h"

namespace TessUtils {

namespace {

/// Processors that the scheduler may put this process on.
int allowedProcessors() {
    // The kernel wants a mask at least as wide as its own, which may be wider than the default.
    for (int cpus = CPU_SETSIZE; cpus <= (1 << 20); cpus *= 4) {
        cpu_set_t* const mask = CPU_ALLOC(static_cast<std::size_t>(cpus));
        if (!mask)
            break;
        const std::size_t bytes = CPU_ALLOC_SIZE(static_cast<std::size_t>(cpus));
        const int count = sched_getaffinity(0, bytes, mask) == 0 ? CPU_COUNT_S(bytes, mask) : 0;
        CPU_FREE(mask);
        if (count > 0)
            return count;
    }
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

/// The folder of this process below the root of control groups, "" if there is none.
/// The line of version 2 in /proc/self/cgroup reads "0::/path".
std::string controlGroup(const std::string& membership) {
    std::ifstream file(membership);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("0::", 0) == 0)
            return line.substr(3);
    }
    return "";
}

}  // namespace

double processorQuota(const std::string& membership, const std::string& root) {
    double tightest = INFINITY;
    std::string group = controlGroup(membership);
    for (;;) {
        std::ifstream file(root + group + "/cpu.max");
        double quota = 0;
        double period = 0;
        if (file >> quota >> period && quota > 0 && period > 0)
            tightest = std::min(tightest, quota / period);
        const std::size_t slash = group.rfind('/');
        if (slash == std::string::npos)
            return tightest;
        group.resize(slash);
    }
}

int numberOfProcessors() {
    const int allowed = allowedProcessors();
    const double quota = processorQuota();
    if (quota >= allowed)
        return allowed;
    return std::max(1, static_cast<int>(std::ceil(quota)));
}

}  // namespace TessUtils
