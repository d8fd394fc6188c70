// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/memory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "support/caught_log.h"
#include "tessra/allocator.h"

namespace NMBUtils {
namespace {

TEST(AllocOrThrow, WithoutMemory_ThrowsTheMessage) {
    const nimbra::test::DebuggerTexts debugger;
    getGlobalMemoryTracker()->failAllocation(1);
    std::string message;
    try {
        freeMem(allocOrThrow(12345));
    } catch (const TessUtils::ExceptionMsg& error) {
        message = error.what();
    }
    EXPECT_EQ(debugger.text(), "[operator new] failed (size is 12345)\n");
    unsigned heap = 0, free = 0;
    int end = 0;
    std::sscanf(message.c_str(),
                "Memory allocation failure; 12345 bytes requested; %u bytes already in heap; %u "
                "bytes free heap space.%n",
                &heap, &free, &end);
    EXPECT_TRUE(end > 0 && static_cast<std::size_t>(end) == message.size()) << message;
}

TEST(AllocOrThrow, AlignedBlocks) {
    void* const aligned = allocAlignedOrThrow(100, 256);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % 256, 0u);
    freeMem(aligned);
}

TEST(ArrayStore, AnOldErrorOfSomebodyElse_IsNoFailure) {
    errno = ENOMEM;
    void* const store = allocZeroedArrayStore(100);
    EXPECT_NE(store, nullptr);
    freeMem(store);
}

}  // namespace
}  // namespace NMBUtils
