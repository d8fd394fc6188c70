// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/sg_compressor.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "cache/sg_decode.h"
#include "foundation/log.h"

namespace NMBUtils {
namespace {

constexpr std::uint16_t kOneZone = 0xFC01, kZonesA = 0xFC02, kZonesB = 0xFC03;
constexpr std::uint64_t kMagicBytes = 2;
constexpr std::uint64_t kHeadBytes = 4;  // of several zones, before their tables
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

bool isSeveral(std::uint16_t magic) {
    return magic == kZonesA || magic == kZonesB;
}

template <class T>
void put(std::vector<std::uint8_t>& out, const T& value) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(&value);
    out.insert(out.end(), p, p + sizeof(T));
}

// With the zone's bytes from its file, if it has one.
int decodeZoneFrom(Zone& zone, int dimensions, NmbArray<int, long long>& work) {
    if (!zone.file)
        return decodeZone(zone, dimensions, work);
    const std::uint64_t bytes = zone.readLimit - std::min(zone.readPos, zone.readLimit);
    std::vector<std::uint8_t> input(bytes);
    if (!zone.file->readAt(zone.offset, std::as_writable_bytes(std::span(input))))
        return 0;
    zone.src = input.data();
    zone.srcEnd = input.data() + bytes;
    const int result = decodeZone(zone, dimensions, work);
    zone.src = zone.srcEnd = nullptr;
    return result;
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
    for (std::size_t i = index; i < zones_.size(); i += threads) {
        Zone& zone = zones_[i];
        zone.result = job->argument == kEncodeZones
                          ? encodeZone(zone.values, zone.count, zone.encoding, zone.out)
                          : decodeZoneFrom(zone, N, *work_[index]);
    }
}

template <int N>
int SGCompressor<N>::Decode(const std::uint8_t* src, std::uint64_t bytes, float* dst,
                            std::uint64_t elementLimit, const char* fromFile) {
    if (fromFile)
        return decodeFile(fromFile, bytes, dst, elementLimit);
    if (bytes < kMagicBytes)
        return 0;
    makeWorkArrays(1);
    const auto magic = load<std::uint16_t>(src);
    if (isSeveral(magic)) {
        if (!readTables(src, bytes, dst, elementLimit))
            return 0;
        for (Zone& zone : zones_) {
            zone.src = src + std::min(zone.offset, bytes);
            zone.srcEnd = src + bytes;
        }
        decodeZones();
        return 1;
    }
    if (magic != kOneZone)
        return 0;
    Zone zone;
    zone.src = src + kMagicBytes;
    zone.srcEnd = src + bytes;
    zone.readLimit = bytes - kMagicBytes;
    zone.dst = dst;
    zone.maxCount = elementLimit;
    return decodeZone(zone, N, *work_[0]);
}

template <int N>
int SGCompressor<N>::decodeFile(const char* path, std::uint64_t bytes, float* dst,
                                std::uint64_t elementLimit) {
    nimbra::InputFile file;
    if (!file.open(path))
        return 0;
    bytes = std::min(bytes, file.size());
    std::vector<std::uint8_t> head(std::min(bytes, kHeadBytes));
    const auto fill = [&](std::uint64_t size) {
        head.resize(size);
        return file.readAt(0, std::as_writable_bytes(std::span(head)));
    };
    if (head.size() < kMagicBytes || !fill(head.size()))
        return 0;
    if (!isSeveral(load<std::uint16_t>(head.data())))
        return fill(bytes) ? Decode(head.data(), bytes, dst, elementLimit) : 0;
    if (head.size() < kHeadBytes)
        return 0;
    const std::uint64_t tables = kHeadBytes + load<std::uint16_t>(head.data() + kMagicBytes) * 8u;
    if (tables > bytes || !fill(tables) || !readTables(head.data(), bytes, dst, elementLimit))
        return 0;
    makeWorkArrays(1);
    for (Zone& zone : zones_) {
        zone.file = &file;
        // The last zone may say too much of its length.
        const std::uint64_t left = bytes - std::min(zone.offset, bytes);
        zone.readLimit = std::min(zone.readLimit, left + zone.readPos);
    }
    decodeZones();
    for (Zone& zone : zones_)
        zone.file = nullptr;
    return 1;
}

// Where the zones begin and end; false for tables that can't be.
template <int N>
bool SGCompressor<N>::readTables(const std::uint8_t* head, std::uint64_t bytes, float* dst,
                                 std::uint64_t elementLimit) {
    if (bytes < kHeadBytes)
        return false;
    const std::size_t count = load<std::uint16_t>(head + kMagicBytes);
    if (bytes - kHeadBytes < count * 8)
        return false;
    const std::uint8_t* const elements = head + kHeadBytes;
    const std::uint8_t* const offsets = elements + count * 4;
    const std::uint64_t dataAt = kHeadBytes + count * 8;
    const auto dataBytes = static_cast<std::int64_t>(bytes - dataAt);
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
            return false;
        Zone& zone = zones_[i];
        // A zone that ends before it begins has no limit of its own; the input's end still holds.
        const std::int64_t length = offset(i + 1) - offset(i);
        zone.readLimit = static_cast<std::uint64_t>(length);
        zone.readPos = kMagicBytes;
        zone.offset = dataAt + static_cast<std::uint64_t>(offset(i)) + kMagicBytes;
        zone.dst = dst + element(i);
        const std::int64_t room = element(i + 1) - element(i);
        zone.maxCount = room > 0 ? static_cast<std::uint64_t>(room) : 0;
    }
    return true;
}

template <int N>
void SGCompressor<N>::decodeZones() {
    if (!partsAreDisjoint(zones_)) {
        for (Zone& zone : zones_)
            zone.result = decodeZoneFrom(zone, N, *work_[0]);
        return;
    }
    // Not before there is work for them: most streams have one zone.
    InitJobs(static_cast<std::uint32_t>(threadRequest_));
    makeWorkArrays(jobCount());
    Start(kDecodeZones);
}

template <int N>
bool SGCompressor<N>::Encode(const float* values, std::size_t count, int zoneCount,
                             const ZoneEncoding& encoding,
                             std::vector<std::uint8_t>& out) requires(N == 1) {
    constexpr std::size_t kMostZones = 65535;
    const std::size_t zones =
        std::clamp<std::size_t>(static_cast<std::size_t>(std::max(zoneCount, 1)), 1,
                                std::clamp<std::size_t>(count, 1, kMostZones));
    if (zones == 1)
        return encodeZone(values, count, encoding, out);
    zones_.assign(zones, {});
    for (std::size_t i = 0; i < zones; ++i) {
        const std::size_t first = count * i / zones;
        zones_[i].values = values + first;
        zones_[i].count = count * (i + 1) / zones - first;
        zones_[i].encoding = encoding;
    }
    InitJobs(static_cast<std::uint32_t>(threadRequest_));
    Start(kEncodeZones);
    put(out, kZonesB);
    put(out, static_cast<std::uint16_t>(zones));
    for (const Zone& zone : zones_)
        put(out, static_cast<std::int32_t>(zone.values - values));
    std::size_t offset = 0;
    for (const Zone& zone : zones_) {
        put(out, static_cast<std::int32_t>(offset));
        offset += zone.out.size();
        if (!zone.result || offset > INT32_MAX)
            return false;
    }
    for (const Zone& zone : zones_)
        out.insert(out.end(), zone.out.begin(), zone.out.end());
    zones_.clear();
    return true;
}

bool encodeStream(const float* values, std::size_t count, int zoneCount,
                  const ZoneEncoding& encoding, std::vector<std::uint8_t>& out) {
    return SGCompressor<1>().Encode(values, count, zoneCount, encoding, out);
}

template class SGCompressor<1>;
template class SGCompressor<3>;

}  // namespace NMBUtils
