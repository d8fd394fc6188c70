// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <nlohmann/json.hpp>
#include <span>

#include "cache/prt_group.h"
#include "cli/cache_frame.h"
#include "cli/json_text.h"
#include "cli/value_summary.h"

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;
using PGroup = NimbraFrameData::PGroup;

constexpr int kGridSamples = 64;
constexpr int kParticleSamples = 32;

Json floatsJson(std::span<const float> values) {
    Json out = Json::array();
    for (const float v : values)
        out.push_back(floatJson(v));
    return out;
}

std::string checkSumOf(std::span<const std::byte> bytes) {
    CheckSum sum;
    sum.add(bytes);
    return sum.text();
}

// A frame keeps no mark of whether a grid was stored. One that was has cells or stored words.
bool hasGrid(const NimbraFrameData& frame, bool headerOnly) {
    const auto* const n = frame.gridSize;
    return n[0] != 0 || n[1] != 0 || n[2] != 0 || (!headerOnly && frame.compressedInts != 0);
}

void addHeader(const NimbraFrameData& frame, bool headerOnly, Json& out) {
    constexpr std::uint32_t kShownFlags = kFrameMaskBit31 | kFrameHeaderOnly;
    out["flags"] = frame.flags & kShownFlags;
    out["fileVersion"] = frame.fileVersion;
    out["frameNumber"] = frame.frameNumber;
    if (hasGrid(frame, headerOnly))
        out["gridSize"] = Json(frame.gridSize);
    if (hasGrid(frame, headerOnly) || headerOnly)
        out["compressedInts"] = frame.compressedInts;
    out["channelMask"] = frame.channelMask;
    out["timeStep"] = floatJson(frame.timeStep);
    out["simScale"] = floatJson(frame.simScale);
    const SimInfo& info = frame.simInfo;
    constexpr int kInfo4 = 384;
    out["simTime"] = doubleJson(info.simTime());
    out["simInfo2"] = doubleJson(info.simInfo2());
    out["simStep"] = info.simStep();
    out["simInfo3"] = doubleJson(info.simInfo3());
    out["simInfo4"] = bytesText({info.bytes + kInfo4, 8});
    out["simInfo_crc32"] = checkSumOf(std::as_bytes(std::span(info.bytes)));
    out["transform"] = floatsJson(frame.transform);
    out["motionTm"] = floatsJson(frame.motionTm);
    out["motionTm2"] = floatsJson(frame.motionTm2);
    out["motionTm3"] = floatsJson(frame.motionTm3);
    out["bboxMin"] = floatsJson(frame.bboxMin);
    out["bboxMax"] = floatsJson(frame.bboxMax);
    out["description"] = frame.description;
    out["channelFileValue"] = Json::object();
    for (int c = 0; c < kChannelSlots; ++c)
        if (frame.channelFileValue[c] != -1)
            out["channelFileValue"][std::to_string(c)] = frame.channelFileValue[c];
}

std::vector<int> channelsOf(const NimbraFrameData& frame) {
    std::vector<int> channels;
    for (int c = 0; c < kChannelSlots; ++c)
        if (frame.hasChannel(c))
            channels.push_back(c);
    return channels;
}

Json gridChannelJson(NimbraFrameData& frame, int channel) {
    const NimbraFrameData::Proxy& proxy = frame.getChannelProxy(channel);
    FloatSummary summary;
    CheckSum checkSum;
    const std::vector<std::int64_t> places = samplePlaces(proxy.storage->cells, kGridSamples);
    Json samples = Json::array();
    std::int64_t at = 0;
    forEachPiece(proxy, [&](std::span<const float> values) {
        checkSum.add(std::as_bytes(values));
        for (const float v : values)
            summary.add(v);
        const auto end = at + static_cast<std::int64_t>(values.size());
        for (std::size_t k = samples.size(); k < places.size() && places[k] < end; ++k)
            samples.push_back(bitsText(values[static_cast<std::size_t>(places[k] - at)]));
        at = end;
        return true;
    });
    Json out = Json::object();
    float low, high;
    if (frame.getChannelRange(channel, low, high))
        out["range"] = {floatJson(low), floatJson(high)};
    out["min"] = floatJson(summary.min());
    out["max"] = floatJson(summary.max());
    out["mean"] = doubleJson(summary.mean());
    out["sum"] = doubleJson(summary.sum());
    // The order in which the squares are added is open.
    if (channel == kSpeed)
        out["tolerance_ulp"] = 4;
    else
        out["crc32"] = checkSum.text();
    out["sample_index"] = places;
    out["sample_bits"] = samples;
    return out;
}

void addChannels(NimbraFrameData& frame, const FrameJsonOptions& options,
                 std::vector<int>& tooLarge, Json& out) {
    const std::vector<int> channels = channelsOf(frame);
    const std::int64_t cells = voxelCount(frame.gridSize);
    const auto count = static_cast<std::int64_t>(channels.size());
    const bool fits = count == 0 || cells <= options.mostVoxels / count;
    Json failed = Json::array();
    out["channels"] = Json::object();
    for (const int c : channels) {
        if (fits && frame.getChannelProxy(c).loaded) {
            out["channels"][std::to_string(c)] = gridChannelJson(frame, c);
            // One expanded channel at a time.
            releaseVoxels(frame, c);
            continue;
        }
        failed.push_back(c);
        if (!fits)
            tooLarge.push_back(c);
    }
    if (!failed.empty())
        out["failed"] = failed;
}

std::span<const std::uint32_t> wordsOf(PGroup& group, int channel) {
    const unsigned char* const data = group.channelData(channel);
    const std::int64_t words = std::int64_t(group.count) * prtChannelWords(channel);
    if (!data)
        return {};
    return {reinterpret_cast<const std::uint32_t*>(data), static_cast<std::size_t>(words)};
}

std::span<const std::int64_t> idsOf(PGroup& group) {
    const std::span<const std::uint32_t> words = wordsOf(group, kPrtId);
    return {reinterpret_cast<const std::int64_t*>(words.data()), words.size() / 2};
}

void addIds(std::span<const std::int64_t> ids, Json& out) {
    if (ids.empty())
        return;
    const auto [low, high] = std::minmax_element(ids.begin(), ids.end());
    out["first"] = ids.front();
    out["last"] = ids.back();
    out["min"] = *low;
    out["max"] = *high;
    const auto places = samplePlaces(static_cast<std::int64_t>(ids.size()), kParticleSamples);
    out["sample_index"] = places;
    out["sample_values"] = Json::array();
    for (const std::int64_t i : places)
        out["sample_values"].push_back(ids[static_cast<std::size_t>(i)]);
}

void addFloatSums(std::span<const std::uint32_t> words, int components, Json& out) {
    std::vector<FloatSummary> sums(static_cast<std::size_t>(components));
    for (std::size_t i = 0; i < words.size(); ++i)
        sums[i % sums.size()].add(std::bit_cast<float>(words[i]));
    for (const char* name : {"min", "max", "sum"})
        out[name] = Json::array();
    for (const FloatSummary& s : sums) {
        out["min"].push_back(floatJson(s.min()));
        out["max"].push_back(floatJson(s.max()));
        out["sum"].push_back(doubleJson(s.sum()));
    }
}

Json particleBits(std::span<const std::uint32_t> words, std::int64_t particle, int components) {
    Json out = Json::array();
    for (int c = 0; c < components; ++c)
        out.push_back(bitsText(words[static_cast<std::size_t>(particle * components + c)]));
    return out;
}

void addWords(PGroup& group, int channel, std::span<const std::uint32_t> words, Json& out) {
    constexpr int kFloatType = 10;
    const int components = group.getChannelComponents(channel);
    if (words.empty() || components < 1)
        return;
    if (group.getChannelType(channel) == kFloatType)
        addFloatSums(words, components, out);
    out["first_bits"] = particleBits(words, 0, components);
    out["last_bits"] = particleBits(words, group.count - 1, components);
    const auto places = samplePlaces(group.count, kParticleSamples);
    out["sample_index"] = places;
    out["sample_bits"] = Json::array();
    for (const std::int64_t i : places)
        out["sample_bits"].push_back(particleBits(words, i, components));
}

void addParticleChannels(PGroup& group, Json& out) {
    Json failed = Json::array();
    out["channels"] = Json::object();
    for (int c = 0; c < kPrtChannelSlots; ++c) {
        if (!(group.channelMask & channelBit(c)))
            continue;
        // A channel of no particles has nothing to expand.
        const std::span<const std::uint32_t> words = wordsOf(group, c);
        if (!group.channelData(c) && group.count > 0) {
            failed.push_back(c);
            continue;
        }
        Json channel{{"components", group.getChannelComponents(c)},
                     {"crc32", checkSumOf(std::as_bytes(words))}};
        if (c == kPrtId)
            addIds(idsOf(group), channel);
        else
            addWords(group, c, words, channel);
        out["channels"][std::to_string(c)] = channel;
    }
    if (!failed.empty())
        out["failed"] = failed;
}

std::int64_t plus(std::int64_t id, std::int64_t step) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(id) +
                                     static_cast<std::uint64_t>(step));
}

/// IDs to look up: some that are there, then some beside them and far away.
std::vector<std::int64_t> probesOf(std::span<const std::int64_t> ids) {
    if (ids.empty())
        return {0, 1};
    constexpr int kProbes = 12;
    std::vector<std::int64_t> probes;
    for (const std::int64_t i : samplePlaces(static_cast<std::int64_t>(ids.size()), kProbes))
        probes.push_back(ids[static_cast<std::size_t>(i)]);
    const auto [low, high] = std::minmax_element(ids.begin(), ids.end());
    probes.push_back(plus(*high, 1));
    probes.push_back(plus(*low, -1));
    const std::int64_t beside = plus(ids.front(), 1);
    if (std::find(ids.begin(), ids.end(), beside) == ids.end())
        probes.push_back(beside);
    probes.push_back(-(std::int64_t(1) << 40));
    probes.push_back(123456789012);
    return probes;
}

void addIdOrder(PGroup& group, std::span<const std::int64_t> ids, Json& out) {
    if (ids.empty())
        return;
    group.buildIdOrder();
    constexpr int kShown = 16;
    const std::vector<int> order(group.idOrder.begin(), group.idOrder.end());
    // IDs that ascend from below zero are walked by an order that changes nothing.
    if (ids.front() < 0 && std::is_sorted(order.begin(), order.end()))
        return;
    if (order.empty()) {
        out["idOrder"] = nullptr;
        return;
    }
    const auto end = order.begin() + std::min<std::ptrdiff_t>(std::ssize(order), kShown);
    out["idOrder"] = {{"crc32", checkSumOf(std::as_bytes(std::span(order)))},
                      {"first", std::vector<int>(order.begin(), end)}};
}

void addIdSearch(PGroup& group, Json& out) {
    const bool stored = group.channelMask & channelBit(kPrtId);
    const std::span<const std::int64_t> ids =
        stored ? idsOf(group) : std::span<const std::int64_t>();
    addIdOrder(group, ids, out);
    out["findById"] = Json::array();
    for (const std::int64_t id : probesOf(ids))
        out["findById"].push_back({id, group.findById(id)});
}

/// How far the rounding of a linear sample may take it, from the largest value in reach.
double sampleTolerance(NimbraFrameData& frame) {
    constexpr double kShare = 4e-6;
    float largest = 0;
    for (int c = kVelocityX; c <= kVelocityZ; ++c)
        if (float low, high; frame.getChannelRange(c, low, high))
            largest = std::max({largest, std::fabs(low), std::fabs(high)});
    return std::strtod(fmt::format("{:.3g}", largest * kShare).c_str(), nullptr);
}

void addGridVelocity(NimbraFrameData& frame, PGroup& group, Json& out) {
    constexpr int kShown = 16;
    if ((group.channelMask & channelBit(kPrtVelocity)) || !group.hasChannel(kPrtVelocity))
        return;
    Json values = Json::array();
    for (const std::int64_t i : samplePlaces(group.getCount(), kShown)) {
        std::array<float, 3> velocity;
        if (!group.getValue(static_cast<int>(i), kPrtVelocity, velocity.data()))
            return;
        Json list = Json::array();
        for (const float v : velocity)
            list.push_back(std::isfinite(v)
                               ? Json(std::strtod(fmt::format("{:.10g}", v).c_str(), nullptr))
                               : doubleJson(v));
        values.push_back({i, list});
    }
    out["velocityFromGrid"] = {{"tolerance", sampleTolerance(frame)}, {"values", values}};
}

Json groupJson(NimbraFrameData& frame, PGroup& group, bool headerOnly) {
    Json out{{"name", group.name}, {"flags", group.flags}, {"count", group.count}};
    if (!headerOnly)
        out["getCount"] = group.getCount();
    out["channelMask"] = group.channelMask;
    if (headerOnly)
        return out;
    out["userValue"] = bytesText(group.userValue);
    addParticleChannels(group, out);
    addIdSearch(group, out);
    addGridVelocity(frame, group, out);
    return out;
}

}  // namespace

Json frameJson(NimbraFrameData& frame, const FrameJsonOptions& options,
               std::vector<int>& tooLarge) {
    Json out = Json::object();
    addHeader(frame, options.headerOnly, out);
    out["hasChannel"] = channelsOf(frame);
    if (!options.headerOnly) {
        addChannels(frame, options, tooLarge, out);
        out["prtGroupCount"] = frame.getPrtGroupCount();
    }
    out["groups"] = Json::array();
    for (PGroup* const group : frame.groups)
        out["groups"].push_back(groupJson(frame, *group, options.headerOnly));
    return out;
}

}  // namespace nimbra::cli
