// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/memory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "foundation/log.h"
#include "tessra/allocator.h"

namespace NMBUtils {
namespace {

std::string debuggerText;

TEST(AllocOrThrow, WithoutMemory_ThrowsTheMessage) {
    debuggerText.clear();
    setDebugSink([](const char* text) { debuggerText += text; });
    getGlobalMemoryTracker()->failAllocation(1);
    std::string message;
    try {
        freeMem(allocOrThrow(12345));
    } catch (const TessUtils::ExceptionMsg& error) {
        TessUtils::ExceptionMsg copy("another");
        copy = error;
        message = copy.what();
    }
    setDebugSink(nullptr);
    EXPECT_EQ(debuggerText, "[operator new] failed (size is 12345)\n");
    unsigned heap = 0, free = 0;
    int end = 0;
    std::sscanf(message.c_str(),
                "Memory allocation failure; 12345 bytes requested; %u bytes already in heap; %u "
                "bytes free heap space.%n",
                &heap, &free, &end);
    EXPECT_EQ(static_cast<std::size_t>(end), message.size()) << message;
    EXPECT_GT(end, 0);
}

TEST(AllocOrThrow, Blocks_AreUsableAlignedAndDistinct) {
    void* const none = allocOrThrow(0);
    void* const other = allocOrThrow(0);
    EXPECT_NE(none, nullptr);
    EXPECT_NE(none, other);
    void* const aligned = allocAlignedOrThrow(100, 256);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % 256, 0u);
    for (void* pointer : {none, other, aligned})
        freeMem(pointer);
    freeMem(nullptr);
}

TEST(ArrayStore, WithoutMemory_AnswersNull) {
    for (int n = 0; n < 2; ++n) {
        getGlobalMemoryTracker()->failAllocation(1);
        EXPECT_EQ(n ? allocZeroedArrayStore(100) : allocArrayStore(100), nullptr);
    }
    EXPECT_EQ(allocArrayStore(PTRDIFF_MAX), nullptr);
    EXPECT_EQ(allocZeroedArrayStore(PTRDIFF_MAX), nullptr);
    // An old error of somebody else is no failure of this one.
    errno = ENOMEM;
    void* const store = allocZeroedArrayStore(100);
    EXPECT_NE(store, nullptr);
    freeMem(store);
}

}  // namespace
}  // namespace NMBUtils
