// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Pictures as files: OpenEXR for further work, PNG to look at.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "host/camera.h"
#include "host/frame_buffer.h"

namespace nimbra::host {

using MetadataValue = std::variant<std::string, int, float, Matrix44>;

/// What goes into a file beside the pixels.
struct PictureMetadata {
    /// Written as they are; a matrix goes in as 16 floats.
    std::map<std::string, MetadataValue> values;
    float framesPerSecond = 24;
    float pixelAspect = 1;
};

enum class PngAlpha {
    Keep,   // transparent where nothing was met
    Opaque  // the picture over black
};

struct PngOptions {
    PngAlpha alpha = PngAlpha::Opaque;
    bool filmic = false;  // compress bright parts in place of cutting them off
    float exposure = 0;   // in stops
};

/// OpenEXR: channels R G B A in half, layers in half if their names end in .R .G .B or .A and in
/// float otherwise; ZIP, linear with sRGB primaries. The data window is the part that is held, the
/// display window the whole picture. Written atomically; on failure `error` is "path: reason".
bool writeExr(const std::string& path, const FrameBuffer& pixels, const PictureMetadata& metadata,
              std::string& error);

/// PNG: 8 bits, sRGB. The part that is held, cut to its size; layers are left out. With alpha the
/// colours are made such that the picture over black looks the same as an opaque one: light that
/// comes without opacity (fire) raises the alpha.
bool writePng(const std::string& path, const FrameBuffer& pixels, const PngOptions& options,
              std::string& error);

/// A picture that was read back.
struct Picture {
    FrameBuffer pixels;  // of a PNG: the stored values / 255, not made linear
    std::map<std::string, std::string> attributes;  // in text form
};

/// Reads an EXR or PNG file. False with `error` when it is broken or incomplete.
bool readPicture(const std::string& path, Picture& picture, std::string& error);

/// One linear value to the display, 0 to 1: exposure is already in it.
float displayValue(float linear, bool filmic);

}  // namespace nimbra::host
