// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Whole buffers in zlib's format.
#pragma once

#include <cstdint>

namespace nimbra {

/// Inflates `packedBytes` bytes into `out`, which has room for `outBytes`. True when the stream
/// ends well; it may fill less than there is room for. Otherwise "[ERROR] Decompressing Zip (%d)"
/// with zlib's code goes to the log, and what of `out` is written is undefined. `inflated`: how
/// many bytes the stream gave.
bool inflateBuffer(const void* packed, std::int64_t packedBytes, void* out, std::int64_t outBytes,
                   std::int64_t* inflated = nullptr);

/// Up to so many bytes a reader allocates without asking whether the file can fill them.
inline constexpr std::int64_t kUnprovenBytes = 1 << 20;

/// Whether zlib's format can hold so many bytes in so few: a pair of length and distance has at
/// least 2 bits and makes 258 bytes at most. Few bytes (kUnprovenBytes) are always granted.
inline bool zipCanHold(std::int64_t packedBytes, std::int64_t bytes) {
    constexpr std::int64_t kMostRatio = 258 * 8 / 2;
    return bytes <= kUnprovenBytes || bytes / kMostRatio <= packedBytes;
}

}  // namespace nimbra
