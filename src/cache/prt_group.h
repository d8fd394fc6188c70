// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Named particle sets of a frame.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "cache/frame_data.h"
#include "foundation/array.h"

namespace nimbra {

/// A particle channel; ids that are not named here are ordinary channels of the table in
/// prt_group.cpp.
enum PrtChannelId : std::int32_t {
    kPrtPosition = 0,
    kPrtVelocity = 1,
    kPrtSize = 2,
    kPrtAge = 3,
    kPrtColor = 4,
    kPrtId = 10,
    kPrtViscosity = 17,
};
inline constexpr int kPrtChannelSlots = 32;

/// 4-byte words of one particle in a channel; 2 for the ID.
int prtChannelWords(int channel);
/// Name of a channel in reports, null for the unnamed ones.
const char* prtChannelName(int channel);

/// What shaders and textures see of a particle group. The order of the operations is part of the
/// contract.
class INimbraPrtGroup {
public:
    virtual const char* getName() const = 0;
    /// Particles, or 0 when there are no positions.
    virtual int getCount() const = 0;
    /// Copies one particle's channel (stride bytes); false when it is absent.
    virtual bool getValue(int index, int channel, void* out) = 0;
    virtual bool hasChannel(int channel) const = 0;
    /// Bytes of one particle in the channel.
    virtual int getChannelStride(int channel) const = 0;
    /// Index of the particle with that ID, or -1.
    virtual int findById(std::int64_t id) = 0;
    /// 10 float, 7 64-bit integer, 6 and 0 words without a meaning.
    virtual int getChannelType(int channel) const = 0;
    /// Components of one particle; the ID counts as one.
    virtual int getChannelComponents(int channel) const = 0;
    virtual ~INimbraPrtGroup() = default;
};

/// How a stored channel is to be read. Values outside are carried, but never expand.
enum PrtMethod : std::int32_t {
    kPrtPlain = 0,      ///< the values, particle after particle
    kPrtZip = 1,        ///< the same in zlib's format
    kPrtSequence = 2,   ///< the same as a stream of SGCompressor<1>
    kPrtPlanar = 3,     ///< such a stream: all first components, then all second ones, ...
    kPrtBitPlanes = 4,  ///< zlib's format around bit planes, see prt_group_expand.cpp
};

/// One channel of a group, as stored and as expanded.
struct PrtChannelStore {
    std::mutex lock;
    /// A PrtMethod: how `packed` is to be read.
    std::int32_t method = kPrtPlain;
    NMBUtils::NmbArray<unsigned char, long long, 0, 1> packed;
    /// Particle after particle, components of a particle together.
    NMBUtils::NmbArray<unsigned char, long long, 0, 1> data;
    /// While a group is blended, in the store of its ID: the places of each particle in the earlier
    /// and in the later frame's group, -1 where it isn't there.
    NMBUtils::NmbArray<std::int32_t> blendFrom, blendTo;
    /// Set once `data` is there: it doesn't change any more, and may be read without the lock.
    std::atomic<bool> expanded{false};
};

/// `flags` of a group whose velocities are those of the frame's grid.
inline constexpr std::int32_t kPrtVelocityInGrid = 0x30000;

/// Particle indices in rising ID order.
struct IDORD : NMBUtils::NmbArray<int> {};

/// A group in memory. Channels may be read by many threads.
class NimbraFrameData::PGroup : public INimbraPrtGroup {
public:
    /// Empty while the IDs ascend by themselves.
    IDORD idOrder;
    /// Channel 10's values while they are sorted.
    const std::int64_t* idPointer = nullptr;
    /// Guards the sort.
    std::mutex lock;
    std::string name;
    /// Bit per channel.
    std::uint32_t channelMask = 0;
    /// kPrtVelocityInGrid or anything else.
    std::int32_t flags = 0;
    std::int32_t count = 0;
    /// Carried.
    unsigned char userValue[8] = {};
    PrtChannelStore store[kPrtChannelSlots];
    /// Made when a channel needs it, and given back with its work arrays once that is expanded.
    std::shared_ptr<NMBUtils::SGCompressor<1>> compressor[kPrtChannelSlots];
    NimbraFrameData* frame = nullptr;

    const char* getName() const override { return name.c_str(); }
    int getCount() const override;
    bool getValue(int index, int channel, void* out) override;
    bool hasChannel(int channel) const override;
    int getChannelStride(int channel) const override;
    int findById(std::int64_t id) override;
    int getChannelType(int channel) const override;
    int getChannelComponents(int channel) const override;

    // Filling. `count` must be set before; a reader calls one of these for each channel, and the
    // channel's bit in `channelMask` is then set. False without memory or for a channel that
    // doesn't exist (outside 0 to 31): the channel is then absent.

    /// Room for a channel as it is stored: `bytes` bytes at store[channel].packed.data, which the
    /// caller fills.
    bool allocatePacked(int channel, std::int32_t method, std::int64_t bytes);
    /// Room for `count` particles of prtChannelWords(channel) words each at store[channel].data,
    /// which the caller fills before anybody else sees the group.
    bool allocateChannel(int channel);
    /// The same, filled with a copy of `values`.
    bool setChannel(int channel, const void* values);
    /// Expands a kPrtPlanar stream, which may be longer than it needs. False, too, if it can't be.
    bool setPlanar(int channel, std::span<const std::byte> stream);

    /// Expands `packed` into `data`; true when `data` is there. `freePacked`: `packed` goes after a
    /// success or a failure.
    bool decompressChannel(int channel, bool freePacked);
    /// Expanded values, null when the channel is absent or can't be expanded.
    const unsigned char* channelData(int channel);

    /// Handles of the frame's velocities for a group that has them there; false when it hasn't, or
    /// when they can't be expanded.
    bool gridVelocity(Proxy velocity[3]) const;

    /// Fills idOrder; a negative first ID counts as disorder too. Done once, when somebody first
    /// searches. False without memory: the next call tries again.
    bool buildIdOrder();

private:
    using Bytes = NMBUtils::NmbArray<unsigned char, long long, 0, 1>;

    std::int64_t wordsIn(int channel) const;
    bool expandPacked(int channel);
    bool inflateWords(std::span<const std::byte> packed, Bytes& out, std::int64_t bytes) const;
    bool decodeWords(int channel, std::span<const std::byte> stream, Bytes& out);
    bool expandPlanar(int channel, std::span<const std::byte> stream);
    bool expandBitPlanes(int channel);
    bool velocityFromGrid(int index, float out[3]);
    const std::int64_t* ids();

    std::atomic<bool> orderKnown_{false};
};

}  // namespace nimbra
