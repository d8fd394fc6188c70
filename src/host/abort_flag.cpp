// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/abort_flag.h"

#include <csignal>

namespace nimbra::host {

namespace {

std::atomic<AbortFlag*> activeFlag{nullptr};

// The flag is all that a handler may touch.
extern "C" void onSignal(int signal) {
    if (AbortFlag* flag = activeFlag.load(std::memory_order_relaxed))
        flag->request(signal);
}

}  // namespace

struct SignalAbort::Saved {
    struct sigaction interrupt = {}, terminate = {};
};

SignalAbort::SignalAbort(AbortFlag& flag) : saved_(new Saved) {
    activeFlag.store(&flag, std::memory_order_relaxed);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    // After the first signal the default is back: a second one ends the process.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &saved_->interrupt);
    sigaction(SIGTERM, &action, &saved_->terminate);
}

SignalAbort::~SignalAbort() {
    sigaction(SIGINT, &saved_->interrupt, nullptr);
    sigaction(SIGTERM, &saved_->terminate, nullptr);
    activeFlag.store(nullptr, std::memory_order_relaxed);
    delete saved_;
}

}  // namespace nimbra::host
