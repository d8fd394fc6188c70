// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/host_log.h"

#include <gtest/gtest.h>

#include <csignal>

#include "host/abort_flag.h"
#include "host/fake_library.h"
#include "host/nearest_name.h"
#include "host/row_hints.h"

namespace nimbra::host {
namespace {

using test::LogLines;

TEST(HostLog, RepeatedWarning_IsSaidOnceAndCounted) {
    LogLines log;
    for (int i = 0; i < 3; ++i)
        log.log.warning("no grid\n");
    log.log.warning("other");
    log.log.info("note");
    log.log.info("note");
    EXPECT_EQ(log.log.warningCount(), 2);
    log.log.finish();
    log.log.finish();
    const std::vector<std::string> expected{"warning: no grid", "warning: other", "info: note",
                                            "info: note", "warning: no grid (3 times)"};
    EXPECT_EQ(log.lines, expected);
}

TEST(HostLog, LinesAndControlCharacters_AreMadePlain) {
    LogLines log;
    log.log.info("one\r\ntwo\x1b[2J\n\n%s\n");
    const std::vector<std::string> expected{"info: one", "info: two?[2J", "info: %s"};
    EXPECT_EQ(log.lines, expected);
}

TEST(AbortFlag, Signal_SetsItsNumberAndTheDefaultComesBack) {
    AbortFlag flag;
    {
        const SignalAbort handler(flag);
        std::raise(SIGTERM);
        EXPECT_EQ(flag.reason(), SIGTERM);
        struct sigaction now = {};
        sigaction(SIGTERM, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL);  // a second one ends the process
        sigaction(SIGINT, nullptr, &now);
        EXPECT_NE(now.sa_handler, SIG_DFL);
    }
    struct sigaction after = {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_DFL);
}

TEST(NearestName, OnlyTypingErrors_AreSuggested) {
    const std::vector<std::string> names{"tmult", "emult", "etmult", "rendstep"};
    EXPECT_EQ(nearestName("rendsteps", names), "rendstep");
    EXPECT_EQ(nearestName("xmult", names), "tmult");  // a tie: the earlier
    EXPECT_EQ(nearestName("background", names), "");
    EXPECT_EQ(nearestName("", names), "");
    EXPECT_EQ(nearestName("q", {"x"}), "");
    EXPECT_EQ(nearestName(std::string(1'000'000, 'a'), names), "");
    EXPECT_EQ(suggestion("emul", names), " (did you mean 'emult'?)");
}

TEST(RowHints, KeysAndNestedParentheses_AreRead) {
    const RowHints hints = parseRowHints(
        "displayName=(Step (% of cell)), minValue=(0.5), maxValue=(1e3), "
        "enable=(::a!=0,::b=1;::c=2), "
        "enum=(0:Box;2:Soft (wide)), fileAsset=(vdb;kol), fileAssetOp=(load)");
    EXPECT_EQ(hints.displayName, "Step (% of cell)");
    EXPECT_EQ(hints.minValue, 0.5);
    EXPECT_EQ(hints.maxValue, 1000.0);
    EXPECT_EQ(hints.choiceText(), "0 (Box), 2 (Soft (wide))");
    EXPECT_TRUE(hints.isFile);
}

TEST(RowHints, DamagedHints_LeaveTheRestEmpty) {
    EXPECT_FALSE(parseRowHints(nullptr).minValue.has_value());
    EXPECT_FALSE(parseRowHints("minValue=(x), maxValue=()").maxValue.has_value());
    const RowHints open = parseRowHints("maxValue=(4), minValue=(2");
    EXPECT_EQ(open.maxValue, 4.0);
    EXPECT_FALSE(open.minValue.has_value());
    EXPECT_TRUE(parseRowHints("enum=(;:;a:b;3)").choices.empty());
    EXPECT_FALSE(parseRowHints("fileAssetNames=(x), fileAssetOp=(load)").isFile);
}

}  // namespace
}  // namespace nimbra::host
