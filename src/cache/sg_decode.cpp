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

// Symbols become integers; a negative symbol repeats the integer before it.
class SymbolExpander {
public:
    SymbolExpander(const Zone& zone, std::int32_t base)
        : in_(zone.src, static_cast<std::size_t>(zone.srcEnd - zone.src)),
          offset_(static_cast<std::uint32_t>(base)) {}

    bool init() { return decoder_.init(in_); }

    // The next integers, of `left` that the zone still lacks. False when the bits end too early:
    // what stands in the file then isn't what was written.
    bool next(std::uint32_t* q, std::size_t count, std::uint64_t left) {
        BitReader in = in_;  // on the stack, the compiler keeps it in registers
        for (std::size_t i = 0; i < count;) {
            if (run_ == 0)
                i = decoder_.directBits() ? readDirect(in, q, i, count)
                                          : readCodes(in, q, i, count);
            if (run_ > left - i) {
                logLine("DecodeAndExpand - constant sequence longer than expected\n");
                run_ = left - i;
            }
            const std::size_t part = std::min<std::uint64_t>(run_, count - i);
            std::fill_n(q + i, part, last_);
            run_ -= part;
            i += part;
        }
        in_ = in;
        return !in_.overrun();
    }

private:
    // Both read up to the next run or to `count`, and answer how far they got.
    std::size_t readDirect(BitReader& in, std::uint32_t* q, std::size_t i, std::size_t count) {
        while (i < count) {
            const std::int32_t symbol = decoder_.next(in);
            if (symbol < 0) {
                run_ = 0u - static_cast<std::uint32_t>(symbol);
                break;
            }
            q[i++] = last_ = static_cast<std::uint32_t>(symbol) + offset_;
        }
        return i;
    }

    std::size_t readCodes(BitReader& reader, std::uint32_t* q, std::size_t i, std::size_t count) {
        BitReader in = reader;
        const std::uint32_t offset = offset_;
        const std::size_t begin = i;
        while (i < count && run_ == 0) {
            in.refill();
            const std::size_t end = std::min<std::size_t>(count, i + BitDecoder::kSymbolsPerRefill);
            while (i < end) {
                const CodeEntry e = decoder_.look(in);
                in.skip(e.length());
                if (e.kind() == CodeEntry::Value) [[likely]] {
                    q[i++] = e.value() + offset;
                    continue;
                }
                BitReader other =
                    in;  // a copy, since one that goes elsewhere can't stay in registers
                const std::int32_t symbol = e.kind() == CodeEntry::LongCode
                                                ? decoder_.walk(other, e)
                                                : static_cast<std::int32_t>(e.value());
                in = other;
                if (symbol < 0)
                    run_ = 0u - static_cast<std::uint32_t>(symbol);
                else
                    q[i++] = static_cast<std::uint32_t>(symbol) + offset;
                break;
            }
        }
        if (i > begin)
            last_ = q[i - 1];
        reader = in;
        return i;
    }

    BitReader in_;
    BitDecoder decoder_;
    std::uint32_t offset_;
    std::uint32_t last_ = 0;
    std::uint64_t run_ = 0;  // repetitions of the last integer that are still to come
};

// Undoes differencing along a sequence that comes in parts.
class SequenceSums {
public:
    explicit SequenceSums(int order) : order_(order) {}

    void undo(std::uint32_t* q, std::size_t count) {
        for (int k = order_; k > 0; --k) {
            // The pass leaves the first k integers of the sequence as they are.
            const auto untouched = static_cast<std::uint64_t>(k);
            const std::size_t first = untouched > begin_ ? untouched - begin_ : 0;
            if (first < count) {
                std::uint32_t sum = first > 0 ? q[first - 1] : last_[k];
                for (std::size_t i = first; i < count; ++i)
                    q[i] = sum += q[i];
            }
            last_[k] = q[count - 1];
        }
        begin_ += count;
    }

private:
    int order_;
    std::uint64_t begin_ = 0;       // of the coming part
    std::uint32_t last_[256] = {};  // of the part before, behind each pass
};

void convert(const std::uint32_t* q, std::uint64_t count, float scale, float minValue, float* dst) {
    const float inverse = 1.0f / scale;
    for (std::uint64_t i = 0; i < count; ++i)
        dst[i] = static_cast<float>(static_cast<std::int32_t>(q[i])) * inverse + minValue;
}

bool resizeWork(NmbArray<int, long long>& work, std::uint64_t count) {
    if (work.SetSize(static_cast<long long>(count), nullptr, true))
        return true;
    logLine("Can't allocate %d MB for decompression", static_cast<int>(count / 0x100000));
    return false;
}

// A part stays in the cache from its bits to its floats, and work memory stays small.
int decodeSequence(Zone& zone, const QuantisedHeader& h, NmbArray<int, long long>& work) {
    constexpr std::uint64_t kPart = 4096;
    if (!resizeWork(work, std::min(h.count, kPart)))
        return 0;
    auto* const q = reinterpret_cast<std::uint32_t*>(work.data);
    SymbolExpander symbols(zone, h.base);
    if (!symbols.init())
        return 0;
    SequenceSums sums(h.order);
    for (std::uint64_t done = 0; done < h.count; done += kPart) {
        const std::uint64_t left = h.count - done;
        const std::size_t count = std::min(left, kPart);
        if (!symbols.next(q, count, left))
            return 0;
        sums.undo(q, count);
        convert(q, count, h.scale, h.minValue, zone.dst + done);
    }
    return 1;
}

// Undoes differencing along x, y and z of a box, x fastest.
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

int decodeBox(Zone& zone, const QuantisedHeader& h, NmbArray<int, long long>& work) {
    if (!resizeWork(work, h.count))
        return 0;
    auto* const q = reinterpret_cast<std::uint32_t*>(work.data);
    SymbolExpander symbols(zone, h.base);
    if (!symbols.init() || !symbols.next(q, h.count, h.count))
        return 0;
    // Two large sizes beside a zero would still make many rows.
    if (h.count == 0)
        return 1;
    undoDifferences(q, h.size, h.order);
    convert(q, h.count, h.scale, h.minValue, zone.dst);
    return 1;
}

int decodeQuantised(Zone& zone, int dimensions, NmbArray<int, long long>& work) {
    QuantisedHeader h;
    if (!readHeader(zone, dimensions, h) || h.count > zone.maxCount)
        return 0;
    return dimensions == 1 ? decodeSequence(zone, h, work) : decodeBox(zone, h, work);
}

}  // namespace

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
