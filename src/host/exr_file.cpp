// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Pictures as OpenEXR files.
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFloatAttribute.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfFramesPerSecond.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfMatrixAttribute.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfStandardAttributes.h>
#include <OpenEXR/ImfStdIO.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/atomic_file.h"
#include "host/picture.h"
#include "host/picture_formats.h"

namespace nimbra::host {

namespace {

constexpr float kLargestHalf = 65504;
constexpr std::int64_t kMostPixels = std::int64_t(1) << 28;

bool isColorChannel(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot != std::string::npos && name.size() == dot + 2 &&
           std::string("RGBA").find(name[dot + 1]) != std::string::npos;
}

half toHalf(float value) {
    // What doesn't fit would become infinite.
    return half(std::clamp(value, -kLargestHalf, kLargestHalf));
}

struct InsertAttribute {
    Imf::Header& header;
    const std::string& name;

    void operator()(const std::string& v) const { header.insert(name, Imf::StringAttribute(v)); }
    void operator()(int v) const { header.insert(name, Imf::IntAttribute(v)); }
    void operator()(float v) const { header.insert(name, Imf::FloatAttribute(v)); }
    void operator()(const Matrix44& v) const {
        Imath::M44f m;
        for (int i = 0; i < 16; ++i)
            // Adding zero turns a negative one positive: it reads better.
            m[i / 4][i % 4] = static_cast<float>(v[static_cast<std::size_t>(i)]) + 0.0f;
        header.insert(name, Imf::M44fAttribute(m));
    }
};

Imf::Header makeHeader(const FrameBuffer& pixels, const PictureMetadata& metadata) {
    using Imath::Box2i;
    using Imath::V2i;
    const Box2i display(V2i(0, 0), V2i(pixels.fullWidth - 1, pixels.fullHeight - 1));
    const Box2i data(V2i(pixels.x0, pixels.y0),
                     V2i(pixels.x0 + pixels.width - 1, pixels.y0 + pixels.height - 1));
    Imf::Header header(display, data, metadata.pixelAspect);
    header.compression() = Imf::ZIP_COMPRESSION;
    // Those of Rec. 709 and sRGB.
    Imf::addChromaticities(header, Imf::Chromaticities());
    Imf::addFramesPerSecond(header, Imf::guessExactFps(metadata.framesPerSecond));
    for (const auto& [name, value] : metadata.values)
        std::visit(InsertAttribute{header, name}, value);
    return header;
}

/// The picture's channels in the order of their memory, each with its own type.
class ChannelStore {
public:
    explicit ChannelStore(const FrameBuffer& pixels) : pixels_(pixels) {
        colors_.reserve(pixels.rgba.size());
        for (const float value : pixels.rgba)
            colors_.push_back(toHalf(value));
    }

    void add(Imf::Header& header, Imf::FrameBuffer& frame) {
        for (int c = 0; c < 4; ++c)
            insert(header, frame, std::string(1, "RGBA"[c]), Imf::HALF, colors_.data() + c, 4);
        const std::size_t stride = pixels_.layerNames.size();
        // Pointers into it are handed out: it must not move.
        halves_.reserve(stride);
        for (std::size_t layer = 0; layer < stride; ++layer) {
            const std::string& name = pixels_.layerNames[layer];
            if (!isColorChannel(name)) {
                auto* first = const_cast<float*>(pixels_.layers.data() + layer);
                insert(header, frame, name, Imf::FLOAT, first, stride);
                continue;
            }
            std::vector<half>& values = halves_.emplace_back();
            for (std::size_t i = layer; i < pixels_.layers.size(); i += stride)
                values.push_back(toHalf(pixels_.layers[i]));
            insert(header, frame, name, Imf::HALF, values.data(), 1);
        }
    }

private:
    template <class T>
    void insert(Imf::Header& header, Imf::FrameBuffer& frame, const std::string& name,
                Imf::PixelType type, T* first, std::size_t stride) {
        header.channels().insert(name, Imf::Channel(type));
        frame.insert(
            name, Imf::Slice::Make(type, first, header.dataWindow(), stride * sizeof(T),
                                   stride * sizeof(T) * static_cast<std::size_t>(pixels_.width)));
    }

    const FrameBuffer& pixels_;
    std::vector<half> colors_;
    std::vector<std::vector<half>> halves_;
};

std::string textOf(const Imf::Attribute& attribute) {
    if (const auto* s = dynamic_cast<const Imf::StringAttribute*>(&attribute))
        return s->value();
    if (const auto* i = dynamic_cast<const Imf::IntAttribute*>(&attribute))
        return std::to_string(i->value());
    if (const auto* f = dynamic_cast<const Imf::FloatAttribute*>(&attribute))
        return fmt::format("{}", f->value());
    if (const auto* r = dynamic_cast<const Imf::RationalAttribute*>(&attribute))
        return fmt::format("{}/{}", r->value().n, r->value().d);
    if (const auto* m = dynamic_cast<const Imf::M44fAttribute*>(&attribute)) {
        std::string text;
        for (int i = 0; i < 16; ++i)
            text += fmt::format("{}{}", i ? " " : "", m->value()[i / 4][i % 4]);
        return text;
    }
    return "";
}

}  // namespace

bool writeExr(const std::string& path, const FrameBuffer& pixels, const PictureMetadata& metadata,
              std::string& error) {
    try {
        Imf::StdOSStream stream;
        {
            Imf::Header header = makeHeader(pixels, metadata);
            Imf::FrameBuffer frame;
            ChannelStore store(pixels);
            store.add(header, frame);
            Imf::OutputFile file(stream, header);
            file.setFrameBuffer(frame);
            file.writePixels(pixels.height);
        }
        return writeFileAtomically(path, stream.str(), error);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        error = path + ": " + fault.what();
        return false;
    }
}

bool readExr(const std::string& path, Picture& picture, std::string& error) {
    try {
        Imf::InputFile file(path.c_str());
        const Imf::Header& header = file.header();
        const Imath::Box2i data = header.dataWindow(), display = header.displayWindow();
        const std::int64_t width = std::int64_t(data.max.x) - data.min.x + 1;
        const std::int64_t height = std::int64_t(data.max.y) - data.min.y + 1;
        if (width > kMostPixels || height > kMostPixels || width * height > kMostPixels) {
            error = path + ": too large";
            return false;
        }
        std::vector<std::string> names;
        for (auto c = header.channels().begin(); c != header.channels().end(); ++c)
            if (std::string name = c.name();
                name != "R" && name != "G" && name != "B" && name != "A")
                names.push_back(name);
        FrameBuffer& pixels = picture.pixels;
        pixels.resize(display.max.x + 1, display.max.y + 1, data.min.x, data.min.y,
                      static_cast<int>(width), static_cast<int>(height), names);
        Imf::FrameBuffer frame;
        const auto insert = [&](const std::string& name, float* first, std::size_t stride) {
            frame.insert(
                name, Imf::Slice::Make(Imf::FLOAT, first, data, stride * sizeof(float),
                                       stride * sizeof(float) * static_cast<std::size_t>(width)));
        };
        for (int c = 0; c < 4; ++c)
            insert(std::string(1, "RGBA"[c]), pixels.rgba.data() + c, 4);
        for (std::size_t layer = 0; layer < names.size(); ++layer)
            insert(names[layer], pixels.layers.data() + layer, names.size());
        file.setFrameBuffer(frame);
        file.readPixels(data.min.y, data.max.y);
        for (auto a = header.begin(); a != header.end(); ++a)
            picture.attributes[a.name()] = textOf(a.attribute());
        return true;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        error = path + ": " + fault.what();
        return false;
    }
}

}  // namespace nimbra::host
