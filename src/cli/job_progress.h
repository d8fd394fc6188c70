// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Ties a running render to the console's progress display.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "cli/console.h"
#include "host/session.h"

namespace nimbra::cli {

class JobProgress final : public host::ProgressObserver {
public:
    /// `pathOf`: the picture of a frame, named when it is written.
    JobProgress(Console& console, std::function<std::string(host::FrameNumber frame)> pathOf);

    void frameStarted(host::FrameNumber frame, int number, int count) override;
    void phase(const std::string& title) override;
    void rendering(double share, double elapsed, double remaining) override;
    void frameFinished(host::FrameNumber frame, host::RenderStatus status) override;

private:
    void show(double share);

    Console& console_;
    std::function<std::string(host::FrameNumber)> pathOf_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    ProgressState state_;
    double share_ = 0;
};

}  // namespace nimbra::cli
