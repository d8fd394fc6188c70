// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/processors.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cmath>

#include "support/temp_folder.h"
#include "tessra/thread_manager.h"

namespace TessUtils {
namespace {

TEST(ProcessorQuota, IsTheTightestOfTheGroupAndItsAncestors) {
    const nimbra::test::TempFolder folder;
    const auto quota = [&] { return processorQuota(folder / "self", folder.path()); };
    EXPECT_TRUE(std::isinf(quota()));
    folder.write("self", "4:memory:/other\n0::/jobs/render\n");
    EXPECT_TRUE(std::isinf(quota()));
    folder.write("jobs/render/cpu.max", "max 100000\n");
    EXPECT_TRUE(std::isinf(quota()));
    folder.write("jobs/cpu.max", "150000 100000\n");
    EXPECT_EQ(quota(), 1.5);
    folder.write("jobs/render/cpu.max", "800000 100000\n");
    EXPECT_EQ(quota(), 1.5);
    folder.write("cpu.max", "50000 100000\n");
    EXPECT_EQ(quota(), 0.5);
    folder.write("cpu.max", "0 0\n");  // nonsense counts as none
    EXPECT_EQ(quota(), 1.5);
}

TEST(NumberOfProcessors, RespectsTheAffinityOfTheProcess) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    EXPECT_GE(numberOfProcessors(), 1);
    EXPECT_LE(numberOfProcessors(), CPU_COUNT(&before));
    int first = 0;
    while (!CPU_ISSET(first, &before))
        ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(numberOfProcessors(), 1);
    ThreadManager* const manager = newThreadManager();
    EXPECT_EQ(manager->getNumberOfProcessors(), 1);
    deleteThreadManager(manager);
    ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
}  // namespace TessUtils
