// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A .kol file under the reader's eyes: opened, guarded against other readers of this process,
// locked against writers, and read forward through a small window, with seeks over what nobody
// wants.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "cache/input_file.h"

namespace nimbra {

/// Raised by a read that can't be done, or by contents that make no sense. What belongs into the
/// log is written by then. Never leaves the reader.
struct KolDamage {
    std::string what;
};

/// How often and how long (in milliseconds) opening waits for others: for a file that is being
/// written, for another thread that reads it, for the lock. Tests wait less.
struct KolPatience {
    int tries = 30;
    int waitMs = 200;
};
extern KolPatience kolPatience;

class KolStream {
public:
    KolStream() = default;
    /// Lets others have the file.
    ~KolStream();
    KolStream(const KolStream&) = delete;
    KolStream& operator=(const KolStream&) = delete;

    /// False, and `problem` says why, for a file that can't be opened, read or locked. `noRetry`:
    /// one failure to open is enough. A file that can't be locked stays marked as being read: this
    /// process refuses it from then on.
    bool open(const std::string& path, bool noRetry);
    const std::string& problem() const { return problem_; }

    std::uint64_t size() const { return file_.size(); }
    std::uint64_t position() const { return position_; }
    /// Bytes from here to the end.
    std::uint64_t remaining() const { return position_ < size() ? size() - position_ : 0; }
    /// To any place; one behind the end fails the next read.
    void seek(std::uint64_t position) { position_ = position; }
    void skip(std::uint64_t bytes) { position_ += bytes; }

    /// The next value. `line` goes to the log when it isn't there; null for none.
    template <typename T>
    T get(const char* line = nullptr) {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        read(std::as_writable_bytes(std::span(&value, 1)), line);
        return value;
    }
    /// Fills all of `out`.
    void read(std::span<std::byte> out, const char* line = nullptr);
    /// A 32-bit number that can't be negative in a sound file.
    std::int32_t getCount(const char* line = nullptr);
    /// A length and so many bytes; as many as there are when the file ends before.
    std::string getText();
    /// `bytes` bytes, which must be there before memory is taken for them. Throws std::bad_alloc.
    std::vector<std::byte> getBlock(std::uint64_t bytes, const char* line = nullptr);
    /// Raises KolDamage unless so many bytes are left.
    void require(std::uint64_t bytes, const char* line = nullptr);
    /// Logs the line and raises KolDamage.
    [[noreturn]] void fail(const char* line, const std::string& what);

private:
    bool openFile(const std::string& path, bool noRetry);
    bool lockFile();
    bool fillWindow();

    InputFile file_;
    std::string path_;  // while it is guarded
    std::string problem_;
    std::uint64_t position_ = 0;
    std::vector<std::byte> window_;
    std::uint64_t windowStart_ = 0;
};

}  // namespace nimbra
