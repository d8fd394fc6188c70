// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/progress_printer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/job_progress.h"

namespace nimbra::cli {
namespace {

ProgressState at(double fraction, double elapsed) {
    ProgressState s;
    s.fraction = fraction;
    s.elapsed = elapsed;
    s.frame = 12;
    return s;
}

int lines(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

TEST(ProgressPrinter, Plain_PrintsEveryFivePercentOrHalfMinute) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressMode::Auto, false);
    for (int i = 1; i <= 1000; ++i)
        printer.update(at(i / 1000.0, i / 100.0));
    printer.finish();
    EXPECT_EQ(lines(out.str()), 20);
    EXPECT_EQ(out.str().find('\r'), std::string::npos)
        << "no control characters outside a terminal";
    EXPECT_NE(out.str().find("frame 12: 50%, 0:05, 0:05 left\n"), std::string::npos) << out.str();

    std::ostringstream slow;
    ProgressPrinter patient(slow, ProgressMode::Plain, false);
    for (int s = 0; s <= 90; ++s)
        patient.update(at(0.01, s));
    EXPECT_EQ(lines(slow.str()), 3);
}

TEST(ProgressPrinter, Bar_StaysOnOneLineWithinTheTerminal) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressMode::Auto, true, 60);
    for (int i = 1; i <= 100; ++i)
        printer.update(at(i / 100.0, i));
    printer.finish();
    EXPECT_EQ(lines(out.str()), 1);
    std::istringstream in(out.str());
    for (std::string piece; std::getline(in, piece, '\r');)
        EXPECT_LT(piece.size(), 60u + 4) << piece;
}

TEST(ProgressPrinter, JsonAndAlf_AreReadByPrograms) {
    std::ostringstream json;
    ProgressPrinter printer(json, ProgressMode::Json, true);
    ProgressState s = at(0.5, 10);
    s.phase = "a \"b\"\n";
    printer.update(s);
    EXPECT_EQ(json.str(),
              "{\"progress\": 0.5000, \"frame\": 12, \"framesDone\": 0, \"frames\": 1, "
              "\"elapsed\": 10.0, \"remaining\": 10.0, \"phase\": \"a \\\"b\\\"\\u000a\"}\n");
    std::ostringstream alf;
    ProgressPrinter queue(alf, ProgressMode::Alf, false);
    queue.update(at(0.42, 1));
    EXPECT_NE(alf.str().find(" | alf_progress  42%\n"), std::string::npos) << alf.str();
}

TEST(JobProgress, FrameThatIsBrokenOff_DoesntCountAsDone) {
    for (const auto status : {host::RenderStatus::Complete, host::RenderStatus::Aborted}) {
        testing::internal::CaptureStderr();
        {
            ConsoleOptions options;
            options.progress = ProgressMode::Alf;
            Console console(options);
            JobProgress progress(console, [](host::FrameNumber) { return "a.exr"; });
            progress.frameStarted(1, 0, 1);
            progress.rendering(0.4, 1, 2);
            progress.frameFinished(1, status);
            console.endProgress();
        }
        const bool done = testing::internal::GetCapturedStderr().find("100%") != std::string::npos;
        EXPECT_EQ(done, status == host::RenderStatus::Complete);
    }
}

}  // namespace
}  // namespace nimbra::cli
