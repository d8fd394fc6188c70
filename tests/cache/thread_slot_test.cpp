// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/thread_slot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace nimbra {
namespace {

std::atomic<int> alive{0};

struct Counted : ThreadLocalObject {
    int value;
    explicit Counted(int v) : value(v) { ++alive; }
    ~Counted() override { --alive; }
};

int valueIn(const ThreadSlot& slot) {
    const auto* object = static_cast<Counted*>(slot.get());
    return object ? object->value : -1;
}

TEST(ThreadSlot, SlotsThatDieBeforeTheirThreads) {
    alive = 0;
    auto slots = std::make_unique<std::vector<ThreadSlot>>(200);
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([&] {
            for (const ThreadSlot& slot : *slots)
                slot.set(std::make_unique<Counted>(7));
            ++ready;
            ready.notify_all();
            go.wait(false);
            // The old numbers are in use again by now.
            ThreadSlot mine;
            EXPECT_EQ(mine.get(), nullptr);
            mine.set(std::make_unique<Counted>(8));
            EXPECT_EQ(valueIn(mine), 8);
        });
    for (int n = ready; n < 16; n = ready)
        ready.wait(n);
    EXPECT_EQ(alive, 16 * 200);
    EXPECT_EQ(slots->front().objectCount(), 16u);
    slots.reset();
    EXPECT_EQ(alive, 0);
    go = true;
    go.notify_all();
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace nimbra
