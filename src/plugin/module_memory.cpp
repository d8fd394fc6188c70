// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The module's memory comes from the host.
#include <new>

#include "foundation/memory.h"
#include "tessra/allocator.h"

// Sanitizers check that a block goes back to the heap that it came from.
#ifndef NIMBRA_SANITIZED

using NMBUtils::allocAlignedOrThrow;
using NMBUtils::allocOrThrow;
using NMBUtils::freeMem;

void* operator new(std::size_t size) {
    return allocOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocOrThrow(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocAlignedOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocAlignedOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return NMBUtils::allocArrayStore(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return NMBUtils::allocArrayStore(size);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return vmalloc_aligned(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return vmalloc_aligned(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* p) noexcept {
    freeMem(p);
}
void operator delete[](void* p) noexcept {
    freeMem(p);
}
void operator delete(void* p, std::size_t) noexcept {
    freeMem(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    freeMem(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    freeMem(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    freeMem(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    freeMem(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    freeMem(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    freeMem(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    freeMem(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    freeMem(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    freeMem(p);
}

#endif
