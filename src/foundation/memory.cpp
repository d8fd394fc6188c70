// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/memory.h"

#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "foundation/log.h"
#include "tessra/allocator.h"

namespace TessUtils {

ExceptionMsg::ExceptionMsg(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(message_, sizeof message_, format, args);
    va_end(args);
}

}  // namespace TessUtils

namespace NMBUtils {

namespace {

/// All bytes that the heap holds, used and free.
std::size_t heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.arena + info.hblkhd;
}

std::size_t freeBytesOfSystem() {
    const long pages = sysconf(_SC_AVPHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    return pages > 0 && pageSize > 0 ? static_cast<std::size_t>(pages) * pageSize : 0;
}

/// The C library offers no check of the heap's soundness, so the message never speaks of damage.
[[noreturn]] void throwNoMemory(std::size_t size) {
    debugOut("[operator new] failed (size is %i)\n", static_cast<int>(size));
    throw TessUtils::ExceptionMsg(
        "Memory allocation failure; %u bytes requested; %u bytes already in heap; %u bytes free "
        "heap space.",
        static_cast<unsigned>(size), static_cast<unsigned>(heapBytes()),
        static_cast<unsigned>(freeBytesOfSystem()));
}

}  // namespace

void* allocOrThrow(std::size_t size) {
    void* const pointer = vmalloc(size);
    if (!pointer)
        throwNoMemory(size);
    return pointer;
}

void* allocAlignedOrThrow(std::size_t size, std::size_t alignment) {
    void* const pointer = vmalloc_aligned(size, alignment);
    if (!pointer)
        throwNoMemory(size);
    return pointer;
}

void* allocArrayStore(std::size_t size) noexcept {
    try {
        return vmalloc(size);
    } catch (...) {
        return nullptr;
    }
}

void* allocZeroedArrayStore(std::size_t size) noexcept {
    errno = 0;
    void* const pointer = vcalloc(size, 1);
    if (errno == ENOMEM) {
        vfree(pointer);
        return nullptr;
    }
    return pointer;
}

void freeMem(void* pointer) noexcept {
    vfree(pointer);
}

}  // namespace NMBUtils
