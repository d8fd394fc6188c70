// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_info.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <span>

#include "cache/file_patterns.h"
#include "cache/prt_group.h"
#include "cli/cache_frame.h"
#include "cli/frame_json.h"

namespace nimbra::cli {
namespace {

using PGroup = NimbraFrameData::PGroup;

/// Bytes of a channel's record in the stored block; 0 when there is none.
std::uint64_t storedBytes(const NimbraFrameData& frame, int channel) {
    const std::int64_t end = std::int64_t(frame.compressedInts) - 1;
    for (std::int64_t at = 0; frame.compressed && at < end;) {
        const std::int64_t words = frame.compressed[at + 1];
        if (words < 1)
            return 0;
        if (frame.compressed[at] == channel)
            return static_cast<std::uint64_t>(words) * sizeof(std::int32_t);
        at += words + 2;
    }
    return 0;
}

void describeForm(const NimbraFrameData& frame, ChannelInfo& info) {
    constexpr int kFirstSequenceVersion = 5;
    info.packedBytes = storedBytes(frame, info.id);
    info.form = frame.fileVersion >= kFirstSequenceVersion ? "sequence" : "box";
    if (frame.channelMask & channelBit(info.id))
        return;
    const bool colour = info.id >= kColorR && info.id <= kColorB;
    info.form = colour ? "packed rgb" : "derived";
    // The three share one record.
    info.packedBytes = colour ? storedBytes(frame, kPackedColor) / 3 : 0;
}

ChannelInfo describeChannel(NimbraFrameData& frame, int channel, bool values, bool fits) {
    ChannelInfo info{channel, channelName(channel)};
    describeForm(frame, info);
    const std::int64_t cells = std::max<std::int64_t>(voxelCount(frame.gridSize), 0);
    info.expandedBytes = static_cast<std::uint64_t>(cells) * sizeof(float);
    const NimbraFrameData::Proxy& known = frame.channels[channel];
    if (!values || !fits) {
        info.hasRange = known.rangeKnown();
        info.min = known.minValue;
        info.max = known.maxValue;
        info.problem = values ? "too large to look at all values" : "";
        return info;
    }
    const NimbraFrameData::Proxy& proxy = frame.getChannelProxy(channel);
    if (!proxy.loaded) {
        info.problem = "can't be expanded";
        return info;
    }
    FloatSummary summary;
    forEachPiece(proxy, [&](std::span<const float> piece) {
        for (const float v : piece)
            summary.add(v);
        return true;
    });
    info.values.push_back(summary);
    info.hasRange = frame.getChannelRange(channel, info.min, info.max);
    releaseVoxels(frame, channel);
    return info;
}

const char* formOfMethod(std::int32_t method) {
    static const char* const kForms[] = {"plain", "zip", "sequence", "planar", "bit planes"};
    const bool known = method >= 0 && method < static_cast<std::int32_t>(std::size(kForms));
    return known ? kForms[method] : "unknown form";
}

ChannelInfo describeParticles(PGroup& group, int channel, bool values) {
    ChannelInfo info{channel, particleChannelName(channel)};
    const PrtChannelStore& store = group.store[channel];
    if (store.packed.size > 0)
        info.form = formOfMethod(store.method);
    info.packedBytes = static_cast<std::uint64_t>(std::max<long long>(store.packed.size, 0));
    info.expandedBytes = static_cast<std::uint64_t>(std::max(group.count, 0)) *
                         static_cast<std::uint64_t>(group.getChannelStride(channel));
    if (!values || group.count < 1 || info.expandedBytes == 0)
        return info;
    const unsigned char* const data = group.channelData(channel);
    if (!data) {
        info.problem = "can't be expanded";
        return info;
    }
    constexpr int kFloatType = 10;
    if (group.getChannelType(channel) != kFloatType)
        return info;
    info.values.resize(static_cast<std::size_t>(prtChannelWords(channel)));
    const std::size_t words = info.expandedBytes / sizeof(float);
    for (std::size_t i = 0; i < words; ++i) {
        float value;
        __builtin_memcpy(&value, data + i * sizeof value, sizeof value);
        info.values[i % info.values.size()].add(value);
    }
    return info;
}

GroupInfo describeGroup(PGroup& group, bool values) {
    GroupInfo info{group.name, group.count, group.flags, {}};
    for (int c = 0; c < kPrtChannelSlots; ++c)
        if (group.channelMask & channelBit(c))
            info.channels.push_back(describeParticles(group, c, values));
    return info;
}

/// Extremes and place of what isn't 0 in a channel.
class Matter {
public:
    Matter(NimbraFrameData& frame, int channel) {
        const NimbraFrameData::Proxy& proxy = frame.getChannelProxy(channel);
        if (!proxy.loaded)
            return;
        loaded_ = true;
        const GridStorage& s = *proxy.storage;
        for (int a = 0; a < 3; ++a)
            sides_ += 2.0 * s.size[a] * s.size[(a + 1) % 3];
        std::int64_t at = 0;
        forEachPiece(proxy, [&](std::span<const float> values) {
            for (const float v : values) {
                if (v != 0 && std::isfinite(v))
                    add(v,
                        {static_cast<int>(at % s.size[0]),
                         static_cast<int>(at / s.strideY % s.size[1]),
                         static_cast<int>(at / s.strideZ)},
                        s);
                ++at;
            }
            return true;
        });
        releaseVoxels(frame, channel);
    }
    bool loaded() const { return loaded_; }
    double mean() const { return values_.mean(); }

    void writeTo(GridSummary& out) const {
        out.low = low_;
        out.high = high_;
        out.activeVoxels = values_.count();
        out.mean = mean();
        // Without any the extremes are those of an empty grid: 0.
        out.min = values_.count() > 0 ? values_.min() : 0;
        out.max = values_.count() > 0 ? values_.max() : 0;
        out.wetFloor = wetFloor_;
        out.wetSides = sides_ > 0 ? static_cast<double>(wet_) / sides_ : -1;
    }

private:
    void add(float value, const std::array<int, 3>& cell, const GridStorage& s) {
        values_.add(value);
        for (int a = 0; a < 3; ++a) {
            low_[a] = std::min(low_[a], cell[a]);
            high_[a] = std::max(high_[a], cell[a]);
            if (value < 0) {
                const int low = cell[a] == 0, high = cell[a] == s.size[a] - 1;
                wetFloor_[a] += low - high;
                wet_ += low + high;
            }
        }
    }

    bool loaded_ = false;
    FloatSummary values_;
    std::array<int, 3> low_{INT32_MAX, INT32_MAX, INT32_MAX}, high_{-1, -1, -1};
    std::array<std::int64_t, 3> wetFloor_{};
    std::int64_t wet_ = 0;
    double sides_ = 0;  // all cells there
};

GridSummary scalarSummary(NimbraFrameData& frame, int channel) {
    GridSummary s;
    s.name = channelName(channel);
    const Matter matter(frame, channel);
    s.readable = matter.loaded();
    s.problem = s.readable ? "" : "can't be expanded";
    s.kind = GridSummary::Kind::Scalar;
    matter.writeTo(s);
    return s;
}

GridSummary vectorSummary(NimbraFrameData& frame, const char* name, int first) {
    GridSummary s;
    s.name = name;
    s.kind = GridSummary::Kind::Vector;
    for (int a = 0; a < 3; ++a) {
        const Matter matter(frame, first + a);
        s.readable = s.readable && matter.loaded();
        if (a == 0)
            matter.writeTo(s);
        s.meanVector[static_cast<std::size_t>(a)] = matter.mean();
    }
    s.problem = s.readable ? "" : "can't be expanded";
    return s;
}

}  // namespace

FrameInfo readFrameInfo(const std::string& path, bool values) {
    FrameInfo info;
    info.path = path;
    info.format = fileExtension(path);
    std::error_code ignored;
    info.bytes = std::filesystem::file_size(path, ignored);
    if (ignored)
        info.bytes = 0;
    CacheFrame loaded = loadCacheFrame(path, "", !values);
    info.status = loaded.status;
    // The message of a command names the file itself.
    const std::string prefix = path + ": ";
    info.problem =
        loaded.problem.starts_with(prefix) ? loaded.problem.substr(prefix.size()) : loaded.problem;
    if (!loaded.data)
        return info;
    info.readable = true;
    NimbraFrameData& frame = *loaded.data;
    std::vector<int> channels;
    for (int c = 0; c < kChannelSlots; ++c)
        if (frame.hasChannel(c))
            channels.push_back(c);
    const auto count = std::max<std::int64_t>(std::ssize(channels), 1);
    const bool fits = voxelCount(frame.gridSize) <= kMostVoxels / count;
    for (const int c : channels)
        info.channels.push_back(describeChannel(frame, c, values, fits));
    for (PGroup* const group : frame.groups)
        info.groups.push_back(describeGroup(*group, values));
    frame.freeChannels();
    info.frame = std::move(loaded.data);
    return info;
}

std::vector<GridSummary> summarize(NimbraFrameData& frame) {
    std::vector<GridSummary> grids;
    for (const int c : {kSmoke, kTemperature, kFuel})
        if (frame.hasChannel(c))
            grids.push_back(scalarSummary(frame, c));
    if (frame.hasChannels(7u << kVelocityX))
        grids.push_back(vectorSummary(frame, "velocity", kVelocityX));
    if (frame.hasChannels(7u << kColorR))
        grids.push_back(vectorSummary(frame, "color", kColorR));
    for (GridSummary& s : grids)
        s.toWorld = cellsToObject(frame);
    return grids;
}

std::array<std::array<double, 3>, 4> cellsToObject(const NimbraFrameData& frame) {
    const float* const t = frame.transform;
    const auto m = [&](int v, int x) { return static_cast<double>(t[v * 3 + x]); };
    std::array<std::array<double, 3>, 4> out{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    // Rows of the inverse are cross products of the vectors over the determinant.
    const auto minor = [&](int r, int c) {
        const int r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
        return m(r1, c1) * m(r2, c2) - m(r1, c2) * m(r2, c1);
    };
    double determinant = 0;
    for (int c = 0; c < 3; ++c)
        determinant += m(0, c) * minor(0, c);
    if (std::isnormal(determinant) && std::isnormal(1 / determinant))
        for (int v = 0; v < 3; ++v)
            for (int x = 0; x < 3; ++x)
                out[v][x] = minor(x, v) / determinant;
    for (int x = 0; x < 3; ++x)
        for (int v = 0; v < 3; ++v)
            out[3][x] -= m(3, v) * out[v][x];
    return out;
}

}  // namespace nimbra::cli
