// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/progress.h"

#include <gtest/gtest.h>

#include <string>

namespace TessUtils {
namespace {

class Recorder : public ProgressCallback {
public:
    void setProgressTitle(const char*) override {}
    bool getAbort() override { return false; }
    void setAbort(int) override {}
    void setProgress(int) override {}
    void processEvents() override {}
    std::string heard;

protected:
    void message(Level level, const char* text) override {
        heard += level == Level::Statistic ? "S:" : level == Level::Warning ? "W:" : "I:";
        heard += text;
    }
};

TEST(ProgressCallback, Messages_KeepTheirLevelAndAreNeverCut) {
    Recorder recorder;
    recorder.printStatistic("%i voxels\n", 12);
    recorder.printWarning("[NimbraSimPlugin] %s\n", "no data");
    recorder.printInfo("100%%\n");
    EXPECT_EQ(recorder.heard, "S:12 voxels\nW:[NimbraSimPlugin] no data\nI:100%\n");

    for (const std::size_t length : {1022u, 1023u, 1024u, 5000u}) {
        recorder.heard.clear();
        const std::string text(length, 'x');
        recorder.printInfo("%s", text.c_str());
        EXPECT_EQ(recorder.heard, "I:" + text);
    }
}

}  // namespace
}  // namespace TessUtils
