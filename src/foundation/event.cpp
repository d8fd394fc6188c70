// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/event.h"

namespace NMBUtils {

void Event::set() {
    // Notified under the lock: a waiter that destroys the event can only go on once it is released.
    const std::lock_guard lock(domain_.mutex);
    set_ = true;
    domain_.changed.notify_all();
}

void Event::reset() {
    const std::lock_guard lock(domain_.mutex);
    set_ = false;
}

void Event::wait() {
    std::unique_lock lock(domain_.mutex);
    domain_.changed.wait(lock, [this] { return set_; });
    passed();
}

bool Event::waitFor(std::chrono::milliseconds time) {
    std::unique_lock lock(domain_.mutex);
    if (!domain_.changed.wait_for(lock, time, [this] { return set_; }))
        return false;
    passed();
    return true;
}

bool Event::isSet() const {
    const std::lock_guard lock(domain_.mutex);
    return set_;
}

Event& Event::waitAny(Event& first, Event& second) {
    std::unique_lock lock(first.domain_.mutex);
    first.domain_.changed.wait(lock, [&] { return first.set_ || second.set_; });
    Event& which = first.set_ ? first : second;
    which.passed();
    return which;
}

}  // namespace NMBUtils
