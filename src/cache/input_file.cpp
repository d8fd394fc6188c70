// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/input_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cache/env_path.h"

namespace nimbra {

namespace {

const char* kindOf(mode_t mode) {
    if (S_ISDIR(mode))
        return "is a folder";
    if (S_ISFIFO(mode))
        return "is a pipe";
    if (S_ISSOCK(mode))
        return "is a socket";
    return "is a device";
}

}  // namespace

InputFile::~InputFile() {
    close();
}

void InputFile::close() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
    size_ = 0;
}

bool InputFile::open(const std::string& path) {
    close();
    problem_.clear();
    error_ = 0;
    // Without waiting: opening a pipe for reading would block until somebody writes to it.
    descriptor_ = ::open(nativePath(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0) {
        error_ = errno;
        problem_ = std::string("can't be opened: ") + std::strerror(errno);
        return false;
    }
    struct stat status = {};
    if (::fstat(descriptor_, &status) != 0) {
        error_ = errno;
        problem_ = std::string("can't be opened: ") + std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        problem_ = kindOf(status.st_mode);
    } else {
        size_ = static_cast<std::uint64_t>(status.st_size);
        return true;
    }
    close();
    return false;
}

bool InputFile::lockShared() {
    int result = 0;
    do {
        result = ::flock(descriptor_, LOCK_SH | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0 || errno != EWOULDBLOCK;
}

void InputFile::unlock() {
    ::flock(descriptor_, LOCK_UN);
}

bool InputFile::readAt(std::uint64_t offset, std::span<std::byte> out) {
    std::size_t done = 0;
    while (done < out.size()) {
        const std::uint64_t at = offset + done;
        if (descriptor_ < 0 || at < offset || at > static_cast<std::uint64_t>(INT64_MAX)) {
            problem_ = "ends too early";
            return false;
        }
        const ssize_t n =
            ::pread(descriptor_, out.data() + done, out.size() - done, static_cast<off_t>(at));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            problem_ =
                n < 0 ? std::string("can't be read: ") + std::strerror(errno) : "ends too early";
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace nimbra
