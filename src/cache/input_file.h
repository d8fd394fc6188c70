// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A file of a cache, opened for reading: regular files only, so that no pipe or device can stop a
// render. The bytes are those of the file that was opened, also when another takes its name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace nimbra {

class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Opens without waiting. False for whatever isn't a regular file that may be read; `problem`
    /// then says why.
    bool open(const std::string& path);
    /// Size when it was opened.
    std::uint64_t size() const { return size_; }
    /// Fills the whole span from that offset; false (and `problem`) when the file ends before, as
    /// it does when it is cut while it is read. Moves no position: any thread.
    bool readAt(std::uint64_t offset, std::span<std::byte> out);
    /// For handing the file to another process; -1 when none is open.
    int descriptor() const { return descriptor_; }
    const std::string& problem() const { return problem_; }
    /// The system's number for why it couldn't be opened, 0 when it is only of the wrong kind.
    int error() const { return error_; }

    /// Keeps writers out that ask for the lock; false while one of them holds it. File systems
    /// without locks have no such writers.
    bool lockShared();
    void unlock();

private:
    void close();

    int descriptor_ = -1;
    std::uint64_t size_ = 0;
    std::string problem_;
    int error_ = 0;
};

}  // namespace nimbra
