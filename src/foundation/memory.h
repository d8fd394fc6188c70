// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Thin wrappers over the host's allocator, and the one exception class of the library.
//
// The module's own operator new is made of them, in a source that only the module links:
//
//     void* operator new(std::size_t n) { return NMBUtils::allocOrThrow(n); }
//     void* operator new[](std::size_t n) { return NMBUtils::allocOrThrow(n); }
//     void* operator new(std::size_t n, std::align_val_t a) {
//         return NMBUtils::allocAlignedOrThrow(n, static_cast<std::size_t>(a));
//     }
//     void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return vmalloc(n); }
//     void operator delete(void* p) noexcept { NMBUtils::freeMem(p); }
//
// and so on for each array, aligned, sized and nothrow form. Leave none out: a block of a form that
// still comes from the C++ library would come back here. That in itself is harmless, as both heaps
// are the C heap, so blocks may cross between the module and other libraries in both directions
// (only the tracker's count drifts then). Sanitizers do object to it: leave the source out where
// NIMBRA_SANITIZED is defined.
#pragma once

#include <cstddef>
#include <new>

namespace TessUtils {

/// What is thrown when there is no memory. It is a std::bad_alloc, so that code which expects that
/// one copes.
class ExceptionMsg : public std::bad_alloc {
public:
    explicit ExceptionMsg(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const char* what() const noexcept override { return message_; }

private:
    char message_[1024];
};

}  // namespace TessUtils

namespace NMBUtils {

/// Memory from the host, never null; throws ExceptionMsg.
void* allocOrThrow(std::size_t size);
/// The same for an alignment that is a power of two. Goes back with `freeMem` as well.
void* allocAlignedOrThrow(std::size_t size, std::size_t alignment);

/// The store of an array, uninitialised; null on failure, never throws.
void* allocArrayStore(std::size_t size) noexcept;
/// The same, filled with zeros.
void* allocZeroedArrayStore(std::size_t size) noexcept;

/// Ignores null.
void freeMem(void* pointer) noexcept;

}  // namespace NMBUtils
