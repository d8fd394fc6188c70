// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/bounded_reader.h"

namespace nimbra {

std::string printable(const std::string& text) {
    constexpr std::size_t kLongest = 256;
    std::string out = text.substr(0, kLongest);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return out;
}

}  // namespace nimbra
