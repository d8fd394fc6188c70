// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/kol_particles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "cache/bit_coder.h"
#include "cache/bounded_reader.h"
#include "foundation/log.h"
#include "foundation/parallel.h"

namespace nimbra {
namespace {

using PGroup = NimbraFrameData::PGroup;

// More than anybody writes; a group takes a few thousand bytes of memory.
constexpr std::int32_t kMostGroups = 10000;

constexpr std::int64_t kWordBytes = 4;

std::int32_t readGroupCount(KolStream& in, const char* line = nullptr) {
    const std::int32_t count = in.getCount(line);
    if (count > kMostGroups)
        in.fail(line, "states too many particle groups");
    return count;
}

PGroup& addGroup(NimbraFrameData& frame, const std::string& name) {
    PGroup* const group = frame.addGroup(name);
    if (!group)
        throw std::bad_alloc();
    return *group;
}

/// Box of positions, without those that can't be meant.
class MTComputeParticlesBbox final : public NMBUtils::NmbParallel {
public:
    struct Box {
        float min[3] = {1e20f, 1e20f, 1e20f}, max[3] = {-1e20f, -1e20f, -1e20f};
        std::int64_t bad = 0;
    };

    Box compute(const unsigned char* positions, std::int64_t count) {
        positions_ = positions;
        SplitRange(count);
        parts_.assign(static_cast<std::size_t>(jobCount()), {});
        Start();
        Box all;
        for (const Box& part : parts_)
            for (int a = 0; a < 3; ++a) {
                all.min[a] = std::min(all.min[a], part.min[a]);
                all.max[a] = std::max(all.max[a], part.max[a]);
                all.bad += a == 0 ? part.bad : 0;
            }
        return all;
    }
    const char* GetName() const override { return "MTComputeParticlesBbox"; }

    void Run(NMBUtils::Job* job) override {
        Box box;
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i) {
            float p[3];
            std::memcpy(p, positions_ + i * static_cast<std::int64_t>(sizeof p), sizeof p);
            constexpr float kFarthest = 100000;
            if (!(std::fabs(p[0] + p[1] + p[2]) < kFarthest)) {
                ++box.bad;
                continue;
            }
            for (int a = 0; a < 3; ++a) {
                box.min[a] = std::min(box.min[a], p[a]);
                box.max[a] = std::max(box.max[a], p[a]);
            }
        }
        parts_[static_cast<std::size_t>(job->index)] = box;
    }

private:
    const unsigned char* positions_ = nullptr;
    std::vector<Box> parts_;
};

/// IDs as running sums of differences; empty when the symbols make none.
std::vector<std::int64_t> decodeIds(std::span<const std::byte> symbols, std::int32_t count) {
    NMBUtils::BitReader bits(reinterpret_cast<const std::uint8_t*>(symbols.data()), symbols.size());
    NMBUtils::BitDecoder decoder;
    if (!decoder.init(bits))
        return {};
    std::vector<std::int64_t> ids(static_cast<std::size_t>(count));
    std::uint64_t sum = 0;
    for (std::int64_t& id : ids) {
        const auto low = static_cast<std::uint32_t>(decoder.next(bits));
        const auto high = static_cast<std::uint32_t>(decoder.next(bits));
        sum += std::uint64_t{high} << 32 | low;
        id = static_cast<std::int64_t>(sum);
    }
    if (bits.overrun())
        ids.clear();
    return ids;
}

}  // namespace

void readKolSummary(NimbraFrameData& frame, KolStream& in) {
    const std::int32_t groups = readGroupCount(in);
    frame.clearGroups();
    for (std::int32_t i = 0; i < groups; ++i) {
        PGroup& group = addGroup(frame, in.getText());
        group.count = in.getCount();
        group.channelMask = in.get<std::uint32_t>();
        group.flags = in.get<std::int32_t>();
    }
}

void readKolGroups(NimbraFrameData& frame, KolStream& in) {
    const std::int32_t groups = readGroupCount(in);
    frame.clearGroups();
    for (std::int32_t i = 0; i < groups; ++i) {
        PGroup& group = addGroup(frame, in.getText());
        group.flags = in.get<std::int32_t>();
        group.count = in.getCount();
        in.read(std::as_writable_bytes(std::span(group.userValue)));
        const std::int32_t channels = in.getCount();
        for (std::int32_t c = 0; c < channels; ++c) {
            const auto id = in.get<std::int32_t>();
            const auto method = in.get<std::int32_t>();
            const auto bytes = static_cast<std::uint64_t>(in.getCount());
            in.require(bytes);
            if (id < 0 || id >= kPrtChannelSlots) {
                in.skip(bytes);
                continue;
            }
            if (!group.allocatePacked(id, method, static_cast<std::int64_t>(bytes)))
                throw std::bad_alloc();
            in.read({reinterpret_cast<std::byte*>(group.store[id].packed.data), bytes});
        }
    }
}

void KolParticleBlock::read() {
    blockWords_ = in_.getCount("9\n");
    const auto bytes = static_cast<std::uint64_t>(blockWords_ * kWordBytes);
    if (mode_.headerOnly && mode_.groupsKnown)
        in_.skip(bytes);
    else
        block_ = in_.getBlock(bytes, "x91\n");
    groupCount_ = readGroupCount(in_, "10\n");
    frame_.clearGroups();
    for (std::int32_t i = 0; i < groupCount_; ++i)
        readGroup();
}

void KolParticleBlock::readGroup() {
    PGroup& group = addGroup(frame_, in_.getText());
    group.count = in_.getCount("11\n");
    std::int32_t firstWords[kPrtChannelSlots];
    in_.read(std::as_writable_bytes(std::span(firstWords)), "x111\n");
    for (int c = 0; c < kPrtChannelSlots; ++c)
        if (firstWords[c] != -1)
            readChannel(group, c, firstWords[c]);
    readTags(group);
    if (!mode_.groupsKnown && firstWords[kPrtPosition] != -1)
        growBox(group, firstWords[kPrtPosition]);
}

void KolParticleBlock::readChannel(PGroup& group, int channel, std::int64_t firstWord) {
    const std::int64_t words = std::int64_t(group.count) * prtChannelWords(channel);
    const std::int64_t room = blockWords_ - firstWord;
    if (firstWord < 0 || room < 0 || (!mode_.compressed && words > room))
        in_.fail(nullptr, "has particle data outside of its block");
    if (mode_.headerOnly) {
        group.channelMask |= channelBit(channel);
        return;
    }
    if (!mayExpand(words * kWordBytes))
        return;
    const auto from = static_cast<std::size_t>(firstWord * kWordBytes);
    if (mode_.compressed)
        group.setPlanar(channel, std::span(block_).subspan(from));
    else
        group.setChannel(channel, block_.data() + from);
}

/// A stream of a few bytes can stand for any number of equal values, and groups can share theirs:
/// as much as zlib's format could hold in the file is believed, the rest is absent.
bool KolParticleBlock::mayExpand(std::int64_t bytes) {
    constexpr std::uint64_t kAlways = 16 << 20, kMostRatio = 1032;
    const std::uint64_t most = kAlways + in_.size() * (mode_.compressed ? kMostRatio : 1);
    if (static_cast<std::uint64_t>(bytes) > most - expandedBytes_)
        return false;
    expandedBytes_ += static_cast<std::uint64_t>(bytes);
    return true;
}

void KolParticleBlock::readTags(PGroup& group) {
    for (;;)
        switch (in_.get<std::int32_t>("13\n")) {
            case 0:
                return;
            case 1:
                group.flags = in_.get<std::int32_t>("14\n");
                break;
            case 2:
                readIds(group);
                break;
            case 3:
                in_.read(std::as_writable_bytes(std::span(group.userValue)), "15\n");
                break;
            default:
                in_.fail("19\n", "has an unknown tag in a particle group");
        }
}

void KolParticleBlock::readIds(PGroup& group) {
    const auto bytes = static_cast<std::uint64_t>(in_.getCount("12\n"));
    if (mode_.headerOnly) {
        in_.skip(bytes);
        group.channelMask |= channelBit(kPrtId);
        return;
    }
    const std::vector<std::byte> symbols = in_.getBlock(bytes, "x121\n");
    if (!mayExpand(std::int64_t(group.count) * static_cast<std::int64_t>(sizeof(std::int64_t))))
        return;
    const std::vector<std::int64_t> ids = decodeIds(symbols, group.count);
    if (!ids.empty())
        group.setChannel(kPrtId, ids.data());
}

void KolParticleBlock::growBox(PGroup& group, std::int64_t firstWord) {
    PGroup positions;  // without a frame; only needed where the group has none of its own
    PGroup* source = &group;
    if (mode_.headerOnly) {
        positions.count = group.count;
        const auto from = static_cast<std::size_t>(firstWord * kWordBytes);
        const std::int64_t bytes = std::int64_t(group.count) * 3 * kWordBytes;
        if (!mayExpand(bytes))
            return;
        if (mode_.compressed)
            positions.setPlanar(kPrtPosition, std::span(block_).subspan(from));
        else
            positions.setChannel(kPrtPosition, block_.data() + from);
        source = &positions;
    }
    if (!(source->channelMask & channelBit(kPrtPosition)) || group.count == 0)
        return;
    const unsigned char* const values = source->channelData(kPrtPosition);
    if (!values)
        return;
    if (!frame_.bboxJob)
        frame_.bboxJob = std::make_unique<MTComputeParticlesBbox>();
    const MTComputeParticlesBbox::Box box =
        static_cast<MTComputeParticlesBbox&>(*frame_.bboxJob).compute(values, group.count);
    for (int a = 0; a < 3; ++a) {
        frame_.bboxMin[a] = std::min(frame_.bboxMin[a], box.min[a]);
        frame_.bboxMax[a] = std::max(frame_.bboxMax[a], box.max[a]);
    }
    // One pass tells it all; the line comes once for each group of the frame.
    for (std::int32_t i = 0; box.bad != 0 && i < groupCount_; ++i)
        NMBUtils::logLine("#bad particles found in group %s, count:%d\n",
                          printable(group.name).c_str(), static_cast<int>(box.bad));
}

}  // namespace nimbra
