// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Pictures as PNG files, by OpenImageIO.
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>

#include "host/atomic_file.h"
#include "host/picture.h"
#include "host/picture_formats.h"

namespace nimbra::host {

namespace {

/// Transfer curve of sRGB (IEC 61966-2-1).
float encodeSRGB(float linear) {
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f;
}

std::uint8_t toByte(float value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255));
}

/// One pixel, colours and alpha.
void encodePixel(const float* rgba, const PngOptions& options, float exposure, std::uint8_t* out) {
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
    std::vector<std::uint8_t> bytes(pixels.rgba.size() / 4 * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < pixels.rgba.size() / 4; ++i)
        encodePixel(&pixels.rgba[i * 4], options, exposure,
                    &bytes[i * static_cast<std::size_t>(channels)]);

    std::vector<unsigned char> file;
    OIIO::Filesystem::IOVecOutput sink(file);
    OIIO::ImageSpec spec(pixels.width, pixels.height, channels, OIIO::TypeDesc::UINT8);
    spec.attribute("oiio:ColorSpace", "sRGB");
    spec.attribute("oiio:UnassociatedAlpha", 1);
    spec.attribute("png:compressionLevel", 6);
    auto output = OIIO::ImageOutput::create("png", &sink);
    if (!output || !output->open(path, spec) ||
        !output->write_image(OIIO::TypeDesc::UINT8, bytes.data()) || !output->close()) {
        error = path + ": " + (output ? output->geterror() : OIIO::geterror());
        return false;
    }
    return writeFileAtomically(path, {reinterpret_cast<const char*>(file.data()), file.size()},
                               error);
}

bool readPng(const std::string& path, Picture& picture, std::string& error) {
    OIIO::ImageSpec wanted;
    wanted.attribute("oiio:UnassociatedAlpha", 1);  // the values as they are stored
    const auto input = OIIO::ImageInput::open(path, &wanted);
    if (!input) {
        error = path + ": " + OIIO::geterror();
        return false;
    }
    const OIIO::ImageSpec& spec = input->spec();
    FrameBuffer& pixels = picture.pixels;
    if (spec.nchannels < 1 || spec.nchannels > 4 ||
        spec.image_pixels() > (OIIO::imagesize_t(1) << 28)) {
        error = path + ": too large";
        return false;
    }
    std::vector<std::uint8_t> bytes(spec.image_pixels() * static_cast<std::size_t>(spec.nchannels));
    if (!input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, bytes.data())) {
        error = path + ": " + input->geterror();
        return false;
    }
    pixels.resize(spec.width, spec.height, 0, 0, spec.width, spec.height, {});
    for (std::size_t i = 0; i < pixels.rgba.size(); ++i) {
        const std::size_t pixel = i / 4;
        const int c = static_cast<int>(i % 4);
        // One or two channels are grey, with or without alpha.
        const bool grey = spec.nchannels < 3;
        const bool hasAlpha = spec.nchannels == 2 || spec.nchannels == 4;
        const int stored = c == 3 ? spec.nchannels - 1 : grey ? 0 : c;
        pixels.rgba[i] =
            c == 3 && !hasAlpha
                ? 1.0f
                : bytes[pixel * static_cast<std::size_t>(spec.nchannels) + stored] / 255.0f;
    }
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
