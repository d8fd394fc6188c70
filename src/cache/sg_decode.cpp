// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/sg_decode.h"

#include <algorithm>
#include <cstring>

#include "cache/bit_coder.h"
#include "foundation/log.h"

namespace NMBUtils {
namespace {

// Reads a field of the zone's header; false behind the zone's last byte.
template <class T>
bool readField(Zone& zone, T& out) {
    const auto left = static_cast<std::uint64_t>(zone.srcEnd - zone.src);
    if (zone.readLimit - zone.readPos < sizeof(T) || zone.readPos > zone.readLimit ||
        left < sizeof(T))
        return false;
    std::memcpy(&out, zone.src, sizeof(T));
    zone.src += sizeof(T);
    zone.readPos += sizeof(T);
    return true;
}

bool readCount(Zone& zone, std::uint64_t& count) {
    std::int32_t n = 0;
    if (!readField(zone, n) || n < 0)
        return false;
    count = static_cast<std::uint64_t>(n);
    return count <= zone.maxCount;
}

int decodeRaw(Zone& zone) {
    std::uint64_t count = 0;
    if (!readCount(zone, count))
        return 0;
    const auto left = static_cast<std::uint64_t>(zone.srcEnd - zone.src);
    if (count * 4 > left || count * 4 > zone.readLimit - zone.readPos)
        return 0;
    if (count)
        std::memcpy(zone.dst, zone.src, count * 4);
    return 1;
}

int decodeConstant(Zone& zone) {
    std::uint64_t count = 0;
    float value = 0;
    if (!readCount(zone, count) || !readField(zone, value))
        return 0;
    std::fill_n(zone.dst, count, value);
    return 1;
}

struct QuantisedHeader {
    std::uint64_t count = 1;
    std::size_t size[3] = {1, 1, 1};
    float scale = 1;
    float minValue = 0;
    std::int32_t base = 0;
    std::uint8_t order = 0;
};

bool readExtents(Zone& zone, int dimensions, QuantisedHeader& h) {
    for (int axis = 0; axis < dimensions; ++axis) {
        std::int32_t n = 0;
        if (!readField(zone, n) || n < 0)
            return false;
        h.size[axis] = static_cast<std::size_t>(n);
        // Bounded at each axis, so that the product stays within 64 bits.
        if (n > 0 && h.count > zone.maxCount / static_cast<std::uint64_t>(n)) {
            h.count = zone.maxCount + 1;
            continue;
        }
        h.count *= static_cast<std::uint64_t>(n);
    }
    return true;
}

bool readHeader(Zone& zone, int dimensions, QuantisedHeader& h) {
    if (!readExtents(zone, dimensions, h) || !readField(zone, h.scale) ||
        !readField(zone, h.minValue) || !readField(zone, h.base) || !readField(zone, h.order))
        return false;
    if (h.minValue > 0 && h.minValue < 1e-20f)
        h.minValue = 0;
    return true;
}

// Symbols become integers; a negative symbol repeats the integer before it. Returns false when the
// bits end too early: what stands in the file then isn't what was written.
bool expandSymbols(BitReader& in, BitDecoder& decoder, std::int32_t base, std::uint32_t* q,
                   std::uint64_t count) {
    const auto offset = static_cast<std::uint32_t>(base);
    std::uint64_t i = 0;
    while (i < count) {
        const std::int32_t symbol = decoder.next(in);
        if (symbol >= 0) {
            q[i++] = static_cast<std::uint32_t>(symbol) + offset;
            continue;
        }
        const std::uint64_t run = 0u - static_cast<std::uint32_t>(symbol);
        if (run > count - i) {
            logLine("DecodeAndExpand - constant sequence longer than expected\n");
            std::fill(q + i, q + count, i ? q[i - 1] : 0u);
            break;
        }
        std::fill_n(q + i, run, i ? q[i - 1] : 0u);
        i += run;
    }
    return !in.overrun();
}

void convert(const std::uint32_t* q, std::uint64_t count, float scale, float minValue, float* dst) {
    const float inverse = 1.0f / scale;
    for (std::uint64_t i = 0; i < count; ++i)
        dst[i] = static_cast<float>(static_cast<std::int32_t>(q[i])) * inverse + minValue;
}

int decodeQuantised(Zone& zone, int dimensions, NmbArray<int, long long>& work) {
    QuantisedHeader h;
    if (!readHeader(zone, dimensions, h) || h.count > zone.maxCount)
        return 0;
    if (!work.SetSize(static_cast<long long>(h.count), nullptr, true)) {
        logLine("Can't allocate %d MB for decompression\n", static_cast<int>(h.count / 0x100000));
        return 0;
    }
    BitReader in(zone.src, static_cast<std::size_t>(zone.srcEnd - zone.src));
    BitDecoder decoder;
    if (!decoder.init(in))
        return 0;
    auto* q = reinterpret_cast<std::uint32_t*>(work.data);
    if (!expandSymbols(in, decoder, h.base, q, h.count))
        return 0;
    if (dimensions == 1)
        undoDifferences(q, h.count, h.order);
    else
        undoDifferences(q, h.size, h.order);
    convert(q, h.count, h.scale, h.minValue, zone.dst);
    return 1;
}

}  // namespace

void undoDifferences(std::uint32_t* q, std::size_t count, int order) {
    for (int k = order; k > 0; --k) {
        const auto first = static_cast<std::size_t>(k);
        if (first >= count)
            continue;
        std::uint32_t sum = q[first - 1];
        for (std::size_t i = first; i < count; ++i)
            q[i] = sum += q[i];
    }
}

void undoDifferences(std::uint32_t* q, const std::size_t size[3], int order) {
    const std::size_t plane = size[0] * size[1];
    const auto addRow = [](std::uint32_t* to, const std::uint32_t* from, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i)
            to[i] += from[i];
    };
    for (int k = order; k > 0; --k) {
        const auto first = static_cast<std::size_t>(k);
        for (std::size_t row = 0; row < size[1] * size[2]; ++row)
            for (std::size_t x = first; x < size[0]; ++x)
                q[row * size[0] + x] += q[row * size[0] + x - 1];
        for (std::size_t z = 0; z < size[2]; ++z)
            for (std::size_t y = first; y < size[1]; ++y)
                addRow(q + z * plane + y * size[0], q + z * plane + (y - 1) * size[0], size[0]);
        for (std::size_t z = first; z < size[2]; ++z)
            addRow(q + z * plane, q + (z - 1) * plane, plane);
    }
}

int decodeZone(Zone& zone, int dimensions, NmbArray<int, long long>& work) {
    std::uint8_t method = 0;
    if (!readField(zone, method))
        return 0;
    switch (method) {
        case 0:
            return decodeRaw(zone);
        case 1:
            return decodeConstant(zone);
        case 2:
            return decodeQuantised(zone, dimensions, work);
        default:
            return 0;
    }
}

}  // namespace NMBUtils
