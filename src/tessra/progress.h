// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host's message and progress object.
#pragma once

#include <cstdarg>

#include "tessra/export.h"

namespace TessUtils {

/// Messages, progress and the question whether the user wants to stop. Messages may come from any
/// thread; the title and the progress come from the scene thread only.
class TESSRA_API ProgressCallback {
public:
    virtual ~ProgressCallback();
    /// What is being done now; null or "" ends the current phase.
    virtual void setProgressTitle(const char* text) = 0;
    /// True once the render is to stop.
    virtual bool getAbort() = 0;
    /// Asks the host to stop the render (1) or takes that back (0).
    virtual void setAbort(int abort) = 0;
    /// Amount of work done, in the units of the running phase.
    virtual void setProgress(int done) = 0;
    /// Lets the host handle its own events; called at least every 10 ms during long phases.
    virtual void processEvents() = 0;

    // Three levels of the host's log, with printf-like formats. Texts end with a line feed.
    void printStatistic(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void printWarning(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void printInfo(const char* format, ...) __attribute__((format(printf, 2, 3)));

protected:
    enum class Level { Statistic, Warning, Info };
    /// Receives each formatted message.
    virtual void message(Level level, const char* text) = 0;

private:
    void format(Level level, const char* format, va_list args);
};

}  // namespace TessUtils
