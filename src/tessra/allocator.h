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

/// Bytes and blocks handed out and not yet given back, and the most there ever was.
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
TESSRA_API void* vrealloc(void* pointer, std::size_t size);
/// Ignores null.
TESSRA_API void vfree(void* pointer);
TESSRA_API void* vmalloc_aligned(std::size_t size, std::size_t alignment);
TESSRA_API void vfree_aligned(void* pointer);
/// Every thread that allocates for long calls this pair at its start and end.
TESSRA_API void vallocInitializeForCurrentThread();
TESSRA_API void vallocTerminateForCurrentThread();
/// A tag that later allocations of this thread are counted under.
TESSRA_API void vallocSetMemoryDataForCurrentThread(void* data);
TESSRA_API void* vallocGetMemoryDataForCurrentThread();
TESSRA_API int vallocGetTag(const char* name);
TESSRA_API void vallocSetDefaultAllocations(int enable);
TESSRA_API int vallocGetDefaultAllocationsEnable();
TESSRA_API TessUtils::MemoryTracker* getGlobalMemoryTracker();
}
