// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "cache/bounded_reader.h"
#include "cli/cache_info.h"
#include "cli/frame_info.h"
#include "cli/json_text.h"

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string rangeText(float min, float max) {
    return fmt::format("{:.5g} to {:.5g}", min, max);
}

std::string valuesText(const ChannelInfo& c) {
    if (c.values.empty())
        return c.hasRange ? rangeText(c.min, c.max) : "";
    const auto list = [&](auto&& of) {
        std::string text;
        for (const FloatSummary& v : c.values)
            text += (text.empty() ? "" : ", ") + fmt::format("{:.5g}", of(v));
        return c.values.size() > 1 ? "(" + text + ")" : text;
    };
    std::string text = list([](const FloatSummary& v) { return v.min(); }) + " to " +
                       list([](const FloatSummary& v) { return v.max(); }) + ", mean " +
                       list([](const FloatSummary& v) { return v.mean(); });
    std::int64_t nan = 0, infinite = 0;
    for (const FloatSummary& v : c.values) {
        nan += v.nanCount();
        infinite += v.infiniteCount();
    }
    if (nan || infinite)
        text += fmt::format(", {} NaN, {} infinite", nan, infinite);
    // Packed values may lie a little beside the stated range.
    const FloatSummary& first = c.values.front();
    const std::string stated = rangeText(c.min, c.max);
    if (c.hasRange && stated != rangeText(first.min(), first.max()))
        text += ", stated as " + stated;
    return text;
}

std::string channelText(const ChannelInfo& c, const std::string& indent) {
    std::string text = fmt::format("{}{:<16} id {}, ", indent, c.name, c.id);
    if (!c.form.empty())
        text += c.form + ", ";
    if (c.packedBytes > 0)
        text += sizeText(c.packedBytes) + " packed, ";
    text += sizeText(c.expandedBytes) + " expanded\n";
    if (!c.problem.empty())
        text += indent + "  " + c.problem + "\n";
    if (const std::string values = valuesText(c); !values.empty())
        text += indent + "  values   " + values + "\n";
    return text;
}

std::string headerText(const NimbraFrameData& f) {
    const auto m = cellsToObject(f);
    const auto length = [&](int v) { return std::hypot(m[v][0], m[v][1], m[v][2]); };
    std::string text;
    if (f.gridSize[0] || f.gridSize[1] || f.gridSize[2])
        text += fmt::format(
            "  grid     {} x {} x {} cells of {:.6g} {:.6g} {:.6g}, cell 0 at ({:.6g} {:.6g} "
            "{:.6g}){}\n",
            f.gridSize[0], f.gridSize[1], f.gridSize[2], length(0), length(1), length(2), m[3][0],
            m[3][1], m[3][2], f.flags & kFrameMaskBit31 ? ", bit 31 of the mask set" : "");
    text += fmt::format("  time     {:.9g}, {:.9g} a frame, {} simulation steps, scale {:.6g}\n",
                        f.simInfo.simTime(), f.timeStep, f.simInfo.simStep(), f.simScale);
    if (f.groups.size > 0 && f.bboxMin[0] <= f.bboxMax[0])
        text += fmt::format(
            "  box      of particles ({:.6g} {:.6g} {:.6g}) to ({:.6g} {:.6g} {:.6g})\n",
            f.bboxMin[0], f.bboxMin[1], f.bboxMin[2], f.bboxMax[0], f.bboxMax[1], f.bboxMax[2]);
    if (!f.description.empty())
        text += "  text     " + printable(f.description) + "\n";
    return text;
}

/// The sum of a size over all channels.
std::uint64_t total(const FrameInfo& info, std::uint64_t ChannelInfo::*size) {
    std::uint64_t bytes = 0;
    for (const ChannelInfo& c : info.channels)
        bytes += c.*size;
    for (const GroupInfo& g : info.groups)
        for (const ChannelInfo& c : g.channels)
            bytes += c.*size;
    return bytes;
}

Json channelJson(const ChannelInfo& c) {
    Json out{{"name", c.name},
             {"id", c.id},
             {"form", c.form},
             {"bytesPacked", c.packedBytes},
             {"bytesExpanded", c.expandedBytes}};
    if (!c.problem.empty())
        out["problem"] = c.problem;
    if (c.hasRange)
        out["range"] = {floatJson(c.min), floatJson(c.max)};
    if (c.values.empty())
        return out;
    const auto put = [&](const char* key, auto&& of) {
        Json list = Json::array();
        for (const FloatSummary& v : c.values)
            list.push_back(of(v));
        out[key] = c.values.size() == 1 ? list[0] : list;
    };
    put("min", [](const FloatSummary& v) { return floatJson(v.min()); });
    put("max", [](const FloatSummary& v) { return floatJson(v.max()); });
    put("mean", [](const FloatSummary& v) { return doubleJson(v.mean()); });
    put("nan", [](const FloatSummary& v) { return v.nanCount(); });
    put("infinite", [](const FloatSummary& v) { return v.infiniteCount(); });
    return out;
}

template <int N>
Json floatsJson(const float (&values)[N]) {
    Json out = Json::array();
    for (const float v : values)
        out.push_back(floatJson(v));
    return out;
}

void addHeader(const NimbraFrameData& f, Json& out) {
    out["fileVersion"] =
        f.fileVersion == NimbraFrameData::kNoVersion ? Json() : Json(f.fileVersion);
    out["frameNumber"] = f.frameNumber == NimbraFrameData::kNoFrame ? Json() : Json(f.frameNumber);
    out["gridSize"] = f.gridSize;
    out["transform"] = floatsJson(f.transform);
    out["cellsToObject"] = cellsToObject(f);
    out["timeStep"] = floatJson(f.timeStep);
    out["simScale"] = floatJson(f.simScale);
    out["simTime"] = doubleJson(f.simInfo.simTime());
    out["simStep"] = f.simInfo.simStep();
    out["bboxMin"] = floatsJson(f.bboxMin);
    out["bboxMax"] = floatsJson(f.bboxMax);
    out["description"] = f.description;
}

}  // namespace

std::string infoText(const FrameInfo& info) {
    const NimbraFrameData& f = *info.frame;
    std::string version, number;
    if (f.fileVersion != NimbraFrameData::kNoVersion)
        version = fmt::format(" version {}", f.fileVersion);
    if (f.frameNumber != NimbraFrameData::kNoFrame)
        number = fmt::format(", frame {}", f.frameNumber);
    std::string text =
        fmt::format("{}: {}{}{}, {} channels, {} groups, {} on disk, {} expanded\n", info.path,
                    info.format, version, number, info.channels.size(), info.groups.size(),
                    sizeText(info.bytes), sizeText(total(info, &ChannelInfo::expandedBytes)));
    text += headerText(f);
    for (const ChannelInfo& c : info.channels)
        text += channelText(c, "  ");
    for (const GroupInfo& g : info.groups) {
        text += fmt::format("  group '{}': {} particles, flags {:#x}\n", printable(g.name), g.count,
                            static_cast<unsigned>(g.flags));
        for (const ChannelInfo& c : g.channels)
            text += channelText(c, "    ");
    }
    return text;
}

std::string infoJson(const FrameInfo& info) {
    Json out{{"file", info.path},
             {"format", info.format},
             {"readable", info.readable},
             {"status", info.status}};
    if (!info.problem.empty())
        out["problem"] = info.problem;
    out["bytes"] = info.bytes;
    if (!info.frame)
        return jsonText(out) + "\n";
    addHeader(*info.frame, out);
    out["bytesPacked"] = total(info, &ChannelInfo::packedBytes);
    out["bytesExpanded"] = total(info, &ChannelInfo::expandedBytes);
    out["channels"] = Json::array();
    for (const ChannelInfo& c : info.channels)
        out["channels"].push_back(channelJson(c));
    out["groups"] = Json::array();
    for (const GroupInfo& g : info.groups) {
        Json group{{"name", g.name}, {"count", g.count}, {"flags", g.flags}};
        group["channels"] = Json::array();
        for (const ChannelInfo& c : g.channels)
            group["channels"].push_back(channelJson(c));
        out["groups"].push_back(group);
    }
    return jsonText(out) + "\n";
}

}  // namespace nimbra::cli
