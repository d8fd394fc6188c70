// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/frame_number.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

namespace nimbra::host {

int FrameNumber::decimals() const {
    int count = kMostDecimals;
    for (std::int64_t rest = std::abs(units_ % kUnits); count > 0 && rest % 10 == 0; rest /= 10)
        --count;
    return count;
}

std::string FrameNumber::text(int width, int decimals) const {
    const std::int64_t size = std::abs(units_);
    std::string text = fmt::format("{}{:0{}}", units_ < 0 ? "-" : "", size / kUnits, width);
    const int digits = std::min(std::max(decimals, this->decimals()), kMostDecimals);
    if (digits > 0)
        text += "." + fmt::format("{:0{}}", size % kUnits, kMostDecimals).substr(0, digits);
    return text;
}

}  // namespace nimbra::host
