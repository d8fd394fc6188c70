// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/process_memory.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

namespace nimbra {

std::uint64_t memoryOfProcess() {
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGE_SIZE);
    std::uint64_t most = UINT64_MAX;
    if (pages > 0 && pageSize > 0)
        most = static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
    rlimit limit = {};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        most = std::min<std::uint64_t>(most, limit.rlim_cur);
    return most;
}

void giveBack(std::span<std::byte> unused) {
    const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGE_SIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(unused.data());
    const std::uintptr_t first = (begin + pageSize - 1) / pageSize * pageSize;
    const std::uintptr_t last = (begin + unused.size()) / pageSize * pageSize;
    if (first < last)
        madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
}

}  // namespace nimbra
