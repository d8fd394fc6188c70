// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Linked into a test program, it has every test give all frames back.
#include <gtest/gtest.h>

#include "cache/nimbra_frame.h"

namespace nimbra::test {
namespace {

class FrameListCheck : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& info) override {
        auto& list = NimbraFrame::frameDataArray;
        if (list.size == 0)
            return;
        ADD_FAILURE() << info.test_suite_name() << '.' << info.name() << " left " << list.size
                      << " frames";
        list.reportAndClear();
    }
};

// Programs own their listeners.
[[maybe_unused]] const bool appended = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FrameListCheck);
    return true;
}();

}  // namespace
}  // namespace nimbra::test
