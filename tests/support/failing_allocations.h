// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One allocation after the other fails.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "tessra/allocator.h"

namespace nimbra::test {

/// For n from 1 to `last`: runs `attempt` while the n-th allocation of the host's memory fails, and
/// `judge` on what it returned. Once that is gone, as many blocks have to be in use as before.
template <class Attempt, class Judge>
void failEachAllocation(std::uint64_t last, const Attempt& attempt, const Judge& judge) {
    TessUtils::MemoryTracker& memory = *getGlobalMemoryTracker();
    for (std::uint64_t n = 1; n <= last; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        const std::size_t blocks = memory.currentBlocks();
        {
            memory.failAllocation(n);
            auto&& result = attempt();
            memory.failAllocation(0);
            judge(result);
        }
        ASSERT_EQ(memory.currentBlocks(), blocks);
    }
}

}  // namespace nimbra::test
