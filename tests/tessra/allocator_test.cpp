// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/allocator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "support/threads.h"

namespace {

using nimbra::test::onThreads;
using TessUtils::MemoryTracker;

/// What the heap holds more than at the start of a test.
class AllocatorTest : public testing::Test {
protected:
    std::int64_t bytes() const {
        return static_cast<std::int64_t>(tracker.currentBytes()) - bytes_;
    }
    std::int64_t blocks() const {
        return static_cast<std::int64_t>(tracker.currentBlocks()) - blocks_;
    }
    MemoryTracker& tracker = *getGlobalMemoryTracker();

private:
    std::int64_t bytes_ = static_cast<std::int64_t>(tracker.currentBytes());
    std::int64_t blocks_ = static_cast<std::int64_t>(tracker.currentBlocks());
};

TEST_F(AllocatorTest, EveryKindOfBlock_CountsWhileItLives) {
    void* const plain = vmalloc(1000);
    void* const zeroed = vcalloc(100, 50);
    void* const aligned = vmalloc_aligned(300, 128);
    EXPECT_EQ(blocks(), 3);
    EXPECT_GE(bytes(), 6300);
    EXPECT_LT(bytes(), 6300 + 3 * 128);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % 128, 0u);
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(static_cast<char*>(zeroed)[i], 0);

    std::memset(plain, 7, 1000);
    void* const larger = vrealloc(plain, 200000);
    ASSERT_NE(larger, nullptr);
    EXPECT_EQ(static_cast<char*>(larger)[999], 7);
    EXPECT_EQ(blocks(), 3);
    EXPECT_GE(bytes(), 205300);
    for (void* block :
         {vrealloc(larger, 0), zeroed, vrealloc(nullptr, 10), static_cast<void*>(nullptr)})
        vfree(block);
    vfree_aligned(aligned);
    vfree_aligned(nullptr);
    EXPECT_EQ(blocks(), 0);
    EXPECT_EQ(bytes(), 0);
}

TEST_F(AllocatorTest, ImpossibleSizes_AnswerNullWithTheError) {
    errno = 0;
    EXPECT_EQ(vmalloc(PTRDIFF_MAX), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    errno = 0;
    EXPECT_EQ(vcalloc(SIZE_MAX / 2, 3), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(vmalloc_aligned(PTRDIFF_MAX, 64), nullptr);
    EXPECT_EQ(vmalloc_aligned(64, 48), nullptr);  // no power of two
    void* const block = vmalloc(16);
    std::memset(block, 3, 16);
    EXPECT_EQ(vrealloc(block, PTRDIFF_MAX), nullptr);
    EXPECT_EQ(static_cast<char*>(block)[15], 3);
    vfree(block);
    EXPECT_EQ(blocks(), 0);
}

TEST_F(AllocatorTest, FailAllocation_FailsTheNthOfAllThreadsOnce) {
    tracker.failAllocation(3);
    void* first = vmalloc(8);
    void* second = nullptr;
    std::thread([&] { second = vcalloc(1, 8); }).join();
    EXPECT_EQ(vrealloc(first, 500), nullptr);
    first = vrealloc(first, 500);
    EXPECT_TRUE(first && second);
    tracker.failAllocation(1);
    EXPECT_EQ(vmalloc_aligned(8, 16), nullptr);
    tracker.failAllocation(1);
    tracker.failAllocation(0);
    void* const third = vmalloc(8);
    EXPECT_NE(third, nullptr);
    for (void* block : {first, second, third})
        vfree(block);
    EXPECT_EQ(blocks(), 0);
}

TEST_F(AllocatorTest, Peak_IsTheMostOfAllThreadsTogether) {
    tracker.resetPeak();
    const std::size_t before = tracker.peakBytes();
    constexpr std::size_t kBlock = 8 << 20;
    void* const mine = vmalloc(kBlock);
    std::thread([&] { vfree(vmalloc(kBlock)); }).join();
    vfree(mine);
    EXPECT_GE(tracker.peakBytes() - before, 2 * kBlock);
    EXPECT_LT(tracker.peakBytes() - before, 2 * kBlock + (1 << 20));
    tracker.resetPeak();
    EXPECT_LT(tracker.peakBytes(), before + kBlock);
}

TEST_F(AllocatorTest, BlocksThatCrossThreads_AreCountedRightInTheEnd) {
    constexpr int kThreads = 4;
    constexpr int kBlocks = 5000;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done)
            tracker.currentBytes();
    });
    // Each thread frees what its neighbour allocated, while others start, end and are counted.
    std::vector<void*> handed[kThreads];
    onThreads(kThreads, [&](int t) {
        vallocInitializeForCurrentThread();
        for (int i = 0; i < kBlocks; ++i)
            handed[t].push_back(vmalloc(static_cast<std::size_t>(i % 300)));
        vallocTerminateForCurrentThread();
    });
    EXPECT_EQ(blocks(), kThreads * kBlocks);
    onThreads(kThreads, [&](int t) {
        for (void* block : handed[(t + 1) % kThreads])
            vfree(block);
    });
    done = true;
    reader.join();
    EXPECT_EQ(blocks(), 0);
    EXPECT_EQ(bytes(), 0);
}

TEST_F(AllocatorTest, BlocksFreedWhileTheThreadEnds_AreCounted) {
    struct FreeAtEnd {
        void* block = nullptr;
        ~FreeAtEnd() { vfree(block); }
    };
    std::thread([] {
        // Made before the thread's count, so destroyed after it.
        static thread_local FreeAtEnd late;
        late.block = vmalloc(100);
    }).join();
    EXPECT_EQ(blocks(), 0);
}

TEST(AllocatorThreadData, BelongsToItsThreadUntilItEnds) {
    int mine = 0;
    vallocSetMemoryDataForCurrentThread(&mine);
    std::thread([] { EXPECT_EQ(vallocGetMemoryDataForCurrentThread(), nullptr); }).join();
    EXPECT_EQ(vallocGetMemoryDataForCurrentThread(), &mine);
    vallocTerminateForCurrentThread();
    EXPECT_EQ(vallocGetMemoryDataForCurrentThread(), nullptr);

    const int tag = vallocGetTag("grids");
    EXPECT_GT(tag, 0);
    EXPECT_NE(vallocGetTag("particles"), tag);
    EXPECT_EQ(vallocGetTag("grids"), tag);
    EXPECT_EQ(vallocGetTag(nullptr), 0);
}

}  // namespace
