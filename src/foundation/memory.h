// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Thin wrappers over the host's allocator, and the one exception class of the library.
//
// The module's own operator new and delete, in every form, are made of them in a source that only
// the module links. Blocks may cross between the module and other libraries in both directions, as
// both heaps are the C heap; only the tracker's count drifts then.
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
