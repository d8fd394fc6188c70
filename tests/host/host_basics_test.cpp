// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The log, signals, names and hints, and the registry of plug-ins.
#include <gtest/gtest.h>

#include <csignal>

#include "host/abort_flag.h"
#include "host/fake_library.h"
#include "host/host_log.h"
#include "host/host_plugin.h"
#include "host/nearest_name.h"
#include "host/plugin_registry.h"
#include "host/row_hints.h"
#include "host/session.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

using test::LogLines;
using Texts = std::vector<std::string>;

TEST(HostLog, RepeatedWarning_IsSaidOnceAndCounted) {
    LogLines kept;
    HostLog& log = kept.log;
    for (int i = 0; i < 3; ++i)
        log.warning("no grid\n");
    log.warning("other");
    log.info("note");
    log.info("note");
    EXPECT_EQ(log.warningCount(), 2);
    log.finish();
    log.finish();
    EXPECT_EQ(kept.lines, (Texts{"warning: no grid", "warning: other", "info: note", "info: note",
                                 "warning: no grid (3 times)"}));
}

TEST(HostLog, LinesAndControlCharacters_AreMadePlain) {
    LogLines log;
    log.log.info("one\r\ntwo\x1b[2J\n\n%s\n");
    EXPECT_EQ(log.lines, (Texts{"info: one", "info: two?[2J", "info: %s"}));
}

TEST(AbortFlag, Signal_SetsItsNumberAndTheHandlersBeforeComeBack) {
    const auto handlerOf = [](int number) {
        struct sigaction now = {};
        sigaction(number, nullptr, &now);
        return now.sa_handler;
    };
    const auto before = handlerOf(SIGINT);
    AbortFlag flag;
    {
        const SignalAbort handler(flag);
        std::raise(SIGTERM);
        EXPECT_EQ(flag.reason(), SIGTERM);
        EXPECT_EQ(handlerOf(SIGTERM), SIG_DFL);  // a second one ends the process
        EXPECT_NE(handlerOf(SIGINT), before);
    }
    EXPECT_EQ(handlerOf(SIGINT), before);
}

TEST(NearestName, OnlyTypingErrors_AreSuggested) {
    const Texts names{"tmult", "emult", "etmult", "rendstep"};
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

TEST(PluginRegistry, Module_IsLoadedAndItsOutputBecomesDebugLines) {
    LogLines log;
    PluginRegistry registry(log.log);
    std::string error;
    testing::internal::CaptureStdout();
    std::printf("before\n");
    ASSERT_TRUE(registry.loadModule(NIMBRA_FAKE_MODULE, error)) << error;
    std::printf("after\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\nafter\n");
    const std::vector<std::string> lines{"debug: Fake: no reader",
                                         "debug: Fake: second line without an end"};
    EXPECT_EQ(log.lines, lines);
    EXPECT_EQ(registry.libraryName(), "Recorders");

    const PluginType* type = registry.find("Recorder");
    ASSERT_NE(type, nullptr);
    EXPECT_FALSE(type->ofHost);
    const std::vector<std::string> rows = type->rowNames();
    EXPECT_EQ(rows.at(1), "count");
    // Asking for the table again changes nothing.
    ASSERT_TRUE(registry.loadModule(NIMBRA_FAKE_MODULE, error));
    EXPECT_EQ(registry.types().size(), 2u);
    EXPECT_EQ(type->rowNames(), rows);

    Plugin* plugin = registry.create(*type, error);
    ASSERT_NE(plugin, nullptr);
    registry.destroy(plugin);
    registry.destroy(nullptr);
}

TEST(PluginRegistry, BadModule_IsReportedByName) {
    LogLines log;
    PluginRegistry registry(log.log);
    const nimbra::test::TempFolder folder;
    std::string error;
    for (const std::filesystem::path& bad :
         {folder / "none.so", folder.write("text.so", "no module")}) {
        EXPECT_FALSE(registry.loadModule(bad, error));
        EXPECT_NE(error.find(bad.filename()), std::string::npos) << error;
    }
    EXPECT_FALSE(registry.loadModule("libm.so.6", error));
    EXPECT_EQ(error, "'libm.so.6' has no function getLibDesc, so it is no plug-in module");
}

}  // namespace
}  // namespace nimbra::host
