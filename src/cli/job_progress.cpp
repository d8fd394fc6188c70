// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/job_progress.h"

#include <utility>

namespace nimbra::cli {

JobProgress::JobProgress(Console& console, std::function<std::string(host::FrameNumber)> pathOf)
    : console_(console), pathOf_(std::move(pathOf)) {}

void JobProgress::show(double share) {
    share_ = share;
    state_.elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    state_.fraction = state_.frameCount > 0 ? (state_.framesDone + share) / state_.frameCount : 0;
    console_.progress(state_);
}

void JobProgress::frameStarted(host::FrameNumber frame, int number, int count) {
    state_.frame = frame;
    state_.framesDone = number;
    state_.frameCount = count;
    show(0);
}

void JobProgress::phase(const std::string& title) {
    state_.phase = title;
    show(share_);
}

void JobProgress::rendering(double share, double, double) {
    show(share);
}

void JobProgress::frameFinished(host::FrameNumber frame, host::RenderStatus status) {
    // What was broken off isn't done.
    if (status != host::RenderStatus::Aborted)
        show(1);
    if (status == host::RenderStatus::Complete)
        console_.note("wrote " + pathOf_(frame));
    share_ = 0;
}

}  // namespace nimbra::cli
