// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: channels of a particle group in any bytes, by all methods. The first four bytes say
// how many particles, the channel, the method; the rest is the stored channel.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "cache/prt_group.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHead = 4;
    if (size < kHead)
        return 0;
    using nimbra::NimbraFrameData;
    constexpr int kChannels[] = {0, 2, 6, 10, 17, 31};
    NimbraFrameData::PGroup group;
    // A constant may fill any count in a few bytes: it has to stay small here.
    group.count = data[0] | (data[1] & 15) << 8;
    const int channel = kChannels[data[2] % std::size(kChannels)];
    const int method = data[3] % 7 - 1;
    const std::span bytes = std::span(data, size).subspan(kHead);
    if (!group.allocatePacked(channel, method, static_cast<std::int64_t>(bytes.size())))
        return 0;
    if (!bytes.empty())
        std::memcpy(group.store[channel].packed.data, bytes.data(), bytes.size());
    unsigned char out[12];
    for (const int i : {-1, 0, group.count / 2, group.count - 1, group.count})
        group.getValue(i, channel, out);
    group.findById(0x0102030405060708);
    group.setPlanar(nimbra::kPrtColor, std::as_bytes(bytes));
    group.channelData(nimbra::kPrtColor);
    return 0;
}
