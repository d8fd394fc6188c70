// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Threads that the host lends to its plug-ins.
#pragma once

#include "tessra/export.h"

namespace TessUtils {

/// A body to run on a lent thread.
class TESSRA_API ThreadProcedure {
public:
    virtual ~ThreadProcedure();
    /// Runs on the lent thread until the work is over; `threadIndex` is the number it was given.
    virtual void Run(int threadIndex) = 0;
};

/// Lends threads. All operations may be called from any thread.
class TESSRA_API ThreadManager {
public:
    virtual ~ThreadManager();
    /// Runs `procedure` on a thread of its own as number `threadIndex` of `owner`. False when the
    /// system has no thread left; then nothing runs.
    virtual bool runThread(ThreadProcedure* procedure, int threadIndex, const void* owner) = 0;
    /// Returns after all threads that run for `owner` have ended their bodies.
    virtual void waitThreads(const void* owner) = 0;
    /// Logical processors that this process may use.
    virtual int getNumberOfProcessors() const = 0;
};

/// A manager on plain threads; ended threads are kept and lent again.
/// `processors` 0: as many as the process is allowed to use (affinity and cgroup respected).
TESSRA_API ThreadManager* newThreadManager(int processors = 0);
/// Waits for all bodies to end; ignores null.
TESSRA_API void deleteThreadManager(ThreadManager* manager);
/// Processors that this process may use, at least 1.
TESSRA_API int numberOfProcessors();

}  // namespace TessUtils
