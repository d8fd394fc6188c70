// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/prt_file.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "cache/bounded_reader.h"
#include "cache/input_file.h"
#include "cache/zip_inflate.h"
#include "foundation/log.h"
#include "foundation/memory.h"

namespace PrtIO {
namespace {

using nimbra::BoundedReader;

constexpr std::int32_t kHeaderBlock = 56;

struct TypeInfo {
    const char* name;
    int width;
};
constexpr TypeInfo kTypes[] = {
    {"int16", 2},  {"int32", 4},  {"int64", 8},  {"float16", 2}, {"float32", 4}, {"float64", 8},
    {"uint16", 2}, {"uint32", 4}, {"uint64", 8}, {"int8", 1},    {"uint8", 1},
};

const TypeInfo* typeInfo(int type) {
    return type >= 0 && type < static_cast<int>(std::size(kTypes)) ? &kTypes[type] : nullptr;
}

bool readBlock(nimbra::InputFile& file, std::uint64_t& at, std::byte* out, std::size_t bytes) {
    if (!file.readAt(at, {out, bytes}))
        return false;
    at += bytes;
    return true;
}

void logNoMemory(double bytes) {
    NMBUtils::logLine("[ERROR] newArray failed to allocate %.0f\n", bytes);
}

}  // namespace

std::string PRTChannelDefinition::nameText() const {
    return {name, strnlen(name, sizeof name)};
}

int dataTypeWidth(int type) {
    const TypeInfo* const info = typeInfo(type);
    return info ? info->width : 0;
}

const char* dataTypeName(int type) {
    const TypeInfo* const info = typeInfo(type);
    return info ? info->name : "unknown";
}

float widenHalf(std::uint16_t half) {
    constexpr std::uint32_t kExponent = 0x7C000000, kSign = 0x80000000;
    // The exponents' biases, 127 and 15, are 112 apart.
    constexpr std::uint32_t kBias = 112u << 23;
    const std::uint32_t w = std::uint32_t(half) << 16;
    const std::uint32_t f = (((w >> 3) & 0x0FFFFFFF) | (w & kSign)) + kBias;
    if ((w & kExponent) == 0)
        return std::bit_cast<float>(f & kSign);
    if ((w & kExponent) == kExponent)
        return std::bit_cast<float>(f | 0x7F800000);
    return std::bit_cast<float>(f);
}

void PrtFile::clear() {
    recordSize = 0;
    count = 0;
    channels.Clear();
    NMBUtils::freeMem(std::exchange(data, nullptr));
    position = velocity = age = size = scale = id = orientation = color = -1;
    header_ = {};
    dataBytes_ = inflatedBytes_ = 0;
    problem_.clear();
}

bool PrtFile::fail(const char* problem) {
    problem_ = problem;
    return false;
}

int PrtFile::load(const char* path) {
    clear();
    if (!path)
        return 0;
    nimbra::InputFile file;
    std::uint64_t at = 0;
    if (!file.open(path)) {
        problem_ = file.problem();
        return 0;
    }
    if (!readHeader(file, at) || !readDefinitions(file, at) || !allocateData(file.size() - at))
        return 0;
    inflateData(file, at);
    count = static_cast<std::int32_t>(static_cast<std::uint64_t>(header_.particles));
    findChannels();
    return 1;
}

bool PrtFile::readHeader(nimbra::InputFile& file, std::uint64_t& at) {
    constexpr unsigned char kMagic[8] = {0xC0, 'P', 'R', 'T', '\r', '\n', 0x1A, '\n'};
    std::byte block[kHeaderBlock];
    if (!readBlock(file, at, block, sizeof block))
        return fail("ends inside its header");
    BoundedReader in(block);
    header_.knownMagic = std::memcmp(in.take(sizeof kMagic).data(), kMagic, sizeof kMagic) == 0;
    header_.headerLength = in.get<std::int32_t>();
    header_.identification = in.text(32).c_str();
    header_.version = in.get<std::int32_t>();
    header_.particles = in.get<std::int64_t>();
    const std::int64_t further = std::int64_t(header_.headerLength) - kHeaderBlock;
    if (header_.version >= 1 && further > 0)
        at += static_cast<std::uint64_t>(further);
    return true;
}

bool PrtFile::readDefinitions(nimbra::InputFile& file, std::uint64_t& at) {
    std::byte block[12];
    if (!readBlock(file, at, block, sizeof block))
        return fail("ends before its channels");
    BoundedReader in(block);
    in.skip(4);
    const auto stated = std::max(in.get<std::int32_t>(), 0);
    constexpr std::uint64_t kBytes = sizeof(PRTChannelDefinition);
    if (static_cast<std::uint64_t>(stated) > (file.size() - at) / kBytes)
        return fail("ends inside its channels");
    if (!channels.SetSize(stated, nullptr, true))
        return fail("needs more memory than there is");
    if (stated > 0 && !readBlock(file, at, reinterpret_cast<std::byte*>(channels.data),
                                 static_cast<std::size_t>(stated) * kBytes)) {
        channels.Clear();
        return fail("ends inside its channels");
    }
    return true;
}

bool PrtFile::allocateData(std::uint64_t packedBytes) {
    // Each term has 35 bits at most, and there are fewer than 2^31 of them: the sum can't overflow
    // before it leaves the range of a record.
    std::int64_t record = 0;
    for (const PRTChannelDefinition& c : channels) {
        record += std::int64_t(dataTypeWidth(c.type)) * c.arity;
        if (std::abs(record) > std::numeric_limits<std::int32_t>::max())
            return fail("has records of no sensible size");
    }
    const std::int64_t particles = header_.particles;
    std::uint64_t bytes = 0;
    if (particles < 0 || record < 0 ||
        !nimbra::checkedMultiply(static_cast<std::uint64_t>(particles),
                                 static_cast<std::uint64_t>(record), bytes) ||
        bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        logNoMemory(static_cast<double>(particles) * static_cast<double>(record));
        return fail("has particles of no sensible count");
    }
    // Lists take memory for particles without channels, too.
    const auto most =
        static_cast<std::int64_t>(std::max(bytes, static_cast<std::uint64_t>(particles)));
    if (nimbra::zipCanHold(static_cast<std::int64_t>(packedBytes), most))
        data = static_cast<unsigned char*>(
            NMBUtils::allocZeroedArrayStore(std::max<std::size_t>(bytes, 1)));
    if (!data) {
        logNoMemory(static_cast<double>(bytes));
        return fail("states more particles than it can hold");
    }
    recordSize = static_cast<std::int32_t>(record);
    dataBytes_ = static_cast<std::int64_t>(bytes);
    return true;
}

namespace {

/// All of the stream's input into what is left of the output; zlib counts that in 32 bits.
int inflatePiece(z_stream& stream, std::int64_t dataBytes) {
    int code = Z_OK;
    do {
        const std::int64_t left = dataBytes - static_cast<std::int64_t>(stream.total_out);
        stream.avail_out =
            static_cast<uInt>(std::min<std::int64_t>(left, std::numeric_limits<uInt>::max()));
        code = inflate(&stream, Z_SYNC_FLUSH);
    } while (code == Z_OK && stream.avail_in > 0 && stream.avail_out == 0 &&
             static_cast<std::int64_t>(stream.total_out) < dataBytes);
    return code;
}

}  // namespace

void PrtFile::inflateData(nimbra::InputFile& file, std::uint64_t at) {
    constexpr std::uint64_t kPiece = 100000;
    const std::unique_ptr<std::byte[]> piece(new (std::nothrow) std::byte[kPiece]);
    z_stream stream = {};
    if (!piece || inflateInit_(&stream, "1.2.8", sizeof stream) != Z_OK)
        return;
    stream.next_out = data;
    int code = Z_OK;
    while (code == Z_OK && at < file.size()) {
        const std::uint64_t bytes = std::min(kPiece, file.size() - at);
        if (!readBlock(file, at, piece.get(), bytes))
            break;
        stream.next_in = reinterpret_cast<Bytef*>(piece.get());
        stream.avail_in = static_cast<uInt>(bytes);
        code = inflatePiece(stream, dataBytes_);
    }
    inflatedBytes_ = static_cast<std::int64_t>(stream.total_out);
    inflateEnd(&stream);
    if (code != Z_OK && code != Z_STREAM_END) {
        NMBUtils::logLine("[ERROR] Decompressing Zip (%d)\n", code);
        fail("has a damaged stream of particles");
    } else if (inflatedBytes_ < dataBytes_) {
        fail("ends inside its particles");
    }
}

void PrtFile::findChannels() {
    const std::pair<const char*, std::int32_t*> wanted[] = {{"Position", &position},
                                                            {"Velocity", &velocity},
                                                            {"Size", &size},
                                                            {"Scale", &scale},
                                                            {"Age", &age},
                                                            {"ID", &id},
                                                            {"Orientation", &orientation},
                                                            {"Color", &color}};
    for (const auto& [name, place] : wanted)
        for (std::int32_t i = 0; i < channels.size && *place < 0; ++i)
            if (std::strncmp(channels[i].name, name, sizeof channels[i].name) == 0)
                *place = i;
}

int PrtFile::readChannel(int channelIndex, int particle, void* out, std::size_t outBytes) const {
    if (channelIndex < 0 || channelIndex >= channels.size || particle < 0 || particle >= count)
        return 0;
    const PRTChannelDefinition& c = channels[channelIndex];
    const bool half = c.type == kFloat16;
    if ((c.type != kInt64 && c.type != kFloat32 && !half) || c.arity < 0)
        return 0;
    const std::int64_t widthOut = half ? sizeof(float) : dataTypeWidth(c.type);
    const auto room = static_cast<std::int64_t>(outBytes);
    const std::int64_t written = std::min(c.arity * widthOut, room);
    const std::int64_t read = half ? written / 2 : written;
    const std::int64_t at = std::int64_t(recordSize) * particle + c.offset;
    if (at < 0 || at > dataBytes_ - read)
        return 0;
    if (!half) {
        std::memcpy(out, data + at, static_cast<std::size_t>(written));
        return 1;
    }
    for (std::int64_t i = 0; i * 4 + 4 <= written; ++i) {
        std::uint16_t pattern;
        std::memcpy(&pattern, data + at + i * 2, sizeof pattern);
        const float value = widenHalf(pattern);
        std::memcpy(static_cast<unsigned char*>(out) + i * 4, &value, sizeof value);
    }
    return 1;
}

}  // namespace PrtIO
