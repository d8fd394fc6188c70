// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/thread_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace TessUtils {
namespace {

struct Body : ThreadProcedure {
    std::function<void(int)> run;
    explicit Body(std::function<void(int)> body) : run(std::move(body)) {}
    void Run(int index) override { run(index); }
};

using ManagerPtr = std::unique_ptr<ThreadManager, decltype(&deleteThreadManager)>;

ManagerPtr makeManager(int threads) {
    return {newThreadManager(threads), deleteThreadManager};
}

TEST(ThreadManager, Bodies_RunAtTheSameTimeWithTheirNumbers) {
    const ManagerPtr manager = makeManager(2);
    EXPECT_EQ(manager->getNumberOfProcessors(), 2);
    constexpr int kBodies = 10;  // more than processors: they must not queue
    std::latch all(kBodies);
    std::mutex mutex;
    std::set<int> numbers;
    Body body([&](int index) {
        all.arrive_and_wait();
        const std::lock_guard lock(mutex);
        numbers.insert(index);
    });
    for (int i = 0; i < kBodies; ++i)
        EXPECT_TRUE(manager->runThread(&body, i, this));
    manager->waitThreads(this);
    EXPECT_EQ(numbers.size(), 10u);
    EXPECT_FALSE(manager->runThread(nullptr, 0, this));
}

TEST(ThreadManager, EndedThreads_AreLentAgain) {
    const ManagerPtr manager = makeManager(1);
    std::set<std::thread::id> ids;
    Body body([&](int) { ids.insert(std::this_thread::get_id()); });
    for (int round = 0; round < 100; ++round) {
        manager->runThread(&body, 0, this);
        manager->waitThreads(this);
    }
    EXPECT_EQ(ids.size(), 1u);
}

TEST(ThreadManager, Deletion_WaitsForTheLastBody) {
    std::atomic<int> done{0};
    Body body([&](int) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ++done;
    });
    ManagerPtr manager = makeManager(1);
    manager->runThread(&body, 0, nullptr);
    manager->runThread(&body, 1, nullptr);
    manager.reset();
    EXPECT_EQ(done, 2);
    deleteThreadManager(nullptr);
}

}  // namespace
}  // namespace TessUtils
