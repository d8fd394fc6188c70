// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Sizes and crops as users write them.
#pragma once

#include <stdexcept>
#include <string>

namespace nimbra::cli {

/// A size or crop that can't be followed; what() says what is allowed.
struct PictureSizeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline constexpr int kMaxPictureSide = 65536;

struct PictureSize {
    int width = 0, height = 0;
    bool operator==(const PictureSize&) const = default;
};

/// "960x540" as it stands, or "50%" of `full` (at least one pixel). Throws PictureSizeError.
PictureSize parseSize(const std::string& text, PictureSize full);

/// A part of the picture in pixels; x1 and y1 lie just outside it.
struct PictureCrop {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool operator==(const PictureCrop&) const = default;
};

/// "x0,y0,x1,y1" in pixels, or each with "%" of `full`; cut to the picture. Throws
/// PictureSizeError, also when nothing of the picture is left.
PictureCrop parseCrop(const std::string& text, PictureSize full);

}  // namespace nimbra::cli
