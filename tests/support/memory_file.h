// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Bytes as a file of their own, without a disk.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>

namespace nimbra::test {

class MemoryFile {
public:
    MemoryFile(const void* data, std::size_t size)
        : descriptor_(memfd_create("bytes", MFD_CLOEXEC)) {
        const char* at = static_cast<const char*>(data);
        while (descriptor_ >= 0 && size > 0) {
            const ssize_t n = write(descriptor_, at, size);
            if (n <= 0)
                break;
            at += n;
            size -= static_cast<std::size_t>(n);
        }
    }
    explicit MemoryFile(const std::string& bytes) : MemoryFile(bytes.data(), bytes.size()) {}
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    /// Can be opened while this object lives.
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

}  // namespace nimbra::test
