// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a host has at hand: messages, paths, processors and the light of black bodies.
#include <gtest/gtest.h>
#include <sched.h>

#include <cmath>
#include <string>

#include "support/kept_log.h"
#include "support/temp_folder.h"
#include "tessra/black_body.h"
#include "tessra/processors.h"
#include "tessra/renderer.h"
#include "tessra/thread_manager.h"

namespace TessUtils {
namespace {

TEST(AdjustRelativePath, PutsTheScenesFolderBeforeRelativePathsOnly) {
    EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "smoke.vdb");
    for (const char* folder : {"/scenes/fire", "/scenes/fire/"}) {
        setSceneFolder(folder);
        EXPECT_EQ(adjustRelativePath(nullptr, "smoke.vdb"), "/scenes/fire/smoke.vdb");
        EXPECT_EQ(adjustRelativePath(nullptr, "../a:b.vdb"), "/scenes/fire/../a:b.vdb");
        for (const char* path : {"", "/x/a.vdb", "\\\\server\\a.vdb", "//server/a.vdb", "C:\\a.vdb",
                                 "d:/a.vdb", "$env(CACHES)/a.vdb"})
            EXPECT_EQ(adjustRelativePath(nullptr, path), path);
    }
    setSceneFolder("");
    EXPECT_EQ(remapPath(TessraSequenceData(), "a/b.vdb"), "a/b.vdb");
}

TEST(ProgressCallback, Messages_KeepTheirLevelAndAreNeverCut) {
    nimbra::test::KeptLog log;
    log.printStatistic("%i voxels\n", 12);
    log.printWarning("[NimbraSimPlugin] %s\n", "no data");
    log.printInfo("100%%\n");
    for (const std::size_t length : {1022u, 1023u, 1024u, 5000u})
        log.printInfo("%s", std::string(length, 'x').c_str());
    EXPECT_EQ(log.lines,
              (std::vector<std::string>{
                  "statistic: 12 voxels\n", "warning: [NimbraSimPlugin] no data\n", "info: 100%\n",
                  "info: " + std::string(1022, 'x'), "info: " + std::string(1023, 'x'),
                  "info: " + std::string(1024, 'x'), "info: " + std::string(5000, 'x')}));
}

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

TEST(BlackBody, Luminance_IsThatOfTheOldCandela) {
    // Until 1979 a black body at the freezing point of platinum, 2041.4 K on today's scale, defined
    // 60 cd/cm2. The fit of the luminosity is good to about 1 %.
    EXPECT_NEAR(blackBodyLuminance(2041.4), 6.0e5, 0.01 * 6.0e5);
    // The sun's mean luminance outside of the air is close to that of a body of 5778 K: 1.9e9.
    EXPECT_NEAR(blackBodyLuminance(5778), 1.88e9, 0.03e9);
}

TEST(BlackBody, Luminance_RisesFromNothing) {
    EXPECT_EQ(blackBodyLuminance(0), 0);
    EXPECT_EQ(blackBodyLuminance(-5), 0);
    EXPECT_EQ(blackBodyLuminance(std::nan("")), 0);
    double before = 0;
    for (int kelvin = 150; kelvin < 10000; kelvin += 50) {
        const double now = blackBodyLuminance(kelvin);
        ASSERT_TRUE(std::isfinite(now));
        ASSERT_GT(now, before);
        before = now;
    }
}

TEST(BlackBody, Color_TurnsFromRedOverWhiteToBlue) {
    const Color ember = blackBodyColor(1200), daylight = blackBodyColor(6504),
                sky = blackBodyColor(9999);
    EXPECT_EQ(ember.b, 0);
    EXPECT_GT(ember.r, 3 * ember.g);
    // The white of the primaries lies beside the locus, on its green side.
    EXPECT_NEAR(daylight.r / daylight.b, 1, 0.03);
    EXPECT_NEAR(daylight.r / daylight.g, 1, 0.05);
    EXPECT_GT(sky.b, sky.r);
    EXPECT_FLOAT_EQ(daylight.g, float(blackBodyLuminance(6504) / kLuminousEfficacy));
}

}  // namespace
}  // namespace TessUtils
