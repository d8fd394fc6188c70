// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/picture_size.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace nimbra::cli {
namespace {

struct Number {
    double value;
    bool percent;
};

// A number with an optional "%" at the front of `text`, which is cut off there.
bool takeNumber(std::string_view& text, Number& out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out.value);
    if (error != std::errc() || !std::isfinite(out.value))
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    out.percent = !text.empty() && text.front() == '%';
    if (out.percent)
        text.remove_prefix(1);
    return true;
}

bool takeChar(std::string_view& text, char c) {
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

int toPixels(const Number& n, int full) {
    const double pixels = n.percent ? n.value * 0.01 * full : n.value;
    return static_cast<int>(std::lround(std::clamp(pixels, -1e9, 1e9)));
}

bool isPixelCount(const Number& n) {
    return !n.percent && n.value >= 1 && n.value <= kMaxPictureSide &&
           n.value == std::floor(n.value);
}

}  // namespace

PictureSize parseSize(const std::string& text, PictureSize full) {
    std::string_view rest = text;
    Number w{}, h{};
    if (takeNumber(rest, w)) {
        if (w.percent && rest.empty() && w.value > 0 && w.value <= 10000)
            return {std::clamp(toPixels(w, full.width), 1, kMaxPictureSide),
                    std::clamp(toPixels(w, full.height), 1, kMaxPictureSide)};
        if (isPixelCount(w) && takeChar(rest, 'x') && takeNumber(rest, h) && isPixelCount(h) &&
            rest.empty())
            return {static_cast<int>(w.value), static_cast<int>(h.value)};
    }
    throw PictureSizeError(fmt::format(
        "size '{}': allowed are WIDTHxHEIGHT with sides from 1 to {}, or a share like 50%", text,
        kMaxPictureSide));
}

PictureCrop parseCrop(const std::string& text, PictureSize full) {
    std::string_view rest = text;
    Number n[4]{};
    for (int i = 0; i < 4; ++i)
        if ((i > 0 && !takeChar(rest, ',')) || !takeNumber(rest, n[i]))
            rest = "?";
    if (!rest.empty())
        throw PictureSizeError(
            fmt::format("crop '{}': allowed are x0,y0,x1,y1 in pixels or %", text));
    const PictureCrop crop{std::max(toPixels(n[0], full.width), 0),
                           std::max(toPixels(n[1], full.height), 0),
                           std::min(toPixels(n[2], full.width), full.width),
                           std::min(toPixels(n[3], full.height), full.height)};
    if (crop.x0 >= crop.x1 || crop.y0 >= crop.y1)
        throw PictureSizeError(fmt::format("crop '{}' leaves nothing of a picture of {}x{}", text,
                                           full.width, full.height));
    return crop;
}

}  // namespace nimbra::cli
