// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Files with something wrong in them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

namespace nimbra::test {

/// One to six changes: a byte, a bit, a telling number, a piece cut out, doubled or moved.
inline std::string mutated(std::string bytes, std::mt19937_64& random) {
    static constexpr std::uint64_t kNumbers[] = {
        0,          1,          2,          0x7F,       0xFF,       0x7FFF,
        0xFFFF,     0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x40000000, 0x7FFFFFFFFFFFFFFF,
        1ull << 63, ~0ull,      1ull << 32, 4096};
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    for (std::size_t changes = 1 + pick(6); changes > 0 && bytes.size() > 64; --changes) {
        // Half of the changes go to the head, where the structure is dense.
        const std::size_t reach =
            pick(2) ? bytes.size() : std::min<std::size_t>(bytes.size(), 4096);
        const std::size_t at = pick(reach - 8);
        switch (pick(7)) {
            case 0:
                bytes[at] = static_cast<char>(random());
                break;
            case 1:
                bytes[at] = static_cast<char>(bytes[at] ^ (1 << pick(8)));
                break;
            case 2:
            case 3:
                std::memcpy(&bytes[at], &kNumbers[pick(std::size(kNumbers))], pick(2) ? 4 : 8);
                break;
            case 4:
                bytes.erase(at, 1 + pick(64));
                break;
            case 5:
                bytes.insert(at, bytes.substr(pick(bytes.size()), 1 + pick(64)));
                break;
            default: {
                const std::string piece = bytes.substr(pick(bytes.size()), 1 + pick(16));
                bytes.replace(at, piece.size(), piece);
                break;
            }
        }
    }
    if (pick(20) == 0)
        bytes.resize(pick(bytes.size()));
    return bytes;
}

}  // namespace nimbra::test
