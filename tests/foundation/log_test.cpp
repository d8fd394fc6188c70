// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/temp_folder.h"
#include "support/threads.h"

namespace NMBUtils {
namespace {

std::string debuggerText;

/// Catches the debugger's texts, and puts the log's statics back in the end.
class LogTest : public testing::Test {
protected:
    LogTest() {
        debuggerText.clear();
        setDebugSink([](const char* text) { debuggerText += text; });
    }
    ~LogTest() override {
        setDebugSink(nullptr);
        logFilePath[0] = 0;
        logTimestamps = false;
        logEcho = false;
    }
    void logTo(const std::filesystem::path& file) {
        std::snprintf(logFilePath, sizeof logFilePath, "%s", file.c_str());
    }
};

TEST_F(LogTest, ShippedConfiguration_IsSilentButForTheDebugger) {
    testing::internal::CaptureStdout();
    logLine("a secret %i\n", 1);
    logLine("#timer %i\n", 2);
    logLine(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(debuggerText, "#timer 2\n");
}

TEST_F(LogTest, FileAndEcho_GetTheTextBehindTheHash) {
    const nimbra::test::TempFolder folder;
    logTo(folder / "log.txt");
    logEcho = true;
    testing::internal::CaptureStdout();
    logLine("#first %s\n", "line");
    logLine("second #%i\n", 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "first line\nsecond #2\n");
    EXPECT_EQ(nimbra::test::readFile(folder / "log.txt"), "first line\nsecond #2\n");
    EXPECT_EQ(debuggerText, "#first line\n");
}

TEST_F(LogTest, Timestamps_PrecedeEachLine) {
    const nimbra::test::TempFolder folder;
    logTo(folder / "log.txt");
    logTimestamps = true;
    logLine("#text\n");
    const std::string text = nimbra::test::readFile(folder / "log.txt");
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

TEST_F(LogTest, ManyThreads_KeepLinesWhole) {
    const nimbra::test::TempFolder folder;
    logTo(folder / "log.txt");
    nimbra::test::onThreads(4, [&](int t) {
        for (int i = 0; i < 100; ++i)
            logLine("%s\n", std::string(200, static_cast<char>('a' + t)).c_str());
    });
    const std::string text = nimbra::test::readFile(folder / "log.txt");
    ASSERT_EQ(text.size(), 400u * 201u);
    for (std::size_t line = 0; line < 400; ++line)
        EXPECT_EQ(text.substr(line * 201, 201), std::string(200, text[line * 201]) + "\n");
}

TEST_F(LogTest, PrintLine_IsPlainOutput) {
    testing::internal::CaptureStdout();
    printLine("%s #%i", "loaded", 12);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "loaded #12");
}

}  // namespace
}  // namespace NMBUtils
