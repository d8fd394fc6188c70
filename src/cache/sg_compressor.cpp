// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/sg_compressor.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "cache/sg_decode.h"
#include "foundation/log.h"

namespace NMBUtils {
namespace {

constexpr std::uint16_t kOneZone = 0xFC01, kZonesA = 0xFC02, kZonesB = 0xFC03;
constexpr long long kFirstWorkSize = 100000;

template <class T>
T load(const std::uint8_t* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

// Zones whose parts follow one another can be decoded side by side.
bool partsAreDisjoint(const std::vector<Zone>& zones) {
    for (std::size_t i = 1; i < zones.size(); ++i)
        if (zones[i].dst < zones[i - 1].dst)
            return false;
    return true;
}

}  // namespace

template <int N>
SGCompressor<N>::SGCompressor(int threads, TessUtils::ThreadManager* manager)
    : NmbParallel(manager), threadRequest_(threads) {}

template <int N>
void SGCompressor<N>::makeWorkArrays(int count) {
    while (static_cast<int>(work_.size()) < count) {
        work_.push_back(std::make_unique<WorkArray>());
        if (work_.back()->SetSize(kFirstWorkSize, nullptr, true))
            work_.back()->SetSize(0);
    }
}

template <int N>
std::size_t SGCompressor<N>::workBytes() const {
    std::size_t bytes = 0;
    for (const auto& w : work_)
        bytes += static_cast<std::size_t>(w->capacity) * sizeof(int);
    return bytes;
}

template <int N>
void SGCompressor<N>::Run(Job* job) {
    const auto threads = static_cast<std::size_t>(jobCount());
    const auto index = static_cast<std::size_t>(job->index);
    for (std::size_t i = index; i < zones_.size(); i += threads)
        zones_[i].result = decodeZone(zones_[i], N, *work_[index]);
}

template <int N>
int SGCompressor<N>::Decode(const std::uint8_t* src, std::uint64_t bytes, float* dst,
                            std::uint64_t elementLimit) {
    if (bytes < 2)
        return 0;
    makeWorkArrays(1);
    const auto magic = load<std::uint16_t>(src);
    if (magic == kZonesA || magic == kZonesB)
        return decodeZones(src, bytes, dst, elementLimit);
    if (magic != kOneZone)
        return 0;
    Zone zone;
    zone.src = src + 2;
    zone.srcEnd = src + bytes;
    zone.readLimit = bytes - 2;
    zone.dst = dst;
    zone.maxCount = elementLimit;
    return decodeZone(zone, N, *work_[0]);
}

template <int N>
int SGCompressor<N>::decodeZones(const std::uint8_t* src, std::uint64_t bytes, float* dst,
                                 std::uint64_t elementLimit) {
    if (bytes < 4)
        return 0;
    const std::size_t count = load<std::uint16_t>(src + 2);
    if (bytes - 4 < count * 8)
        return 0;
    const std::uint8_t* const elements = src + 4;
    const std::uint8_t* const offsets = elements + count * 4;
    const std::uint8_t* const data = offsets + count * 4;
    const auto dataBytes = static_cast<std::int64_t>(bytes - 4 - count * 8);
    const auto limit = static_cast<std::int64_t>(std::min<std::uint64_t>(
        elementLimit, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
    const auto element = [&](std::size_t i) {
        return i < count ? std::int64_t{load<std::int32_t>(elements + i * 4)} : limit;
    };
    const auto offset = [&](std::size_t i) {
        return i < count ? std::int64_t{load<std::int32_t>(offsets + i * 4)} : dataBytes;
    };
    zones_.assign(count, {});
    for (std::size_t i = 0; i < count; ++i) {
        if (element(i) < 0 || element(i) >= limit || offset(i) < 0 || offset(i) >= dataBytes)
            return 0;
        Zone& zone = zones_[i];
        // A zone that ends before it begins has no limit of its own; the input's end still holds.
        const std::int64_t length = offset(i + 1) - offset(i);
        zone.readLimit = static_cast<std::uint64_t>(length);
        zone.readPos = 2;
        zone.src = data + std::min(offset(i) + 2, dataBytes);
        zone.srcEnd = data + dataBytes;
        zone.dst = dst + element(i);
        const std::int64_t room = element(i + 1) - element(i);
        zone.maxCount = room > 0 ? static_cast<std::uint64_t>(room) : 0;
    }
    if (partsAreDisjoint(zones_)) {
        // Not before there is work for them: most streams have one zone.
        InitJobs(static_cast<std::uint32_t>(threadRequest_));
        makeWorkArrays(jobCount());
        Start();
    } else {
        for (Zone& zone : zones_)
            zone.result = decodeZone(zone, N, *work_[0]);
    }
    return 1;
}

template class SGCompressor<1>;
template class SGCompressor<3>;

}  // namespace NMBUtils
