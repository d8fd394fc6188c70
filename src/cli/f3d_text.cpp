// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "cache/bounded_reader.h"
#include "cli/cache_info.h"

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string rangeText(const F3dLayerInfo& l) {
    std::string text;
    for (int c = 0; c < l.components; ++c)
        text += fmt::format("{}{:.5g} to {:.5g}, mean {:.5g}", c ? "; " : "", l.min[c], l.max[c],
                            l.mean[c]);
    if (l.nanCount || l.infiniteCount)
        text += fmt::format(", {} NaN, {} infinite", l.nanCount, l.infiniteCount);
    return text;
}

std::string layerText(const F3dLayerInfo& l) {
    std::string text = fmt::format("  {:<16} in {}: ", printable(l.name), printable(l.partition));
    if (!l.readable)
        return text + fmt::format("not readable: {}\n", printable(l.problem));
    text += fmt::format("{}{}, {}", l.valueType, l.components == 3 ? " vector" : "", l.className);
    if (!l.mappable)
        text += fmt::format(", can't become a channel: {}", printable(l.problem));
    text += fmt::format("\n    window   ({} {} {}) to ({} {} {})", l.windowLow[0], l.windowLow[1],
                        l.windowLow[2], l.windowHigh[0], l.windowHigh[1], l.windowHigh[2]);
    if (l.hasValues)
        text += fmt::format(", {} of {} voxels not 0", l.nonzeroVoxels, l.voxels);
    if (l.blocks)
        text += fmt::format(", {} of {} blocks of {}", l.occupiedBlocks, l.blocks, l.blockEdge);
    if (l.hasValues)
        text += "\n    values   " + rangeText(l);
    text +=
        fmt::format("\n    voxel    {:.6g} {:.6g} {:.6g}, cell 0 at ({:.6g} {:.6g} {:.6g}), {}\n",
                    l.voxelSize[0], l.voxelSize[1], l.voxelSize[2], l.toWorld[3][0],
                    l.toWorld[3][1], l.toWorld[3][2], printable(l.mappingType));
    return text + fmt::format("    size     {} unpacked, {} in memory\n", sizeText(l.bytesUnpacked),
                              sizeText(l.bytesInMemory));
}

Json metadataJson(const std::vector<std::pair<std::string, std::string>>& metadata) {
    Json out = Json::object();
    for (const auto& [name, value] : metadata)
        out[name] = value;
    return out;
}

// A scalar as a number, a vector as a list.
Json valueJson(const std::array<double, 3>& v, int components) {
    return components == 1 ? Json(v[0]) : Json(v);
}

Json layerJson(const F3dLayerInfo& l) {
    Json out{{"name", l.name},
             {"partition", l.partition},
             {"class", l.className},
             {"readable", l.readable},
             {"mappable", l.mappable}};
    if (!l.problem.empty())
        out["problem"] = l.problem;
    if (!l.readable)
        return out;
    out["type"] = l.valueType;
    out["components"] = l.components;
    out["extents"] = {{"low", l.extentsLow}, {"high", l.extentsHigh}};
    out["dataWindow"] = {{"low", l.windowLow}, {"high", l.windowHigh}};
    if (l.blocks)
        out["blocks"] = {{"edge", l.blockEdge}, {"count", l.blocks}, {"stored", l.occupiedBlocks}};
    out["voxels"] = l.voxels;
    if (l.hasValues) {
        out["nonzeroVoxels"] = l.nonzeroVoxels;
        out["min"] = valueJson(l.min, l.components);
        out["max"] = valueJson(l.max, l.components);
        out["mean"] = valueJson(l.mean, l.components);
        out["nan"] = l.nanCount;
        out["infinite"] = l.infiniteCount;
    }
    out["transform"] = {
        {"type", l.mappingType}, {"timeSamples", l.timeSamples}, {"indexToWorld", l.toWorld}};
    out["bytesUnpacked"] = l.bytesUnpacked;
    out["bytesInMemory"] = l.bytesInMemory;
    out["metadata"] = metadataJson(l.metadata);
    return out;
}

std::string versionText(const std::vector<int>& version) {
    return version.empty() ? "" : fmt::format(" {}", fmt::join(version, "."));
}

}  // namespace

std::string infoText(const F3dFileInfo& file) {
    std::uint64_t memory = 0;
    for (const F3dLayerInfo& l : file.layers)
        memory += l.bytesInMemory;
    std::string text = fmt::format("{}: Field3D{} ({}), {} layers, {} on disk, {} in memory\n",
                                   file.path, versionText(file.version), file.container,
                                   file.layers.size(), sizeText(file.bytes), sizeText(memory));
    for (const auto& [name, value] : file.metadata)
        text += fmt::format("  {} = {}\n", printable(name), printable(value));
    for (const F3dLayerInfo& l : file.layers)
        text += layerText(l);
    return text;
}

std::string infoJson(const F3dFileInfo& file) {
    Json out{{"file", file.path}, {"format", "f3d"}, {"readable", file.readable}};
    if (!file.readable)
        out["problem"] = file.problem;
    out["bytes"] = file.bytes;
    out["container"] = file.container;
    out["formatVersion"] = file.version;
    out["metadata"] = metadataJson(file.metadata);
    out["layers"] = Json::array();
    for (const F3dLayerInfo& l : file.layers)
        out["layers"].push_back(layerJson(l));
    // Texts of the file may be no UTF-8.
    return out.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace nimbra::cli
