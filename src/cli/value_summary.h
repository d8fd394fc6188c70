// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a run of values amounts to: range, sum, check sum and a few samples, in one pass and in the
// order of the values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "cache/grid_channel.h"

namespace nimbra::cli {

/// Sums up one component of floats.
class FloatSummary {
public:
    void add(float value) {
        ++count_;
        sum_ += value;
        if (value != value) {
            ++nanCount_;
            return;
        }
        infiniteCount_ += value - value != 0;
        min_ = any_ && min_ <= value ? min_ : value;
        max_ = any_ && max_ >= value ? max_ : value;
        any_ = true;
    }
    /// Values that are no numbers are left out; NaN when there are no others.
    float min() const;
    float max() const;
    /// In double, of all values: NaN when one is.
    double sum() const { return sum_; }
    double mean() const { return count_ > 0 ? sum_ / static_cast<double>(count_) : 0.0; }
    std::int64_t count() const { return count_; }
    std::int64_t nanCount() const { return nanCount_; }
    std::int64_t infiniteCount() const { return infiniteCount_; }

private:
    bool any_ = false;
    float min_ = 0, max_ = 0;
    double sum_ = 0;
    std::int64_t count_ = 0, nanCount_ = 0, infiniteCount_ = 0;
};

/// zlib's CRC-32 of bytes that come in pieces, as 8 hex digits.
class CheckSum {
public:
    void add(std::span<const std::byte> bytes);
    std::string text() const;

private:
    unsigned long crc_ = 0;
};

/// The places to sample of `count` values: all if there are at most `most`, else `most` that are
/// spread evenly from the first to the last.
std::vector<std::int64_t> samplePlaces(std::int64_t count, std::int64_t most);

/// Hands all voxels of a loaded channel over, x fastest, in pieces. The function answers false to
/// stop.
void forEachPiece(const GridChannelProxy<float>& channel,
                  const std::function<bool(std::span<const float>)>& piece);

/// The 8 hex digits of a value's bits.
std::string bitsText(float value);
std::string bitsText(std::uint32_t bits);
/// The hex digits of bytes in their order.
std::string bytesText(std::span<const unsigned char> bytes);

}  // namespace nimbra::cli
