// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Shows how far a render is: a bar on a terminal, plain lines elsewhere, JSON lines for programs,
// or the line that render queues look for.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "host/frame_number.h"

namespace nimbra::cli {

enum class ProgressMode {
    Auto,   // Bar on a terminal, else Plain
    Bar,    // one line that is written over
    Plain,  // a line every 5 % or 30 s
    Json,   // one object a line, at the same moments as Plain
    Alf,    // "HH:MM:SS | alf_progress  42%"
    None,
};

/// The mode of that name ("auto", "bar", "plain", "json", "alf", "none"), or nothing.
std::optional<ProgressMode> progressModeNamed(const std::string& name);

/// Where a job stands. Times in seconds.
struct ProgressState {
    double fraction = 0;  // of the whole job, 0 to 1
    host::FrameNumber frame;
    int framesDone = 0;
    int frameCount = 1;
    std::string phase;   // what is being done, may be empty
    double elapsed = 0;  // since the job's start
};

/// Seconds to go at the pace so far; negative while that can't be said.
double remainingSeconds(const ProgressState& state);
/// "1:02:03" or "2:03".
std::string clockText(double seconds);

/// Used on one thread at a time.
class ProgressPrinter {
public:
    /// `terminal`: whether `out` is one, for Auto. `columns`: its width.
    ProgressPrinter(std::ostream& out, ProgressMode mode, bool terminal, int columns = 80);
    /// Shows the state if it is due.
    void update(const ProgressState& state);
    /// Makes room for another line of text: call before anything else is written to the stream.
    void interrupt();
    /// Ends the display; the last state is shown.
    void finish();
    ProgressMode mode() const { return mode_; }

private:
    bool due(const ProgressState& state) const;
    void print(const ProgressState& state);
    void printBar(const ProgressState& state);

    std::ostream& out_;
    ProgressMode mode_;
    int columns_;
    bool barShown_ = false;
    bool printed_ = false;
    double lastFraction_ = 0;
    double lastElapsed_ = 0;
    ProgressState last_;
};

}  // namespace nimbra::cli
