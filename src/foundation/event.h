// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Events that threads wait for. A manual event stays set until it is reset; an automatic one lets
// one waiter through and is unset again.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace NMBUtils {

/// What events share so that a thread can wait for the first of several: only events of one domain
/// can be waited for together.
struct EventDomain {
    std::mutex mutex;
    std::condition_variable changed;
};

/// Usable from any thread. Whoever was let through by an event may destroy it (with its domain) at
/// once: the setter does not touch it any more.
class Event {
public:
    enum class Reset { Manual, Automatic };

    Event(EventDomain& domain, Reset reset) : domain_(domain), reset_(reset) {}
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set();
    void reset();
    void wait();
    /// False when the time ran out.
    bool waitFor(std::chrono::milliseconds time);
    /// True if it is set. An automatic event stays set, other than with a wait of no time.
    bool isSet() const;
    /// Waits until one of two events of one domain is set; the first counts if both are.
    static Event& waitAny(Event& first, Event& second);

private:
    void passed() {
        if (reset_ == Reset::Automatic)
            set_ = false;
    }

    EventDomain& domain_;
    const Reset reset_;
    bool set_ = false;
};

}  // namespace NMBUtils
