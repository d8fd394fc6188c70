// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "cache/prt_group.h"
#include "cache/sg_compressor.h"
#include "cli/cache_frame.h"
#include "cli/convert_frame.h"
#include "cli/value_summary.h"
#include "kol_writer/kol_writer.h"

namespace nimbra::cli {
namespace {

void copyHeader(const NimbraFrameData& frame, KolWriter& out) {
    out.frameNumber = frame.frameNumber == NimbraFrameData::kNoFrame ? 0 : frame.frameNumber;
    out.timeStep = frame.timeStep;
    out.simScale = frame.simScale;
    out.simInfo = frame.simInfo;
    std::copy_n(frame.motionTm, 12, out.motionTm);
    std::copy_n(frame.motionTm2, 12, out.motionTm2);
    std::copy_n(frame.motionTm3, 12, out.motionTm3);
    out.description = frame.description;
    constexpr int kFlagBit = 31;
    out.setMaskBit(kFlagBit, (frame.flags & kFrameMaskBit31) != 0);
    for (int c = 0; c < kChannelSlots; ++c)
        if (frame.channelFileValue[c] != -1)
            out.setFileValue(c, frame.channelFileValue[c]);
}

/// Parts that readers can unpack side by side, none so small that its head would count.
int zonesFor(std::size_t cells) {
    constexpr std::size_t kLeastCells = 1 << 19, kMost = 8;
    return static_cast<int>(std::clamp<std::size_t>(cells / kLeastCells, 1, kMost));
}

std::int64_t replaceNotFinite(std::vector<float>& values) {
    std::int64_t count = 0;
    for (float& v : values)
        if (!std::isfinite(v)) {
            v = 0;
            ++count;
        }
    return count;
}

NMBUtils::ZoneEncoding encodingOf(const KolPacking& packing) {
    NMBUtils::ZoneEncoding encoding;
    encoding.bits = packing.step > 0 ? 0 : packing.bits;
    encoding.step = packing.step;
    return encoding;
}

/// What a reader will get, held against what was there.
bool measure(const std::vector<float>& values, const std::vector<std::uint8_t>& stream,
             PackedChannelReport& report) {
    std::vector<float> back(values.size());
    NMBUtils::SGCompressor<1> compressor;
    if (!compressor.Decode(stream.data(), stream.size(), back.data(), back.size()))
        return false;
    for (std::size_t i = 0; i < values.size(); ++i)
        report.largestError =
            std::max(report.largestError, std::fabs(double(values[i]) - double(back[i])));
    return true;
}

bool addChannel(NimbraFrameData& frame, int channel, const KolPacking& packing, KolWriter& out,
                ConvertReport& report) {
    std::vector<float> values = takeVoxels(frame, channel);
    if (values.empty()) {
        report.leftOut.push_back(
            fmt::format("channel '{}' can't be expanded", channelName(channel)));
        return true;
    }
    PackedChannelReport r{channelName(channel)};
    r.notFinite = replaceNotFinite(values);
    std::vector<std::uint8_t> stream;
    if (!NMBUtils::encodeStream(values.data(), values.size(), zonesFor(values.size()),
                                encodingOf(packing), stream) ||
        !measure(values, stream, r) || !out.addRecord(channel, stream))
        return false;
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    r.range = double(*high) - double(*low);
    r.bytes = stream.size();
    out.setMaskBit(channel, true);
    out.setRange(channel, *low, *high);
    report.channels.push_back(r);
    return true;
}

/// Particles keep every bit.
bool addGroup(NimbraFrameData::PGroup& group, KolWriter& out, ConvertReport& report) {
    KolGroup packed{group.name, group.count, group.flags, {}, {}};
    std::copy_n(group.userValue, sizeof packed.userValue, packed.userValue);
    for (int c = 0; c < kPrtChannelSlots; ++c) {
        if (!(group.channelMask & channelBit(c)))
            continue;
        const unsigned char* const data = group.channelData(c);
        if (!data && group.count > 0) {
            report.leftOut.push_back(fmt::format("channel '{}' of group '{}' can't be expanded",
                                                 particleChannelName(c), group.name));
            continue;
        }
        const auto bytes = static_cast<std::size_t>(group.count) *
                           static_cast<std::size_t>(group.getChannelStride(c));
        packed.channels.push_back({c,
                                   c == kPrtId ? kPrtZip : kPrtBitPlanes,
                                   std::as_bytes(std::span(data, data ? bytes : 0)),
                                   {}});
    }
    return out.addGroup(packed);
}

}  // namespace

std::vector<int> storedChannels(const NimbraFrameData& frame) {
    std::vector<int> channels;
    for (int c = 1; c < kChannelSlots; ++c)
        if (frame.hasChannel(c) && (c != kSpeed || (frame.channelMask & channelBit(kSpeed))))
            channels.push_back(c);
    return channels;
}

std::vector<float> takeVoxels(NimbraFrameData& frame, int channel) {
    const NimbraFrameData::Proxy& proxy = frame.getChannelProxy(channel);
    if (!proxy.loaded || proxy.storage->cells < 1)
        return {};
    std::vector<float> values(static_cast<std::size_t>(proxy.storage->cells));
    proxy.readRun(0, proxy.storage->cells, values.data());
    releaseVoxels(frame, channel);
    return values;
}

ConvertResult packKol(NimbraFrameData& frame, const KolPacking& packing,
                      const host::AbortFlag& abort, std::string& bytes, ConvertReport& report) try {
    KolWriter writer;
    copyHeader(frame, writer);
    if (voxelCount(frame.gridSize) > 0)
        writer.setGrid(frame.gridSize, frame.transform);
    for (const int channel : storedChannels(frame)) {
        if (abort.requested())
            return ConvertResult::Aborted;
        if (!addChannel(frame, channel, packing, writer, report))
            return ConvertResult::NoMemory;
    }
    for (NimbraFrameData::PGroup* const group : frame.groups)
        if (!addGroup(*group, writer, report))
            return ConvertResult::NoMemory;
    std::vector<std::uint8_t> file;
    if (!writer.finish(file))
        return ConvertResult::NoMemory;
    bytes.assign(file.begin(), file.end());
    return ConvertResult::Done;
} catch (const std::bad_alloc&) {
    return ConvertResult::NoMemory;
}

}  // namespace nimbra::cli
