// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The heap is the C heap; what is added is the count of live bytes and blocks. Each thread counts
// for itself and hands its count over in lumps, so that threads which allocate at the same time
// don't fight for one cache line.
#include "tessra/allocator.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace {

using TessUtils::MemoryTracker;

/// A thread hands its count over once it has moved by this much: the error of the peak is below
/// this many bytes for each thread.
constexpr std::int64_t kHandOverBytes = 64 * 1024;

/// What one thread allocated and freed since it last handed over. Only its thread writes.
struct ThreadCount {
    std::atomic<std::int64_t> bytes{0};
    std::atomic<std::int64_t> blocks{0};
    ThreadCount* next = nullptr;
};

class HeapTracker final : public MemoryTracker {
public:
    std::size_t currentBytes() const override { return sum(bytes_, &ThreadCount::bytes); }
    std::size_t currentBlocks() const override { return sum(blocks_, &ThreadCount::blocks); }
    std::size_t peakBytes() const override {
        return std::max(currentBytes(), atLeastZero(peak_.load(std::memory_order_relaxed)));
    }
    void resetPeak() override {
        peak_.store(static_cast<std::int64_t>(currentBytes()), std::memory_order_relaxed);
    }
    void failAllocation(std::uint64_t n) override {
        failIn_.store(static_cast<std::int64_t>(n), std::memory_order_relaxed);
    }

    /// True for the one allocation that is to fail.
    bool failsNow() {
        if (failIn_.load(std::memory_order_relaxed) <= 0)
            return false;
        return failIn_.fetch_sub(1, std::memory_order_relaxed) == 1;
    }

    void count(ThreadCount& mine, std::int64_t bytes, std::int64_t blocks) {
        const std::int64_t moved = mine.bytes.load(std::memory_order_relaxed) + bytes;
        mine.bytes.store(moved, std::memory_order_relaxed);
        mine.blocks.store(mine.blocks.load(std::memory_order_relaxed) + blocks,
                          std::memory_order_relaxed);
        if (moved > kHandOverBytes || moved < -kHandOverBytes)
            handOver(mine);
    }

    void countDirectly(std::int64_t bytes, std::int64_t blocks) {
        blocks_.fetch_add(blocks, std::memory_order_relaxed);
        raisePeak(bytes_.fetch_add(bytes, std::memory_order_relaxed) + bytes);
    }

    void join(ThreadCount* thread) {
        const std::lock_guard lock(mutex_);
        thread->next = threads_;
        threads_ = thread;
    }
    void leave(ThreadCount* thread) {
        const std::lock_guard lock(mutex_);
        handOver(*thread);
        ThreadCount** link = &threads_;
        while (*link != thread)
            link = &(*link)->next;
        *link = thread->next;
    }

private:
    static std::size_t atLeastZero(std::int64_t value) {
        return value > 0 ? static_cast<std::size_t>(value) : 0;
    }

    std::size_t sum(const std::atomic<std::int64_t>& handedOver,
                    std::atomic<std::int64_t> ThreadCount::*part) const {
        const std::lock_guard lock(mutex_);
        std::int64_t total = handedOver.load(std::memory_order_relaxed);
        for (const ThreadCount* thread = threads_; thread; thread = thread->next)
            total += (thread->*part).load(std::memory_order_relaxed);
        return atLeastZero(total);
    }

    void handOver(ThreadCount& mine) {
        const std::int64_t bytes = mine.bytes.exchange(0, std::memory_order_relaxed);
        const std::int64_t blocks = mine.blocks.exchange(0, std::memory_order_relaxed);
        countDirectly(bytes, blocks);
    }

    void raisePeak(std::int64_t bytes) {
        std::int64_t peak = peak_.load(std::memory_order_relaxed);
        while (bytes > peak &&
               !peak_.compare_exchange_weak(peak, bytes, std::memory_order_relaxed)) {
        }
    }

    mutable std::mutex mutex_;
    ThreadCount* threads_ = nullptr;
    std::atomic<std::int64_t> bytes_{0};
    std::atomic<std::int64_t> blocks_{0};
    std::atomic<std::int64_t> peak_{0};
    std::atomic<std::int64_t> failIn_{0};
};

/// Never destroyed: blocks are freed until the very end of the process. Not from the heap: a
/// program may have put this allocator under operator new.
HeapTracker& tracker() {
    alignas(HeapTracker) static std::byte storage[sizeof(HeapTracker)];
    static HeapTracker* const instance = new (storage) HeapTracker;
    return *instance;
}

/// The count of this thread; null before the first use and again while the thread winds up. In the
/// block of static thread storage, which halves the cost of counting.
[[gnu::tls_model("initial-exec")]] thread_local ThreadCount* threadCount = nullptr;
thread_local bool threadEnded = false;

struct ThreadCountOwner {
    ThreadCount count;
    ThreadCountOwner() {
        tracker().join(&count);
        threadCount = &count;
    }
    ~ThreadCountOwner() {
        threadCount = nullptr;
        threadEnded = true;
        tracker().leave(&count);
    }
    ThreadCountOwner(const ThreadCountOwner&) = delete;
    ThreadCountOwner& operator=(const ThreadCountOwner&) = delete;
};

void beginThread() {
    static thread_local ThreadCountOwner owner;
    static_cast<void>(owner);
}

void countBlock(std::int64_t bytes, std::int64_t blocks) {
    if (!threadCount && !threadEnded)
        beginThread();
    if (threadCount)
        tracker().count(*threadCount, bytes, blocks);
    else
        tracker().countDirectly(bytes, blocks);
}

std::int64_t usableSize(void* pointer) {
    return static_cast<std::int64_t>(malloc_usable_size(pointer));
}

void* counted(void* pointer) {
    if (pointer)
        countBlock(usableSize(pointer), 1);
    else
        errno = ENOMEM;
    return pointer;
}

void* refused() {
    errno = ENOMEM;
    return nullptr;
}

thread_local void* memoryData = nullptr;
std::atomic<int> defaultAllocations{1};

}  // namespace

void* vmalloc(std::size_t size) {
    return tracker().failsNow() ? refused() : counted(std::malloc(size));
}

void* vcalloc(std::size_t count, std::size_t size) {
    return tracker().failsNow() ? refused() : counted(std::calloc(count, size));
}

void* vrealloc(void* pointer, std::size_t size) {
    if (!pointer)
        return vmalloc(size);
    if (tracker().failsNow())
        return refused();
    const std::int64_t before = usableSize(pointer);
    // One byte at least: realloc to nothing would free the block and answer null, like a failure.
    void* const moved = std::realloc(pointer, std::max<std::size_t>(size, 1));
    if (!moved)
        return refused();
    countBlock(usableSize(moved) - before, 0);
    return moved;
}

void vfree(void* pointer) {
    if (!pointer)
        return;
    countBlock(-usableSize(pointer), -1);
    std::free(pointer);
}

void* vmalloc_aligned(std::size_t size, std::size_t alignment) {
    if (tracker().failsNow())
        return refused();
    void* pointer = nullptr;
    if (posix_memalign(&pointer, std::max(alignment, sizeof(void*)), size) != 0)
        return refused();
    return counted(pointer);
}

void vfree_aligned(void* pointer) {
    vfree(pointer);
}

void vallocInitializeForCurrentThread() {
    if (!threadCount && !threadEnded)
        beginThread();
}

void vallocTerminateForCurrentThread() {
    memoryData = nullptr;
}

void vallocSetMemoryDataForCurrentThread(void* data) {
    memoryData = data;
}

void* vallocGetMemoryDataForCurrentThread() {
    return memoryData;
}

int vallocGetTag(const char* name) {
    static std::mutex mutex;
    static std::vector<std::string>* const names = new std::vector<std::string>;
    if (!name)
        return 0;
    const std::lock_guard lock(mutex);
    const auto found = std::find(names->begin(), names->end(), name);
    const auto place = found - names->begin();
    if (found == names->end())
        names->emplace_back(name);
    return static_cast<int>(place) + 1;
}

void vallocSetDefaultAllocations(int enable) {
    defaultAllocations.store(enable, std::memory_order_relaxed);
}

int vallocGetDefaultAllocationsEnable() {
    return defaultAllocations.load(std::memory_order_relaxed);
}

TessUtils::MemoryTracker* getGlobalMemoryTracker() {
    return &tracker();
}
