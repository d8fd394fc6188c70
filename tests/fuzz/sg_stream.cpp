// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: any bytes as a compressed stream. The first three say whether it is a sequence or a
// box, and how many floats there is room for.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "cache/sg_compressor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHead = 3;
    if (size < kHead)
        return 0;
    // Exactly as long as stated, so that a write beyond it is seen.
    std::vector<float> out(static_cast<std::size_t>(data[1] | (data[2] & 15) << 8));
    const std::vector<std::uint8_t> stream(data + kHead, data + size);
    if (data[0] & 1)
        NMBUtils::SGCompressor<1>().Decode(stream.data(), stream.size(), out.data(), out.size());
    else
        NMBUtils::SGCompressor<3>().Decode(stream.data(), stream.size(), out.data(), out.size());
    return 0;
}
