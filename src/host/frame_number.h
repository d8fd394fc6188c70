// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The number of a frame to render, which may lie between two whole ones: slow motion and tests of
// motion blur ask for frame 12.25. Decimal, so that steps of 0.1 add up to whole frames again.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace nimbra::host {

class FrameNumber {
public:
    static constexpr int kMostDecimals = 6;
    /// Units of the last decimal in a frame.
    static constexpr std::int64_t kUnits = 1'000'000;

    /// A whole frame.
    constexpr FrameNumber(std::int64_t frame = 0) : units_(frame * kUnits) {}
    static constexpr FrameNumber ofUnits(std::int64_t units) {
        FrameNumber n;
        n.units_ = units;
        return n;
    }

    constexpr std::int64_t units() const { return units_; }
    /// The double next to it.
    constexpr double time() const { return static_cast<double>(units_) / kUnits; }
    constexpr bool isWhole() const { return units_ % kUnits == 0; }
    /// The whole frame at it or before it.
    constexpr std::int64_t whole() const {
        return units_ / kUnits - (units_ < 0 && !isWhole() ? 1 : 0);
    }
    /// How many digits it has behind the point.
    int decimals() const;
    /// "12.25". `width`: at least so many digits in front of the point, filled up with zeros;
    /// `decimals`: at least so many behind it.
    std::string text(int width = 0, int decimals = 0) const;

    // The linter takes the zero that such a comparison is defined by for a pointer.
    // NOLINTNEXTLINE(modernize-use-nullptr)
    friend constexpr auto operator<=>(const FrameNumber&, const FrameNumber&) = default;

private:
    std::int64_t units_;
};

}  // namespace nimbra::host
