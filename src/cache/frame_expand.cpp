// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From stored channels to voxels, when somebody asks: the lock, the search for a record, and the
// channels that are made from others.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <thread>
#include <type_traits>

#include "cache/frame_data.h"
#include "cache/sg_compressor.h"
#include "cache/zip_inflate.h"
#include "foundation/log.h"
#include "foundation/parallel.h"

namespace nimbra {
namespace {

/// A number for each thread that ever asked, never 0.
std::uint32_t thisThread() {
    static std::atomic<std::uint32_t> last{0};
    thread_local std::uint32_t mine = 0;
    while (mine == 0)
        mine = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return mine;
}

/// Speed = length of the velocity, for all voxels.
class MTBuildScalarSpeedFromVelocity final : public NMBUtils::NmbParallel {
public:
    using Proxy = NimbraFrameData::Proxy;
    MTBuildScalarSpeedFromVelocity(const Proxy velocity[3], float* speed)
        : velocity_(velocity), speed_(speed) {}

    const char* GetName() const override { return "MTBuildScalarSpeedFromVelocity"; }
    void Run(NMBUtils::Job* job) override {
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i) {
            const float x = velocity_[0].read(i), y = velocity_[1].read(i);
            const float z = velocity_[2].read(i);
            speed_[i] = std::sqrt(x * x + y * y + z * z);
        }
    }

private:
    const Proxy* velocity_;
    float* speed_;
};

/// The payload of a packed colour record: a 64-bit length, then a zlib stream, which knows its own
/// end: a length beyond `bytesLeft`, those up to the end of all records, does no harm.
bool inflatePackedColor(const std::int32_t* payload, std::int64_t bytesLeft, GridStorage& storage) {
    std::int64_t packedBytes = 0;
    const std::int64_t lengthBytes = std::min<std::int64_t>(bytesLeft, sizeof packedBytes);
    std::memcpy(&packedBytes, payload, static_cast<std::size_t>(lengthBytes));
    const std::int64_t present = bytesLeft - lengthBytes;
    if (packedBytes < 0 || packedBytes > present)
        packedBytes = present;
    return inflateBuffer(reinterpret_cast<const unsigned char*>(payload) + lengthBytes, packedBytes,
                         storage.voxels.data,
                         storage.cells * static_cast<std::int64_t>(sizeof(float)));
}

}  // namespace

void NimbraFrameData::lock() {
    const std::uint32_t me = thisThread();
    if (lockOwner.load(std::memory_order_relaxed) == me) {
        ++lockDepth;
        return;
    }
    // An expansion can take long: a waiting thread soon leaves the processor to others.
    constexpr int kSpins = 64;
    for (int spins = 0; lockWord.exchange(1, std::memory_order_acquire) != 0; ++spins)
        if (spins >= kSpins)
            std::this_thread::yield();
    lockOwner.store(me, std::memory_order_relaxed);
    lockDepth = 1;
}

void NimbraFrameData::unlock() {
    if (--lockDepth > 0)
        return;
    lockOwner.store(0, std::memory_order_relaxed);
    lockWord.exchange(0, std::memory_order_release);
}

NimbraFrameData::Proxy& NimbraFrameData::getChannelProxy(int channel) {
    const int id = std::clamp(channel, 0, kChannelSlots);
    const FrameLock guard(*this);
    if (id == kChannelSlots)
        return absentChannel_;
    Proxy& proxy = channels[id];
    if (proxy.loaded)
        return proxy;
    if (id == kPackedColor)
        expandPackedColor();
    else
        expandStored(id);
    if (id == kSpeed && !proxy.loaded)
        deriveSpeed();
    if (id >= kColorR && id <= kColorB && !proxy.loaded)
        getChannelProxy(kPackedColor);
    return proxy;
}

void NimbraFrameData::expandStored(int channel) {
    // A record: id, n, then n words. Both head words must lie in the block.
    const std::int64_t end = std::int64_t(compressedInts) - 1;
    for (std::int64_t at = 0; compressed && at < end;) {
        const std::int32_t id = compressed[at];
        const std::int64_t words = compressed[at + 1];
        if (words < 1)
            return;
        if (id == channel) {
            const std::int64_t left = std::int64_t(compressedInts) - at - 2;
            expandRecord(channel, compressed + at + 2,
                         channel == kPackedColor ? left : std::min(words, left));
            return;
        }
        at += words + 2;
    }
}

void NimbraFrameData::expandRecord(int channel, const std::int32_t* payload,
                                   std::int64_t payloadWords) {
    constexpr int kSpareFloats = 4;
    Proxy& proxy = channels[channel];
    if (!proxy.allocate(gridSize, kSpareFloats))
        return;
    const std::int64_t bytes = payloadWords * static_cast<std::int64_t>(sizeof(std::int32_t));
    const bool expanded = channel == kPackedColor
                              ? inflatePackedColor(payload, bytes, *proxy.storage)
                              : decodeStream(payload, bytes, *proxy.storage);
    if (expanded)
        return;
    NMBUtils::logLine("Invalid cache file!!!\n");
    freeChannel(channel);
}

bool NimbraFrameData::decodeStream(const std::int32_t* payload, std::int64_t payloadBytes,
                                   GridStorage& storage) {
    // Older files, and frames that never were a file, hold boxes; later files plain sequences.
    constexpr std::int32_t kFirstSequenceVersion = 5;
    const auto decode = [&](auto& compressor) {
        using Compressor = typename std::remove_reference_t<decltype(compressor)>::element_type;
        if (!compressor)
            compressor = std::make_shared<Compressor>();
        return compressor->Decode(reinterpret_cast<const std::uint8_t*>(payload),
                                  static_cast<std::uint64_t>(payloadBytes), storage.voxels.data,
                                  static_cast<std::uint64_t>(storage.voxels.size)) != 0;
    };
    try {
        return fileVersion >= kFirstSequenceVersion && fileVersion < kNoVersion
                   ? decode(compressor1D)
                   : decode(compressor3D);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void NimbraFrameData::deriveSpeed() {
    for (int c = kVelocityX; c <= kVelocityZ; ++c)
        if (!getChannelProxy(c).loaded || channels[c].storage->cells < voxelCount(gridSize))
            return;
    Proxy& speed = channels[kSpeed];
    if (!speed.allocate(gridSize))
        return;
    try {
        MTBuildScalarSpeedFromVelocity job(&channels[kVelocityX], speed.denseVoxels());
        job.SplitRange(speed.storage->cells);
        job.Start();
    } catch (const std::bad_alloc&) {
        freeChannel(kSpeed);
    }
}

void NimbraFrameData::expandPackedColor() {
    // The packed form goes once it is unpacked. A second request must not put new arrays in place
    // of those that other threads sample by now.
    const bool present =
        channels[kColorR].loaded && channels[kColorG].loaded && channels[kColorB].loaded;
    if (colorUnpacked_ && present)
        return;
    expandStored(kPackedColor);
    if (!channels[kPackedColor].loaded)
        return;
    unpackColor();
    colorUnpacked_ = true;
    freeChannel(kPackedColor);
}

void NimbraFrameData::unpackColor() {
    const GridStorage& packed = *channels[kPackedColor].storage;
    for (int c = kColorR; c <= kColorB; ++c) {
        // A range that the file states stays.
        if (!channels[c].allocate(gridSize))
            continue;
        constexpr float kByteToUnit = 0.003921569f;
        const int shift = 8 * (kColorB - c);
        float* const out = channels[c].denseVoxels();
        for (std::int64_t i = 0; i < packed.cells; ++i) {
            std::uint32_t word;
            std::memcpy(&word, &packed.voxels.data[i], sizeof word);
            out[i] = static_cast<float>((word >> shift) & 255) * kByteToUnit;
        }
    }
}

}  // namespace nimbra
