// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host's allocator: one heap for the host and its plug-ins, with memory tracking.
// All functions are thread-safe. Null means that there is no memory; nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tessra/export.h"

namespace TessUtils {

/// Bytes and blocks handed out and not yet given back, and the most there ever was. Blocks count
/// with their usable size. The counts are exact while no other thread allocates; the peak is too
/// low by at most 64 KiB for each thread.
class TESSRA_API MemoryTracker {
public:
    virtual ~MemoryTracker();
    virtual std::size_t currentBytes() const = 0;
    virtual std::size_t currentBlocks() const = 0;
    virtual std::size_t peakBytes() const = 0;
    virtual void resetPeak() = 0;
    /// The n-th allocation from now on fails (1: the next), once; 0 switches this off. For tests of
    /// what callers do without memory.
    virtual void failAllocation(std::uint64_t n) = 0;
};

}  // namespace TessUtils

extern "C" {
TESSRA_API void* vmalloc(std::size_t size);
/// Zero-filled; null also when count * size overflows. On failure errno is ENOMEM (12).
TESSRA_API void* vcalloc(std::size_t count, std::size_t size);
/// Null leaves the old block as it was. A size of 0 keeps a block of one byte.
TESSRA_API void* vrealloc(void* pointer, std::size_t size);
/// Ignores null.
TESSRA_API void vfree(void* pointer);
/// `alignment`: a power of two.
TESSRA_API void* vmalloc_aligned(std::size_t size, std::size_t alignment);
TESSRA_API void vfree_aligned(void* pointer);
/// Every thread that allocates for long calls this pair at its start and end.
TESSRA_API void vallocInitializeForCurrentThread();
TESSRA_API void vallocTerminateForCurrentThread();
/// A pointer that the caller keeps with its thread; the pair above clears it at the thread's end.
TESSRA_API void vallocSetMemoryDataForCurrentThread(void* data);
TESSRA_API void* vallocGetMemoryDataForCurrentThread();
/// A number for that name, the same each time, from 1 on; 0 for null.
TESSRA_API int vallocGetTag(const char* name);
/// A flag kept for the plug-ins that ask for it (initially 1): this heap has one kind of block.
TESSRA_API void vallocSetDefaultAllocations(int enable);
TESSRA_API int vallocGetDefaultAllocationsEnable();
TESSRA_API TessUtils::MemoryTracker* getGlobalMemoryTracker();
}
