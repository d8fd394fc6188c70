// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads values out of a span of bytes that nobody has vouched for. Every offset is checked before
// it is used, in 64 bits and without overflow; after the first read that doesn't fit the reader
// stays failed and answers zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>

namespace nimbra {

/// a + b; false when the sum doesn't fit.
inline bool checkedAdd(std::uint64_t a, std::uint64_t b, std::uint64_t& sum) {
    return !__builtin_add_overflow(a, b, &sum);
}
/// a * b; false when the product doesn't fit.
inline bool checkedMultiply(std::uint64_t a, std::uint64_t b, std::uint64_t& product) {
    return !__builtin_mul_overflow(a, b, &product);
}

/// Walks forward through bytes in memory, little-endian. Copies are cheap and independent.
class BoundedReader {
public:
    BoundedReader() = default;
    explicit BoundedReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    std::uint64_t size() const { return bytes_.size(); }
    std::uint64_t position() const { return position_; }
    std::uint64_t remaining() const { return bytes_.size() - position_; }
    /// False from the first read, skip or seek that didn't fit.
    bool ok() const { return ok_; }
    /// Marks the bytes as unsound, as a read that doesn't fit does. Answers false.
    bool fail() { return ok_ = false; }

    /// True (and no move) if `count` more elements of `elementSize` bytes are there; fails
    /// otherwise.
    bool require(std::uint64_t count, std::uint64_t elementSize = 1) {
        std::uint64_t bytes = 0;
        if (!ok_ || !checkedMultiply(count, elementSize, bytes) || bytes > remaining())
            return fail();
        return true;
    }
    bool seek(std::uint64_t position) {
        if (!ok_ || position > bytes_.size())
            return fail();
        position_ = position;
        return true;
    }
    bool skip(std::uint64_t bytes) {
        if (!require(bytes))
            return false;
        position_ += bytes;
        return true;
    }
    /// The next value; zero when it isn't there.
    template <typename T>
    T get() {
        static_assert(std::is_trivially_copyable_v<T> && !std::is_same_v<T, bool>);
        T value{};
        if (require(sizeof(T))) {
            std::memcpy(&value, bytes_.data() + position_, sizeof(T));
            position_ += sizeof(T);
        }
        return value;
    }
    /// The next bytes, in place; empty when they aren't all there.
    std::span<const std::byte> take(std::uint64_t bytes) {
        if (!require(bytes))
            return {};
        const auto part = bytes_.subspan(position_, bytes);
        position_ += bytes;
        return part;
    }
    /// A text of so many bytes; empty (and failed) when they aren't all there.
    std::string text(std::uint64_t bytes) {
        const auto part = take(bytes);
        return {reinterpret_cast<const char*>(part.data()), part.size()};
    }

private:
    std::span<const std::byte> bytes_;
    std::uint64_t position_ = 0;
    bool ok_ = true;
};

/// Text that came out of a file, fit for a message: at most 256 bytes, control characters as '?'.
std::string printable(const std::string& text);

}  // namespace nimbra
