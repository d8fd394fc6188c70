// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/mesh_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace nimbra::host {

namespace {

constexpr std::size_t kMostMeshBytes = std::size_t(8) << 30;

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

std::string lowerExtension(const std::string& path) {
    const std::size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] == '/')
        return "";
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

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

bool readMeshFile(const std::string& path, TessUtils::TriangleMesh& mesh, std::string& error) {
    const std::string extension = lowerExtension(path);
    if (extension != ".obj" && extension != ".ply") {
        error = path + ": the name must end in .obj or .ply";
        return false;
    }
    std::string bytes;
    if (!readFileBytes(path, kMostMeshBytes, bytes, error))
        return false;
    return extension == ".obj" ? readObj(bytes, path, mesh, error)
                               : readPly(bytes, path, mesh, error);
}

}  // namespace nimbra::host
