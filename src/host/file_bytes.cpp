// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace nimbra::host {

namespace {

class Descriptor {
public:
    // Non-blocking, so that a FIFO without a writer doesn't hold the render up.
    explicit Descriptor(const std::string& path)
        : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~Descriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

}  // namespace

bool readFileBytes(const std::string& path, std::size_t limit, std::string& bytes,
                   std::string& error) {
    const Descriptor file(path);
    struct stat info {};
    if (file.get() < 0 || ::fstat(file.get(), &info) != 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        error = path + ": not a regular file";
        return false;
    }
    if (static_cast<std::uint64_t>(info.st_size) > limit) {
        error = path + ": larger than " + std::to_string(limit >> 20) + " MB";
        return false;
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::read(file.get(), content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error = path + ": " + std::strerror(errno);
            return false;
        }
        if (n == 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    content.resize(done);
    bytes = std::move(content);
    return true;
}

}  // namespace nimbra::host
