// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Particle channels from their stored form to values, particle after particle.
//
// Bit planes, behind zlib's format, for n particles: W = ceil(n / 32) words of 32 bits a plane; for
// each component 32 planes follow one another; bit i % 32 of word (32 c + b) W + i / 32 is bit b of
// component c of particle i. Bits behind the last particle have no meaning.

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "cache/bounded_reader.h"
#include "cache/process_memory.h"
#include "cache/prt_group.h"
#include "cache/sg_compressor.h"
#include "cache/zip_inflate.h"
#include "foundation/log.h"
#include "foundation/parallel.h"

namespace nimbra {
namespace {

constexpr std::int64_t kWordBytes = 4;
constexpr std::int64_t kPlanes = 32;  // bits of a word, particles of a plane's word

/// A constant of a few bytes may stand for any count.
bool fitsMemory(std::int64_t bytes) {
    return static_cast<std::uint64_t>(bytes) <= memoryOfProcess();
}

/// How many floats the streams' own counts promise: one past the last.
std::int64_t statedCount(std::span<const std::byte> stream) {
    constexpr std::uint16_t kOneZone = 0xFC01;
    BoundedReader in(stream);
    if (in.get<std::uint16_t>() == kOneZone) {
        in.skip(1);
        return in.get<std::int32_t>();
    }
    const std::uint64_t zones = in.get<std::uint16_t>();
    BoundedReader elements = in, offsets = in, zone = in;
    if (!offsets.skip(zones * 4) || !zone.skip(zones * 8))
        return 0;
    std::int64_t most = 0;
    const std::uint64_t data = zone.position();
    for (std::uint64_t i = 0; i < zones; ++i) {
        constexpr std::uint64_t kMagicAndMethod = 3;
        const std::int64_t first = elements.get<std::int32_t>();
        BoundedReader head = zone;
        head.seek(data + offsets.get<std::uint32_t>());
        head.skip(kMagicAndMethod);
        most = std::max(most, first + head.get<std::int32_t>());
    }
    return most;
}

/// Bit j of word i <-> bit i of word j (H. S. Warren, Hacker's Delight, 7-3, first bit lowest).
void transposeBits(std::uint32_t words[32]) {
    std::uint32_t mask = 0x0000FFFF;
    for (int j = 16; j != 0; j >>= 1, mask ^= mask << j)
        for (int k = 0; k < 32; k = (k + j + 1) & ~j) {
            const std::uint32_t swapped = ((words[k] >> j) ^ words[k + j]) & mask;
            words[k] ^= swapped << j;
            words[k + j] ^= swapped;
        }
}

/// Rebuilds values out of bit planes, 32 particles at a time.
class MTPrtIn final : public NMBUtils::NmbParallel {
public:
    MTPrtIn(const unsigned char* planes, unsigned char* out, std::int64_t count,
            std::int64_t components)
        : planes_(planes), out_(out), count_(count), components_(components) {
        SplitRange(wordsOfPlane());
    }
    const char* GetName() const override { return "MT PRTIN"; }

    void Run(NMBUtils::Job* job) override {
        for (std::int64_t word = job->rangeStart; word < job->rangeEnd; ++word)
            for (std::int64_t c = 0; c < components_; ++c)
                rebuild(word, c);
    }

private:
    std::int64_t wordsOfPlane() const { return (count_ + kPlanes - 1) / kPlanes; }

    void rebuild(std::int64_t word, std::int64_t component) const {
        std::uint32_t values[kPlanes];
        for (std::int64_t b = 0; b < kPlanes; ++b)
            std::memcpy(&values[b],
                        planes_ + ((component * kPlanes + b) * wordsOfPlane() + word) * kWordBytes,
                        kWordBytes);
        transposeBits(values);
        const std::int64_t first = word * kPlanes;
        const std::int64_t last = std::min(first + kPlanes, count_);
        for (std::int64_t i = first; i < last; ++i)
            std::memcpy(out_ + (i * components_ + component) * kWordBytes, &values[i - first],
                        kWordBytes);
    }

    const unsigned char* planes_;
    unsigned char* out_;
    std::int64_t count_, components_;
};

}  // namespace

std::int64_t NimbraFrameData::PGroup::wordsIn(int channel) const {
    return std::int64_t(std::max(count, 0)) * prtChannelWords(channel);
}

bool NimbraFrameData::PGroup::allocatePacked(int channel, std::int32_t method, std::int64_t bytes) {
    if (channel < 0 || channel >= kPrtChannelSlots || bytes < 0)
        return false;
    PrtChannelStore& s = store[channel];
    const std::lock_guard guard(s.lock);
    s.data.Clear();
    s.packed.Clear();
    s.expanded.store(false, std::memory_order_release);
    channelMask &= ~channelBit(channel);
    if (!s.packed.SetSize(bytes, nullptr, true))
        return false;
    s.method = method;
    channelMask |= channelBit(channel);
    return true;
}

bool NimbraFrameData::PGroup::setPlanar(int channel, std::span<const std::byte> stream) {
    if (channel < 0 || channel >= kPrtChannelSlots)
        return false;
    PrtChannelStore& s = store[channel];
    const std::lock_guard guard(s.lock);
    s.data.Clear();
    s.packed.Clear();
    s.method = kPrtPlanar;
    channelMask &= ~channelBit(channel);
    const bool done = expandPlanar(channel, stream);
    if (done)
        channelMask |= channelBit(channel);
    else
        s.data.Clear();
    s.expanded.store(done && s.data.data, std::memory_order_release);
    return done;
}

bool NimbraFrameData::PGroup::decompressChannel(int channel, bool freePacked) {
    if (channel < 0 || channel >= kPrtChannelSlots)
        return false;
    PrtChannelStore& s = store[channel];
    if (s.expanded.load(std::memory_order_acquire))
        return true;
    const std::lock_guard guard(s.lock);
    if (s.data.data)
        return true;
    if (!s.packed.data) {
        NMBUtils::logLine("PGroup::decompressChannel failed: no compression data!\n");
        return false;
    }
    const bool known = s.method >= kPrtPlain && s.method <= kPrtBitPlanes;
    const bool done = known && expandPacked(channel);
    if (known && !done) {
        NMBUtils::logLine("Error decompressing particle channel %d with method %d\n", channel,
                          s.method);
        s.data.Clear();
        s.packed.Clear();
        s.blendFrom.Clear();
        s.blendTo.Clear();
    }
    if (freePacked)
        s.packed.Clear();
    s.expanded.store(done && s.data.data, std::memory_order_release);
    return done;
}

bool NimbraFrameData::PGroup::expandPacked(int channel) {
    PrtChannelStore& s = store[channel];
    const std::span packed = std::as_bytes(
        std::span(s.packed.data, static_cast<std::size_t>(std::max<long long>(s.packed.size, 0))));
    switch (s.method) {
        case kPrtPlain:
            std::swap(s.data.data, s.packed.data);
            std::swap(s.data.size, s.packed.size);
            std::swap(s.data.capacity, s.packed.capacity);
            return true;
        case kPrtZip:
            return inflateWords(packed, s.data, wordsIn(channel) * kWordBytes);
        case kPrtSequence:
            return decodeWords(channel, packed, s.data);
        case kPrtPlanar:
            return expandPlanar(channel, packed);
        default:
            return expandBitPlanes(channel);
    }
}

/// Less than the particles need would leave some without values: that isn't a sound channel.
bool NimbraFrameData::PGroup::inflateWords(std::span<const std::byte> packed, Bytes& out,
                                           std::int64_t bytes) const {
    const auto packedBytes = static_cast<std::int64_t>(packed.size());
    std::int64_t inflated = 0;
    return zipCanHold(packedBytes, bytes) && fitsMemory(bytes) &&
           out.SetSize(bytes, nullptr, true) &&
           inflateBuffer(packed.data(), packedBytes, out.data, bytes, &inflated) &&
           inflated == bytes;
}

/// A stream may state fewer floats than there are; the others are 0.
bool NimbraFrameData::PGroup::decodeWords(int channel, std::span<const std::byte> stream,
                                          Bytes& out) {
    const std::int64_t words = wordsIn(channel);
    if (words * kWordBytes > kUnprovenBytes && statedCount(stream) < words)
        return false;
    constexpr unsigned char kZero = 0;
    if (!fitsMemory(words * kWordBytes) || !out.SetSize(words * kWordBytes, &kZero, true))
        return false;
    auto& decoder = compressor[channel];
    bool done = false;
    try {
        if (!decoder)
            decoder = std::make_shared<NMBUtils::SGCompressor<1>>();
        done = decoder->Decode(reinterpret_cast<const std::uint8_t*>(stream.data()), stream.size(),
                               reinterpret_cast<float*>(out.data),
                               static_cast<std::uint64_t>(words)) != 0;
    } catch (const std::bad_alloc&) {
    }
    decoder.reset();
    return done;
}

bool NimbraFrameData::PGroup::expandPlanar(int channel, std::span<const std::byte> stream) {
    const std::int64_t words = prtChannelWords(channel), particles = std::max(count, 0);
    Bytes& out = store[channel].data;
    if (words <= 1)
        return decodeWords(channel, stream, out);
    Bytes planar;
    if (!decodeWords(channel, stream, planar) || !out.SetSize(planar.size, nullptr, true))
        return false;
    for (std::int64_t c = 0; c < words; ++c)
        for (std::int64_t i = 0; i < particles; ++i)
            std::memcpy(out.data + (i * words + c) * kWordBytes,
                        planar.data + (c * particles + i) * kWordBytes, kWordBytes);
    return true;
}

bool NimbraFrameData::PGroup::expandBitPlanes(int channel) {
    PrtChannelStore& s = store[channel];
    const std::int64_t words = prtChannelWords(channel), particles = std::max(count, 0);
    const std::int64_t planeBytes = (particles + kPlanes - 1) / kPlanes * kWordBytes;
    const std::span packed =
        std::as_bytes(std::span(s.packed.data, static_cast<std::size_t>(s.packed.size)));
    Bytes planes;
    if (!inflateWords(packed, planes, words * kPlanes * planeBytes) ||
        !s.data.SetSize(wordsIn(channel) * kWordBytes, nullptr, true))
        return false;
    try {
        MTPrtIn(planes.data, s.data.data, particles, words).Start();
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

}  // namespace nimbra
