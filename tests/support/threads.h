// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Threads for tests.
#pragma once

#include <thread>
#include <vector>

namespace nimbra::test {

/// Runs body(0) to body(count - 1) on threads of their own, and waits for all.
template <class Body>
void onThreads(int count, const Body& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&body, i] { body(i); });
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace nimbra::test
