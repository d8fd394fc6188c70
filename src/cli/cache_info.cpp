// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/cache_info.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;

template <class T>
std::string triple(const std::array<T, 3>& v) {
    return fmt::format("{} {} {}", v[0], v[1], v[2]);
}

std::string valueText(const std::array<double, 3>& v, int components) {
    if (components == 1)
        return fmt::format("{:.5g}", v[0]);
    return fmt::format("({:.4g}, {:.4g}, {:.4g})", v[0], v[1], v[2]);
}

// Texts of a file may hold anything.
std::string printable(const std::string& text) {
    std::string out = text.substr(0, 256);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '?';
    return out;
}

std::string rangeText(const VdbGridInfo& g) {
    if (!g.hasValues || g.empty())
        return "";
    std::string text = valueText(g.min, g.components) + " to " + valueText(g.max, g.components) +
                       ", mean " + valueText(g.mean, g.components);
    if (g.nanCount || g.infiniteCount)
        text += fmt::format(", {} NaN, {} infinite", g.nanCount, g.infiniteCount);
    return text;
}

std::string pointsText(const VdbGridInfo& g) {
    std::string text = fmt::format("  {:<16} {} points\n", printable(g.name), g.points);
    for (const auto& [name, type] : g.attributes)
        text += fmt::format("    {:<20} {}\n", name, type);
    return text + fmt::format("    size     {} on disk\n", sizeText(g.bytesOnDisk));
}

std::string gridText(const VdbGridInfo& g) {
    if (g.points >= 0)
        return pointsText(g);
    const std::string name = printable(g.name);
    if (!g.readable)
        return fmt::format("  {:<16} {}: not readable: {}\n", name,
                           printable(g.valueType.empty() ? g.treeType : g.valueType),
                           printable(g.problem));
    std::string text = fmt::format("  {:<16} {}{}, {}", name, g.valueType,
                                   g.halfFloats ? " (half)" : "", g.gridClass);
    if (g.empty())
        return text + ", empty\n";
    text += fmt::format("\n    active   {} voxels in ({}) to ({}), {} leaves\n", g.activeVoxels,
                        triple(g.low), triple(g.high), g.leafNodes);
    if (const std::string range = rangeText(g); !range.empty())
        text += "    values   " + range + "\n";
    text += fmt::format("    voxel    {:.6g} {:.6g} {:.6g}, cell 0 at ({:.6g} {:.6g} {:.6g}), {}\n",
                        g.voxelSize[0], g.voxelSize[1], g.voxelSize[2], g.toWorld[3][0],
                        g.toWorld[3][1], g.toWorld[3][2], g.transformType);
    return text + fmt::format("    size     {} on disk ({}), {} in memory\n",
                              sizeText(g.bytesOnDisk), g.compression, sizeText(g.bytesInMemory));
}

Json numbersJson(const std::array<double, 3>& v, int components) {
    const auto one = [](double x) -> Json {
        return std::isfinite(x) ? Json(x)
               : std::isnan(x)  ? Json("nan")
                                : Json(x > 0 ? "inf" : "-inf");
    };
    if (components == 1)
        return one(v[0]);
    return Json::array({one(v[0]), one(v[1]), one(v[2])});
}

// Invalid UTF-8 of a file must not end the listing.
std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json metadataJson(const std::vector<std::pair<std::string, std::string>>& metadata) {
    Json out = Json::object();
    for (const auto& [name, value] : metadata)
        out[name] = value;
    return out;
}

Json gridJson(const VdbGridInfo& g) {
    Json out{
        {"name", g.name}, {"type", g.valueType}, {"class", g.gridClass}, {"readable", g.readable}};
    if (g.points >= 0) {
        out["points"] = g.points;
        out["attributes"] = metadataJson(g.attributes);
    }
    if (!g.readable) {
        out["problem"] = g.problem;
        return out;
    }
    out["halfFloats"] = g.halfFloats;
    out["compression"] = g.compression;
    out["activeVoxels"] = g.activeVoxels;
    out["low"] = g.empty() ? Json(nullptr) : Json(g.low);
    out["high"] = g.empty() ? Json(nullptr) : Json(g.high);
    if (g.hasValues && !g.empty()) {
        out["min"] = numbersJson(g.min, g.components);
        out["max"] = numbersJson(g.max, g.components);
        out["mean"] = numbersJson(g.mean, g.components);
        out["nan"] = g.nanCount;
        out["infinite"] = g.infiniteCount;
    }
    out["background"] = numbersJson(g.background, g.components);
    out["transform"] = {
        {"type", g.transformType}, {"linear", g.linear}, {"indexToWorld", g.toWorld}};
    out["bytesOnDisk"] = g.bytesOnDisk;
    out["bytesInMemory"] = g.bytesInMemory;
    out["metadata"] = metadataJson(g.metadata);
    return out;
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
    const char* const units[] = {"B", "KB", "MB", "GB", "TB"};
    double v = static_cast<double>(bytes);
    int unit = 0;
    for (; v >= 1024 && unit < 4; ++unit)
        v /= 1024;
    return unit == 0 ? fmt::format("{} B", bytes) : fmt::format("{:.1f} {}", v, units[unit]);
}

std::string infoText(const VdbFileInfo& file) {
    std::uint64_t memory = 0;
    for (const VdbGridInfo& g : file.grids)
        memory += g.bytesInMemory;
    std::string text =
        fmt::format("{}: OpenVDB {}, {} grids, {} on disk, {} in memory\n", file.path,
                    file.formatVersion, file.grids.size(), sizeText(file.bytes), sizeText(memory));
    for (const auto& [name, value] : file.metadata)
        text += fmt::format("  {} = {}\n", printable(name), printable(value));
    for (const VdbGridInfo& g : file.grids)
        text += gridText(g);
    if (!file.readable)
        text += fmt::format("  damaged: {}\n", printable(file.problem));
    return text;
}

std::string infoJson(const VdbFileInfo& file) {
    Json out{{"file", file.path}, {"format", "vdb"}, {"readable", file.readable}};
    if (!file.readable)
        out["problem"] = file.problem;
    out["bytes"] = file.bytes;
    out["formatVersion"] = file.formatVersion;
    out["metadata"] = metadataJson(file.metadata);
    out["grids"] = Json::array();
    for (const VdbGridInfo& g : file.grids)
        out["grids"].push_back(gridJson(g));
    return dump(out);
}

}  // namespace nimbra::cli
