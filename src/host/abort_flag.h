// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The wish to stop a render, settable from a signal handler.
#pragma once

#include <atomic>

namespace nimbra::host {

/// Zero while nobody wants to stop; else the signal's number, or kAbortByCaller.
class AbortFlag {
public:
    static constexpr int kAbortByCaller = -1;

    /// Async-signal-safe.
    void request(int reason = kAbortByCaller) { reason_.store(reason, std::memory_order_relaxed); }
    void clear() { reason_.store(0, std::memory_order_relaxed); }
    bool requested() const { return reason() != 0; }
    int reason() const { return reason_.load(std::memory_order_relaxed); }

private:
    std::atomic<int> reason_{0};
};

/// While it lives, SIGINT and SIGTERM set the flag. A second signal of the same kind ends the
/// process at once. One at a time; the former handlers come back at the end.
class SignalAbort {
public:
    explicit SignalAbort(AbortFlag& flag);
    ~SignalAbort();
    SignalAbort(const SignalAbort&) = delete;
    SignalAbort& operator=(const SignalAbort&) = delete;

private:
    struct Saved;
    Saved* saved_;
};

}  // namespace nimbra::host
