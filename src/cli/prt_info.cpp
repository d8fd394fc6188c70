// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/prt_info.h"

#include <Imath/half.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <new>
#include <nlohmann/json.hpp>

#include "cache/bounded_reader.h"
#include "cli/cache_info.h"

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;
using PrtIO::PRTChannelDefinition;
using PrtIO::PrtFile;

template <class T>
double as(const unsigned char* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return static_cast<double>(value);
}

/// A value as the file means it, whatever its type.
double valueAt(int type, const unsigned char* at) {
    switch (type) {
        case PrtIO::kInt16:
            return as<std::int16_t>(at);
        case PrtIO::kInt32:
            return as<std::int32_t>(at);
        case PrtIO::kInt64:
            return as<std::int64_t>(at);
        case PrtIO::kFloat16: {
            std::uint16_t bits;
            std::memcpy(&bits, at, sizeof bits);
            return imath_half_to_float(bits);
        }
        case PrtIO::kFloat32:
            return as<float>(at);
        case PrtIO::kFloat64:
            return as<double>(at);
        case PrtIO::kUint16:
            return as<std::uint16_t>(at);
        case PrtIO::kUint32:
            return as<std::uint32_t>(at);
        case PrtIO::kUint64:
            return as<std::uint64_t>(at);
        case PrtIO::kInt8:
            return as<std::int8_t>(at);
        default:
            return as<std::uint8_t>(at);
    }
}

/// Calls f(component, value) for all components of all particles whose records are there.
template <class F>
void forEachValue(const PrtFile& file, const PRTChannelDefinition& c, std::int64_t particles,
                  F&& f) {
    const std::int64_t width = PrtIO::dataTypeWidth(c.type);
    const std::int64_t end = c.offset + width * c.arity;
    // Channels that overlap their neighbours are allowed, ones that leave the record aren't told.
    if (width == 0 || c.arity <= 0 || c.offset < 0 || end > file.recordSize)
        return;
    for (std::int64_t i = 0; i < particles; ++i)
        for (int k = 0; k < c.arity; ++k)
            f(k, valueAt(c.type, file.data + i * file.recordSize + c.offset + k * width));
}

bool isUsed(const PrtFile& file, int index) {
    const int type = file.channels[index].type;
    const bool readable =
        type == PrtIO::kInt64 || type == PrtIO::kFloat16 || type == PrtIO::kFloat32;
    for (const int place : {file.position, file.velocity, file.size, file.age, file.id})
        if (place == index)
            return readable;
    return false;
}

PrtChannelInfo describe(const PrtFile& file, int index, std::int64_t particles) {
    const PRTChannelDefinition& c = file.channels[index];
    PrtChannelInfo info{.name = printable(c.nameText()),
                        .type = PrtIO::dataTypeName(c.type),
                        .arity = c.arity,
                        .offset = c.offset,
                        .used = isUsed(file, index)};
    double sum = 0;
    std::int64_t finite = 0;
    forEachValue(file, c, particles, [&](int, double v) {
        if (!std::isfinite(v)) {
            ++info.notFinite;
            return;
        }
        info.min = finite ? std::min(info.min, v) : v;
        info.max = finite ? std::max(info.max, v) : v;
        sum += v;
        ++finite;
    });
    info.hasValues = finite > 0;
    info.mean = finite ? sum / static_cast<double>(finite) : 0;
    return info;
}

void findBounds(const PrtFile& file, std::int64_t particles, PrtFileInfo& info) {
    if (file.position < 0)
        return;
    std::array<bool, 3> known{};
    forEachValue(file, file.channels[file.position], particles, [&](int k, double v) {
        if (k > 2 || !std::isfinite(v))
            return;
        const auto a = static_cast<std::size_t>(k);
        info.low[a] = known[a] ? std::min(info.low[a], v) : v;
        info.high[a] = known[a] ? std::max(info.high[a], v) : v;
        known[a] = true;
    });
    info.hasBounds = known[0] && known[1] && known[2];
}

void describe(const PrtFile& file, bool values, PrtFileInfo& info) {
    info.header = file.header();
    info.header.identification = printable(info.header.identification);
    info.count = file.count;
    info.recordSize = file.recordSize;
    const std::int64_t whole =
        file.recordSize > 0 ? file.inflatedBytes() / file.recordSize : file.count;
    info.wholeParticles = std::clamp<std::int64_t>(whole, 0, std::max(file.count, 0));
    const std::int64_t asked = values ? info.wholeParticles : 0;
    for (std::int32_t i = 0; i < file.channels.size; ++i)
        info.channels.push_back(describe(file, i, asked));
    findBounds(file, asked, info);
}

std::string channelText(const PrtChannelInfo& c) {
    std::string text = fmt::format("  {:<16} {}{}", c.name, c.type,
                                   c.arity == 1 ? "" : fmt::format(" x {}", c.arity));
    if (c.hasValues)
        text += fmt::format(", {:.5g} to {:.5g}, mean {:.5g}", c.min, c.max, c.mean);
    if (c.notFinite)
        text += fmt::format(", {} not finite", c.notFinite);
    return text + (c.used ? "\n" : " (not used)\n");
}

Json channelJson(const PrtChannelInfo& c) {
    Json out{{"name", c.name},
             {"type", c.type},
             {"arity", c.arity},
             {"offset", c.offset},
             {"used", c.used}};
    if (c.hasValues) {
        out["min"] = c.min;
        out["max"] = c.max;
        out["mean"] = c.mean;
    }
    out["notFinite"] = c.notFinite;
    return out;
}

}  // namespace

PrtFileInfo readPrtInfo(const std::string& path, bool values) {
    PrtFileInfo info;
    info.path = path;
    try {
        PrtFile file;
        info.readable = file.load(path.c_str()) != 0;
        info.problem = file.problem();
        std::error_code error;
        const std::uintmax_t bytes = std::filesystem::file_size(path, error);
        info.bytes = error ? 0 : bytes;
        describe(file, values, info);
    } catch (const std::bad_alloc&) {
        info.readable = false;
        info.problem = "there isn't enough memory";
    }
    return info;
}

std::string infoText(const PrtFileInfo& file) {
    std::string text =
        fmt::format("{}: PRT {}, {} particles of {} bytes, {} on disk, {} in memory\n", file.path,
                    file.header.version, file.count, file.recordSize, sizeText(file.bytes),
                    sizeText(static_cast<std::uint64_t>(std::max(file.count, 0)) *
                             static_cast<std::uint64_t>(std::max(file.recordSize, 0))));
    if (!file.header.knownMagic)
        text += "  the magic number isn't that of a PRT file\n";
    text += fmt::format("  header of {} bytes: {}\n", file.header.headerLength,
                        file.header.identification);
    for (const PrtChannelInfo& c : file.channels)
        text += channelText(c);
    if (file.hasBounds)
        text += fmt::format("  bounds           ({:.6g} {:.6g} {:.6g}) to ({:.6g} {:.6g} {:.6g})\n",
                            file.low[0], file.low[1], file.low[2], file.high[0], file.high[1],
                            file.high[2]);
    if (!file.problem.empty())
        text +=
            fmt::format("  damaged: {}; {} whole particles\n", file.problem, file.wholeParticles);
    return text;
}

std::string infoJson(const PrtFileInfo& file) {
    Json out{{"file", file.path}, {"format", "prt"}, {"readable", file.readable}};
    if (!file.problem.empty())
        out["problem"] = file.problem;
    out["bytes"] = file.bytes;
    out["magic"] = file.header.knownMagic;
    out["headerLength"] = file.header.headerLength;
    out["identification"] = file.header.identification;
    out["version"] = file.header.version;
    out["statedParticles"] = file.header.particles;
    out["count"] = file.count;
    out["wholeParticles"] = file.wholeParticles;
    out["recordSize"] = file.recordSize;
    out["channels"] = Json::array();
    for (const PrtChannelInfo& c : file.channels)
        out["channels"].push_back(channelJson(c));
    out["low"] = file.hasBounds ? Json(file.low) : Json(nullptr);
    out["high"] = file.hasBounds ? Json(file.high) : Json(nullptr);
    return out.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace nimbra::cli
