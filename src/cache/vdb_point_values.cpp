// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Values of points: unpacking, and the codecs.

#include <Imath/half.h>
#include <blosc.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "cache/vdb_points.h"

namespace nimbra {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t kVoxels = 512;

/// Blosc into exactly `plainBytes`; short buffers may have been filled up to 128 before packing.
bool unpack(Bytes packed, std::size_t plainBytes, std::vector<std::byte>& out) {
    constexpr std::size_t kHead = 16, kFilledUp = 128, kMostRatio = 300;
    if (packed.size() < kHead || plainBytes / kMostRatio > packed.size())
        return false;
    std::uint32_t stated = 0, statedPacked = 0;
    std::memcpy(&stated, packed.data() + 4, sizeof stated);
    std::memcpy(&statedPacked, packed.data() + 12, sizeof statedPacked);
    const bool filledUp = plainBytes < kFilledUp && stated == kFilledUp;
    if (statedPacked != packed.size() || (stated != plainBytes && !filledUp))
        return false;
    out.resize(stated);
    return blosc_decompress_ctx(packed.data(), out.data(), stated, 1) == static_cast<int>(stated);
}

/// How values of a type and a codec are stored.
struct Storage {
    enum Number { kNone, kHalf, kFloat, kDouble, kByte, kShort, kUnsignedShort, kInt };
    Number number = kNone;
    int components = 0;
    float divisor = 1, offset = 0;

    std::size_t numberBytes() const {
        constexpr std::size_t kBytes[] = {0, 2, 4, 8, 1, 2, 2, 4};
        return kBytes[number];
    }
    std::size_t valueBytes() const { return numberBytes() * static_cast<std::size_t>(components); }
};

Storage storageOf(const VdbPointAttribute& a) {
    Storage s;
    const bool vector = a.type == "vec3s" || a.type == "vec3d";
    const bool real = vector || a.type == "float" || a.type == "double";
    const bool wide = a.type == "vec3d" || a.type == "double";
    s.components = vector ? 3 : 1;
    if (a.type == "int32") {
        s.number = a.codec == "null"   ? Storage::kInt
                   : a.codec == "trnc" ? Storage::kShort
                                       : Storage::kNone;
    } else if (real && a.codec == "null") {
        s.number = wide ? Storage::kDouble : Storage::kFloat;
    } else if (real && a.codec == "trnc") {
        s.number = wide ? Storage::kFloat : Storage::kHalf;
    } else if (real && (a.codec == "fxpt8" || a.codec == "ufxpt8")) {
        s.number = Storage::kByte;
        s.divisor = 255;
    } else if (real && (a.codec == "fxpt16" || a.codec == "ufxpt16")) {
        s.number = Storage::kUnsignedShort;
        s.divisor = 65535;
    }
    if (a.codec[0] == 'f')
        s.offset = -0.5f;
    return s;
}

template <class T>
float load(const std::byte* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return static_cast<float>(value);
}

float decode(const Storage& s, const std::byte* at) {
    switch (s.number) {
        case Storage::kHalf: {
            std::uint16_t bits;
            std::memcpy(&bits, at, sizeof bits);
            return imath_half_to_float(bits);
        }
        case Storage::kFloat:
            return load<float>(at);
        case Storage::kDouble:
            return load<double>(at);
        case Storage::kByte:
            return load<std::uint8_t>(at) / s.divisor + s.offset;
        case Storage::kUnsignedShort:
            return load<std::uint16_t>(at) / s.divisor + s.offset;
        case Storage::kShort:
            return load<std::int16_t>(at);
        default:
            return load<std::int32_t>(at);
    }
}

/// Hands out the plain bytes of arrays, one page after the other.
class ArrayReader {
public:
    ArrayReader(Bytes grid, const std::vector<VdbPointPage>& pages) : grid_(grid), pages_(pages) {}

    /// Empty (and false) when they don't unpack to `plainBytes`.
    bool read(const VdbPointArray& array, std::size_t plainBytes, Bytes& out) {
        if (!array.paged) {
            out = grid_.subspan(array.position, array.bytes);
            if (array.blosc) {
                current_ = -1;
                if (!unpack(out, plainBytes, plain_))
                    return false;
                out = Bytes(plain_).first(plainBytes);
            }
            return out.size() == plainBytes;
        }
        if (array.bytes != plainBytes || !open(array.page))
            return false;
        out = page_.subspan(array.pageByte, plainBytes);
        return true;
    }

private:
    bool open(std::uint32_t index) {
        if (current_ == index)
            return true;
        current_ = -1;
        const VdbPointPage& page = pages_[index];
        const auto plainBytes = static_cast<std::size_t>(page.plainBytes);
        if (page.packedBytes == 0) {
            page_ = grid_.subspan(page.position, plainBytes);
        } else {
            const Bytes packed =
                grid_.subspan(page.position, static_cast<std::size_t>(page.packedBytes));
            if (!unpack(packed, plainBytes, plain_))
                return false;
            page_ = Bytes(plain_).first(plainBytes);
        }
        current_ = index;
        return true;
    }

    Bytes grid_;
    const std::vector<VdbPointPage>& pages_;
    std::vector<std::byte> plain_;
    Bytes page_;
    std::int64_t current_ = -1;
};

}  // namespace

bool pointValuesReadable(const VdbPointAttribute& attribute, int components) {
    const Storage storage = storageOf(attribute);
    return storage.number != Storage::kNone && storage.components == components;
}

bool readPointValues(Bytes grid, const VdbPoints& points, int attribute, int components,
                     std::vector<float>& out, std::string& problem) {
    const auto index = static_cast<std::size_t>(attribute);
    const VdbPointAttribute& a = points.attributes[index];
    problem = "the attribute '" + printable(a.name) + "' can't be read";
    if (!pointValuesReadable(a, components))
        return false;
    const Storage storage = storageOf(a);
    out.clear();
    out.reserve(static_cast<std::size_t>(points.count * components));
    ArrayReader reader(grid, points.pages[index]);
    const auto positions = static_cast<std::size_t>(std::max(points.attribute("P"), 0));
    for (std::size_t leaf = 0; leaf < points.leaves.size(); ++leaf) {
        const VdbPointArray& array = points.arrays[index][leaf];
        // Every attribute has a value for every point.
        if (array.stride != 1 || array.points != points.arrays[positions][leaf].points)
            return false;
        const std::size_t stored = array.uniform ? 1 : array.points;
        Bytes bytes;
        if (!reader.read(array, stored * storage.valueBytes(), bytes))
            return false;
        for (std::size_t i = 0; i < array.points; ++i)
            for (int c = 0; c < components; ++c)
                out.push_back(
                    decode(storage, bytes.data() + (array.uniform ? 0 : i) * storage.valueBytes() +
                                        static_cast<std::size_t>(c) * storage.numberBytes()));
    }
    problem.clear();
    return true;
}

bool readPointVoxels(Bytes grid, const VdbPoints& points,
                     std::vector<std::array<std::int32_t, 3>>& out, std::string& problem) {
    const int positions = points.attribute("P");
    problem = "the voxels of its points are damaged";
    out.clear();
    if (positions < 0)
        return false;
    out.reserve(static_cast<std::size_t>(points.count));
    for (std::size_t i = 0; i < points.leaves.size(); ++i) {
        const VdbPointLeaf& leaf = points.leaves[i];
        std::uint32_t ends[kVoxels];
        std::vector<std::byte> plain;
        Bytes bytes = grid.subspan(leaf.voxels);
        if (leaf.voxelBytes != kPlainPointVoxels) {
            if (!unpack(bytes.first(leaf.voxelBytes), sizeof ends, plain))
                return false;
            bytes = plain;
        }
        std::memcpy(ends, bytes.data(), sizeof ends);
        const std::uint32_t count = points.arrays[static_cast<std::size_t>(positions)][i].points;
        if (!std::is_sorted(std::begin(ends), std::end(ends)) || ends[kVoxels - 1] != count)
            return false;
        std::uint32_t point = 0;
        for (int v = 0; v < static_cast<int>(kVoxels); ++v)
            for (; point < ends[v]; ++point)
                out.push_back({leaf.origin[0] + (v >> 6), leaf.origin[1] + (v >> 3 & 7),
                               leaf.origin[2] + (v & 7)});
    }
    problem.clear();
    return true;
}

}  // namespace nimbra
