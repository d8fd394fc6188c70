// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Pictures as OpenEXR files.
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFloatAttribute.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfFramesPerSecond.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfMatrixAttribute.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfStandardAttributes.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "host/atomic_file.h"
#include "host/picture.h"
#include "host/picture_formats.h"

namespace nimbra::host {

namespace {

constexpr int kBlockRows = 16;  // what the compression takes at once
constexpr std::int64_t kMostPixels = std::int64_t(1) << 28, kMostValues = 8 * kMostPixels;

bool isColor(const std::string& channel) {
    const std::size_t last = channel.size() - 1;
    return std::string("RGBA").find(channel[last]) != std::string::npos &&
           (last == 0 || channel[last - 1] == '.');
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

/// A file on its way to its place, as OpenEXR writes it. OpenEXR goes on after a fault, and hides
/// some: the first stays in `error`, and nothing is written any more.
class FileStream final : public Imf::OStream {
public:
    FileStream(const std::string& path, AtomicFile& file, std::string& error)
        : Imf::OStream(path.c_str()), file_(file), error_(error) {}

    void write(const char bytes[], int count) override {
        const auto size = static_cast<std::size_t>(count);
        check(error_.empty() && file_.write({bytes, size}, error_));
        place_ += size;
    }
    std::uint64_t tellp() override { return place_; }
    void seekp(std::uint64_t place) override {
        check(error_.empty() && file_.seek(place, error_));
        place_ = place;
    }

private:
    void check(bool done) const {
        if (!done)
            throw std::runtime_error(error_);
    }

    AtomicFile& file_;
    std::string& error_;
    std::uint64_t place_ = 0;
};

/// Some rows of a channel, in the type that files have for it.
class ChannelRows {
public:
    explicit ChannelRows(const PictureChannel& channel) : channel_(channel) {}

    const std::string& name() const { return channel_.name(); }
    Imf::PixelType type() const { return isColor(name()) ? Imf::HALF : Imf::FLOAT; }
    /// The rows of `place`, which begin with value `first`; valid until the next call.
    Imf::Slice read(std::size_t first, const Imath::Box2i& place) {
        const std::size_t count = std::size_t(place.size().x + 1) * std::size_t(place.size().y + 1);
        if (type() == Imf::FLOAT) {
            floats_.resize(count);
            for (std::size_t i = 0; i < count; ++i)
                floats_[i] = channel_.at(first + i);
            return Imf::Slice::Make(Imf::FLOAT, floats_.data(), place);
        }
        halves_.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            halves_[i] = channel_.halfAt(first + i);
        return Imf::Slice::Make(Imf::HALF, halves_.data(), place);
    }

private:
    const PictureChannel& channel_;
    std::vector<std::uint16_t> halves_;
    std::vector<float> floats_;
};

/// Block by block, so that no second picture stands beside the one that is written.
void writePixels(Imf::OStream& stream, const FrameBuffer& pixels, const PictureMetadata& metadata) {
    Imf::Header header = makeHeader(pixels, metadata);
    std::vector<ChannelRows> channels(pixels.channels.begin(), pixels.channels.end());
    for (const ChannelRows& channel : channels)
        header.channels().insert(channel.name(), Imf::Channel(channel.type()));
    Imf::OutputFile file(stream, header);
    const int end = pixels.y0 + pixels.height;
    for (int y = pixels.y0; y < end; y += kBlockRows) {
        const int rows = std::min(kBlockRows, end - y);
        const Imath::Box2i place({pixels.x0, y}, {pixels.x0 + pixels.width - 1, y + rows - 1});
        Imf::FrameBuffer frame;
        for (ChannelRows& channel : channels)
            frame.insert(channel.name(), channel.read(pixels.index(pixels.x0, y), place));
        file.setFrameBuffer(frame);
        file.writePixels(rows);
    }
}

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
    AtomicFile file(path);
    error.clear();
    if (!file.open(error))
        return false;
    try {
        FileStream stream(path, file, error);
        writePixels(stream, pixels, metadata);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        if (error.empty())
            error = path + ": " + fault.what();
    }
    return error.empty() && file.commit(error);
}

bool readExr(const std::string& path, Picture& picture, std::string& error) {
    try {
        Imf::InputFile file(path.c_str());
        const Imf::Header& header = file.header();
        const Imath::Box2i data = header.dataWindow(), display = header.displayWindow();
        const std::int64_t width = std::int64_t(data.max.x) - data.min.x + 1;
        const std::int64_t height = std::int64_t(data.max.y) - data.min.y + 1;
        std::vector<std::string> names;
        for (auto c = header.channels().begin(); c != header.channels().end(); ++c)
            if (std::string name = c.name();
                name != "R" && name != "G" && name != "B" && name != "A")
                names.push_back(name);
        const auto channels = static_cast<std::int64_t>(names.size()) + 4;
        if (width > kMostPixels || height > kMostPixels || width * height > kMostPixels ||
            width * height > kMostValues / channels) {
            error = path + ": too large";
            return false;
        }
        FrameBuffer& pixels = picture.pixels;
        pixels.resize(display.max.x + 1, display.max.y + 1, data.min.x, data.min.y,
                      static_cast<int>(width), static_cast<int>(height), names);
        Imf::FrameBuffer frame;
        for (PictureChannel& channel : pixels.channels)
            frame.insert(channel.name(), Imf::Slice::Make(Imf::FLOAT, channel.floats(), data));
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
