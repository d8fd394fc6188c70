// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/log.h"

#include <gtest/gtest.h>

#include <string>

#include "support/caught_log.h"
#include "support/threads.h"

namespace NMBUtils {
namespace {

using nimbra::test::CaughtLog;
using nimbra::test::DebuggerTexts;

TEST(Log, ShippedConfiguration_IsSilentButForTheDebugger) {
    const DebuggerTexts debugger;
    testing::internal::CaptureStdout();
    logLine("a secret %i\n", 1);
    logLine("#timer %i\n", 2);
    logLine(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(debugger.text(), "#timer 2\n");
}

TEST(Log, FileAndEcho_GetTheTextBehindTheHash) {
    CaughtLog log;
    logEcho = true;
    testing::internal::CaptureStdout();
    logLine("#first %s\n", "line");
    logLine("second #%i\n", 2);
    logEcho = false;
    printLine("%s #%i", "printed", 12);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "first line\nsecond #2\nprinted #12");
    EXPECT_EQ(log.take(), "first line\nsecond #2\n");
}

TEST(Log, Timestamps_PrecedeEachLine) {
    CaughtLog log;
    logTimestamps = true;
    logLine("#text\n");
    logTimestamps = false;
    const std::string text = log.take();
    char month[4];
    int year, day, hour, minute, second, end = 0;
    ASSERT_EQ(std::sscanf(text.c_str(), "[%4d/%3[A-Za-z]/%d|%2d:%2d:%2d] %n", &year, month, &day,
                          &hour, &minute, &second, &end),
              6);
    EXPECT_EQ(text.substr(static_cast<std::size_t>(end)), "text\n");
    EXPECT_EQ(text.find("] "), text.find('|') + 9);  // two digits each
    EXPECT_NE(std::string("JanFebMarAprMayJunJulAugSepOctNovDec").find(month), std::string::npos);
    EXPECT_GE(year, 2020);
}

TEST(Log, ManyThreads_KeepLinesWhole) {
    CaughtLog log;
    nimbra::test::onThreads(4, [&](int t) {
        for (int i = 0; i < 100; ++i)
            logLine("%s\n", std::string(200, static_cast<char>('a' + t)).c_str());
    });
    const std::string text = log.take();
    ASSERT_EQ(text.size(), 400u * 201u);
    for (std::size_t line = 0; line < 400; ++line)
        EXPECT_EQ(text.substr(line * 201, 201), std::string(200, text[line * 201]) + "\n");
}

}  // namespace
}  // namespace NMBUtils
