// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Pictures as PNG files, by the simplified interface of libpng.
#include <png.h>

#include <algorithm>
#include <cmath>

#include "host/atomic_file.h"
#include "host/file_bytes.h"
#include "host/picture.h"
#include "host/picture_formats.h"

namespace nimbra::host {

namespace {

constexpr std::size_t kMostPngBytes = std::size_t(1) << 30;
constexpr std::uint64_t kMostPixels = std::uint64_t(1) << 28;

/// A picture's description, and what libpng hangs on it.
struct PngImage {
    png_image image{};
    PngImage(png_uint_32 width, png_uint_32 height, png_uint_32 format) {
        image.version = PNG_IMAGE_VERSION;
        image.width = width;
        image.height = height;
        image.format = format;
    }
    ~PngImage() { png_image_free(&image); }
    PngImage(const PngImage&) = delete;
    PngImage& operator=(const PngImage&) = delete;
};

/// Transfer curve of sRGB (IEC 61966-2-1).
float encodeSRGB(float linear) {
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f;
}

std::uint8_t toByte(float value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255));
}

/// One pixel, colours and alpha.
void encodePixel(const std::array<float, 4>& rgba, const PngOptions& options, float exposure,
                 std::uint8_t* out) {
    float shown[3];
    for (int c = 0; c < 3; ++c)
        shown[c] = displayValue(rgba[c] * exposure, options.filmic);
    if (options.alpha == PngAlpha::Opaque) {
        for (int c = 0; c < 3; ++c)
            out[c] = toByte(shown[c]);
        return;
    }
    // Stored colours count in full, so that colour times alpha has to give what is shown.
    const float covered = rgba[3] > 0 ? std::min(rgba[3], 1.0f) : 0.0f;
    const float alpha = std::max({covered, shown[0], shown[1], shown[2]});
    for (int c = 0; c < 3; ++c)
        out[c] = alpha > 0 ? toByte(shown[c] / alpha) : 0;
    out[3] = toByte(alpha);
}

}  // namespace

float displayValue(float linear, bool filmic) {
    if (!(linear > 0))
        return 0;
    linear = std::min(linear, 1e6f);
    if (filmic)  // K. Narkowicz, "ACES Filmic Tone Mapping Curve" (2015)
        linear = linear * (2.51f * linear + 0.03f) / (linear * (2.43f * linear + 0.59f) + 0.14f);
    return encodeSRGB(std::min(linear, 1.0f));
}

bool writePng(const std::string& path, const FrameBuffer& pixels, const PngOptions& options,
              std::string& error) {
    const int channels = options.alpha == PngAlpha::Keep ? 4 : 3;
    const float exposure = std::exp2(options.exposure);
    std::vector<std::uint8_t> bytes(std::size_t(pixels.width) * std::size_t(pixels.height) *
                                    static_cast<std::size_t>(channels));
    std::uint8_t* next = bytes.data();
    for (int y = pixels.y0; y < pixels.y0 + pixels.height; ++y)
        for (int x = pixels.x0; x < pixels.x0 + pixels.width; ++x, next += channels)
            encodePixel(pixels.pixel(x, y), options, exposure, next);

    PngImage png(static_cast<png_uint_32>(pixels.width), static_cast<png_uint_32>(pixels.height),
                 channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB);
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png.image);
    std::string file(size, '\0');
    if (!png_image_write_to_memory(&png.image, file.data(), &size, 0, bytes.data(), 0, nullptr)) {
        error = path + ": " + png.image.message;
        return false;
    }
    file.resize(size);
    return writeFileAtomically(path, file, error);
}

bool readPng(const std::string& path, Picture& picture, std::string& error) {
    std::string file;
    if (!readFileBytes(path, kMostPngBytes, file, error))
        return false;
    PngImage png(0, 0, 0);
    png_image& image = png.image;
    if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) {
        error = path + ": " + image.message;
        return false;
    }
    if (std::uint64_t(image.width) * image.height > kMostPixels) {
        error = path + ": too large";
        return false;
    }
    image.format = PNG_FORMAT_RGBA;
    std::vector<std::uint8_t> bytes(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr)) {
        error = path + ": " + image.message;
        return false;
    }
    const int width = static_cast<int>(image.width), height = static_cast<int>(image.height);
    picture.pixels.resize(width, height, 0, 0, width, height);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        picture.pixels.channels[i % 4].set(i / 4, static_cast<float>(bytes[i]) / 255);
    return true;
}

bool readPicture(const std::string& path, Picture& picture, std::string& error) {
    if (path.ends_with(".exr"))
        return readExr(path, picture, error);
    if (path.ends_with(".png"))
        return readPng(path, picture, error);
    error = path + ": the name must end in .exr or .png";
    return false;
}

}  // namespace nimbra::host
