// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/kol_stream.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "foundation/log.h"

namespace nimbra {

KolPatience kolPatience;

namespace {

// Small enough that a list of headers between large payloads costs little to step through.
constexpr std::size_t kWindowBytes = 16384;

void waitForOthers() {
    std::this_thread::sleep_for(std::chrono::milliseconds(kolPatience.waitMs));
}

/// The paths that this process reads now.
class PathGuard {
public:
    /// Waits for its turn; false when that doesn't come.
    bool enter(const std::string& path) {
        for (int i = 0; i < kolPatience.tries; ++i) {
            if (tryEnter(path))
                return true;
            waitForOthers();
        }
        return tryEnter(path);
    }
    void leave(const std::string& path) {
        const std::lock_guard lock(mutex_);
        paths_.erase(path);
    }

private:
    bool tryEnter(const std::string& path) {
        const std::lock_guard lock(mutex_);
        return paths_.insert(path).second;
    }
    std::mutex mutex_;
    std::set<std::string> paths_;
};

PathGuard& pathGuard() {
    static PathGuard guard;
    return guard;
}

}  // namespace

KolStream::~KolStream() {
    if (path_.empty())
        return;
    file_.unlock();
    pathGuard().leave(path_);
}

bool KolStream::open(const std::string& path, bool noRetry) {
    if (!openFile(path, noRetry)) {
        problem_ = file_.problem();
        return false;
    }
    // Copied first: a path that was entered has to be left again.
    std::string guarded = path;
    if (!pathGuard().enter(path)) {
        problem_ = "is being read elsewhere";
        return false;
    }
    if (!lockFile()) {
        problem_ = "is being written";
        return false;
    }
    path_ = std::move(guarded);
    return true;
}

bool KolStream::openFile(const std::string& path, bool noRetry) {
    for (int i = 1; !file_.open(path); ++i) {
        // Only what a writer in the way may cause goes away by waiting.
        if (noRetry || file_.error() != EINVAL || i >= kolPatience.tries)
            return false;
        waitForOthers();
    }
    return true;
}

bool KolStream::lockFile() {
    for (int i = 1; !file_.lockShared(); ++i) {
        if (i >= kolPatience.tries)
            return false;
        waitForOthers();
    }
    return true;
}

void KolStream::fail(const char* line, const std::string& what) {
    if (line)
        NMBUtils::logLine("%s", line);
    throw KolDamage{what};
}

void KolStream::require(std::uint64_t bytes, const char* line) {
    if (bytes > remaining())
        fail(line, "ends too early");
}

bool KolStream::fillWindow() {
    const std::uint64_t bytes = std::min<std::uint64_t>(kWindowBytes, remaining());
    window_.resize(bytes);
    windowStart_ = position_;
    if (file_.readAt(position_, window_))
        return true;
    window_.clear();
    return false;
}

void KolStream::read(std::span<std::byte> out, const char* line) {
    require(out.size(), line);
    if (out.size() >= kWindowBytes) {
        if (!file_.readAt(position_, out))
            fail(line, file_.problem());
        position_ += out.size();
        return;
    }
    while (!out.empty()) {
        const bool held = position_ >= windowStart_ && position_ - windowStart_ < window_.size();
        if (!held && !fillWindow())
            fail(line, file_.problem());
        const std::uint64_t at = position_ - windowStart_;
        const std::size_t n = std::min<std::size_t>(out.size(), window_.size() - at);
        std::memcpy(out.data(), window_.data() + at, n);
        out = out.subspan(n);
        position_ += n;
    }
}

std::int32_t KolStream::getCount(const char* line) {
    const auto count = get<std::int32_t>(line);
    if (count < 0)
        fail(line, "states a negative size");
    return count;
}

std::string KolStream::getText() {
    const auto length = static_cast<std::uint64_t>(getCount());
    std::string text(static_cast<std::size_t>(std::min(length, remaining())), '\0');
    read(std::as_writable_bytes(std::span(text)));
    return text;
}

std::vector<std::byte> KolStream::getBlock(std::uint64_t bytes, const char* line) {
    require(bytes, line);
    std::vector<std::byte> block(static_cast<std::size_t>(bytes));
    read(block, line);
    return block;
}

}  // namespace nimbra
