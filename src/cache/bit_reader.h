// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Bits out of a byte range, least significant bit first. Behind the end come zeros; `overrun`
// tells.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace NMBUtils {

class BitReader {
public:
    /// Bits that are there after a refill.
    static constexpr int kLeastBits = 56;

    BitReader(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    /// The next `count` bits, 0 to 32, without taking them.
    std::uint32_t peek(int count) {
        refill();
        return static_cast<std::uint32_t>(bits_ & ((std::uint64_t{1} << count) - 1));
    }
    /// Takes bits that were peeked at.
    void skip(int count) {
        bits_ >>= count;
        held_ -= count;
    }
    std::uint32_t take(int count) {
        const std::uint32_t v = peek(count);
        skip(count);
        return v;
    }
    /// At least kLeastBits bits to look at from here on, zeros behind the end.
    void refill() {
        if (end_ - next_ >= 8) {
            std::uint64_t word;
            std::memcpy(&word, next_, 8);
            bits_ |= word << held_;
            const int bytes = (63 - held_) >> 3;
            next_ += bytes;
            held_ += bytes * 8;
            return;
        }
        while (held_ <= 56 && next_ < end_) {
            bits_ |= std::uint64_t{*next_++} << held_;
            held_ += 8;
        }
        if (held_ < kLeastBits) {
            missing_ += 64 - held_;  // zeros stand in for what the input lacks
            held_ = 64;
        }
    }
    std::uint64_t bits() const { return bits_; }
    /// True once bits were taken that the input doesn't have.
    bool overrun() const { return held_ < missing_; }
    /// Input bits that are left, none after an overrun.
    std::uint64_t left() const {
        const std::int64_t n = (end_ - next_) * 8 + held_ - missing_;
        return n > 0 ? static_cast<std::uint64_t>(n) : 0;
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
    std::uint64_t bits_ = 0;
    std::int64_t held_ = 0;
    std::int64_t missing_ = 0;
};

static_assert(std::endian::native == std::endian::little);

}  // namespace NMBUtils
