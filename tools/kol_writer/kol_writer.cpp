// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "kol_writer/kol_writer.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace nimbra {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <class T>
void put(Bytes& out, const T& value) {
    const auto* const p = reinterpret_cast<const std::uint8_t*>(&value);
    out.insert(out.end(), p, p + sizeof(T));
}

void putText(Bytes& out, const std::string& text) {
    put(out, static_cast<std::int32_t>(text.size()));
    out.insert(out.end(), text.begin(), text.end());
}

void putSection(Bytes& out, std::int32_t id) {
    put(out, id);
}

/// Writes a chunk's id, and its size once its payload stands there.
template <class WritePayload>
void putChunk(Bytes& out, std::int32_t id, WritePayload&& writePayload) {
    put(out, id);
    const std::size_t sizeAt = out.size();
    put(out, std::int64_t{0});
    writePayload();
    const auto size = static_cast<std::int64_t>(out.size() - sizeAt - sizeof(std::int64_t));
    std::memcpy(out.data() + sizeAt, &size, sizeof size);
}

bool deflateInto(Bytes& out, const void* data, std::size_t size) {
    uLongf packed = compressBound(size);
    const std::size_t start = out.size();
    out.resize(start + packed);
    if (compress(out.data() + start, &packed, static_cast<const Bytef*>(data), size) != Z_OK)
        return false;
    out.resize(start + packed);
    return true;
}

constexpr std::size_t kPlanes = 32;  // bits of a word

/// Bit b of component c of particle i: bit i % 32 of word (32 c + b) W + i / 32.
std::vector<std::uint32_t> bitPlanes(const std::uint32_t* words, std::size_t count,
                                     std::size_t components) {
    const std::size_t planeWords = (count + kPlanes - 1) / kPlanes;
    std::vector<std::uint32_t> planes(components * kPlanes * planeWords);
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t c = 0; c < components; ++c)
            for (std::size_t b = 0; b < kPlanes; ++b)
                planes[(c * kPlanes + b) * planeWords + i / kPlanes] |=
                    (words[i * components + c] >> b & 1u) << (i % kPlanes);
    return planes;
}

bool packParticles(const KolParticles& p, std::size_t count, Bytes& out) {
    const auto components = static_cast<std::size_t>(prtChannelWords(p.id));
    std::vector<std::uint32_t> words(count * components);
    if (p.values.size() != words.size() * sizeof(std::uint32_t))
        return false;
    if (!words.empty())
        std::memcpy(words.data(), p.values.data(), p.values.size());
    const auto encode = [&](const std::vector<std::uint32_t>& values) {
        std::vector<float> floats(values.size());
        if (!values.empty())
            std::memcpy(floats.data(), values.data(), values.size() * sizeof(float));
        return NMBUtils::encodeZone(floats.data(), floats.size(), p.encoding, out);
    };
    switch (p.method) {
        case kPrtPlain:
            out.resize(p.values.size());
            std::copy(p.values.begin(), p.values.end(), reinterpret_cast<std::byte*>(out.data()));
            return true;
        case kPrtZip:
            return deflateInto(out, words.data(), words.size() * sizeof(std::uint32_t));
        case kPrtSequence:
            return encode(words);
        case kPrtPlanar: {
            std::vector<std::uint32_t> planar(words.size());
            for (std::size_t i = 0; i < count; ++i)
                for (std::size_t c = 0; c < components; ++c)
                    planar[c * count + i] = words[i * components + c];
            return encode(planar);
        }
        case kPrtBitPlanes: {
            const auto planes = bitPlanes(words.data(), count, components);
            return deflateInto(out, planes.data(), planes.size() * sizeof(std::uint32_t));
        }
    }
    return false;
}

}  // namespace

void KolWriter::setGrid(const std::int32_t size[3], const float transform[12]) {
    hasGrid_ = true;
    std::copy_n(size, 3, gridSize_);
    std::copy_n(transform, 12, transform_);
}

void KolWriter::setMaskBit(int bit, bool on) {
    const std::uint32_t b = channelBit(bit);
    mask_ = on ? mask_ | b : mask_ & ~b;
}

bool KolWriter::addRecord(std::int32_t id, std::span<const std::uint8_t> payload) {
    const std::size_t words = (payload.size() + 3) / 4;
    constexpr std::size_t kHead = 8;
    if ((grid_.size() + kHead) / 4 + words >= INT32_MAX)
        return false;
    put(grid_, id);
    put(grid_, static_cast<std::int32_t>(words));
    grid_.insert(grid_.end(), payload.begin(), payload.end());
    grid_.resize((grid_.size() + 3) / 4 * 4);
    return true;
}

bool KolWriter::addChannel(int id, std::span<const float> values, const KolChannelForm& form) try {
    const std::int64_t cells = voxelCount(gridSize_);
    if (!channelBit(id) || (mask_ & channelBit(id)) || cells < 1 || cells > INT32_MAX ||
        static_cast<std::int64_t>(values.size()) != cells)
        return false;
    Bytes stream;
    if (!NMBUtils::encodeStream(values.data(), values.size(), form.zones, form.encoding, stream) ||
        !addRecord(id, stream))
        return false;
    mask_ |= channelBit(id);
    if (form.storeRange) {
        const auto [low, high] = std::minmax_element(values.begin(), values.end());
        setRange(id, *low, *high);
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool KolWriter::addPackedColor(std::span<const std::uint32_t> colors) try {
    if ((mask_ & channelBit(kPackedColor)) ||
        static_cast<std::int64_t>(colors.size()) != voxelCount(gridSize_))
        return false;
    Bytes payload;
    put(payload, std::int64_t{0});
    if (!deflateInto(payload, colors.data(), colors.size_bytes()))
        return false;
    const auto packed = static_cast<std::int64_t>(payload.size() - sizeof(std::int64_t));
    std::memcpy(payload.data(), &packed, sizeof packed);
    if (!addRecord(kPackedColor, payload))
        return false;
    mask_ |= channelBit(kPackedColor);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void KolWriter::setRange(std::int32_t id, float min, float max) {
    ranges_[id] = {min, max};
}

void KolWriter::growBox(const KolParticles& positions) {
    for (std::size_t i = 0; i + 12 <= positions.values.size(); i += 12) {
        float p[3];
        std::memcpy(p, positions.values.data() + i, sizeof p);
        constexpr float kFarthest = 100000;
        if (!(std::fabs(p[0] + p[1] + p[2]) < kFarthest))
            continue;
        for (int a = 0; a < 3; ++a) {
            boxMin_[a] = std::min(boxMin_[a], p[a]);
            boxMax_[a] = std::max(boxMax_[a], p[a]);
        }
    }
}

bool KolWriter::addGroup(const KolGroup& group) try {
    if (group.count < 0)
        return false;
    PackedGroup packed{group.name, group.count, group.flags, {}, 0, {}};
    std::copy_n(group.userValue, sizeof packed.userValue, packed.userValue);
    for (const KolParticles& p : group.channels) {
        PackedChannel channel{p.id, p.method, {}};
        if (!channelBit(p.id) ||
            !packParticles(p, static_cast<std::size_t>(group.count), channel.bytes) ||
            channel.bytes.size() > INT32_MAX)
            return false;
        packed.mask |= channelBit(p.id);
        packed.channels.push_back(std::move(channel));
    }
    for (const KolParticles& p : group.channels)
        if (p.id == kPrtPosition)
            growBox(p);
    groups_.push_back(std::move(packed));
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void KolWriter::writeHead(Bytes& out) const {
    for (const char c : {'K', 'O', 'L', 'V'})
        out.push_back(static_cast<std::uint8_t>(c));
    putSection(out, 1);
    put(out, mask_);
    putSection(out, 2);
    put(out, transform_);
    if (hasGrid_) {
        putSection(out, 3);
        put(out, gridSize_);
        put(out, static_cast<std::int32_t>(grid_.size() / 4));
        out.insert(out.end(), grid_.begin(), grid_.end());
    }
    putSection(out, 4);
    put(out, frameNumber);
    putSection(out, 5);
    put(out, timeStep);
    // The whole block first: the others repeat some of its values and win.
    putSection(out, 12);
    put(out, std::int32_t{SimInfo::kBytes});
    put(out, simInfo.bytes);
    putSection(out, 9);
    put(out, simInfo.simStep());
    put(out, simScale);
    putSection(out, 10);
    put(out, simInfo.simTime());
    put(out, simInfo.simInfo2());
    putSection(out, 11);
    put(out, motionTm);
    put(out, motionTm2);
    put(out, motionTm3);
    put(out, simInfo.simInfo4());
}

void KolWriter::writeTail(Bytes& out) const {
    putChunk(out, 1000, [&] {
        put(out, static_cast<std::int32_t>(groups_.size()));
        for (const PackedGroup& g : groups_) {
            putText(out, g.name);
            put(out, g.count);
            put(out, g.mask);
            put(out, g.flags);
        }
        put(out, boxMin_);
        put(out, boxMax_);
        put(out, std::int32_t{0});
    });
    putChunk(out, 1001, [&] { putText(out, description); });
    if (!groups_.empty())
        putChunk(out, 1002, [&] {
            put(out, static_cast<std::int32_t>(groups_.size()));
            for (const PackedGroup& g : groups_) {
                putText(out, g.name);
                put(out, g.flags);
                put(out, g.count);
                put(out, g.userValue);
                put(out, static_cast<std::int32_t>(g.channels.size()));
                for (const PackedChannel& c : g.channels) {
                    put(out, c.id);
                    put(out, c.method);
                    put(out, static_cast<std::int32_t>(c.bytes.size()));
                    out.insert(out.end(), c.bytes.begin(), c.bytes.end());
                }
            }
        });
    if (!ranges_.empty())
        putChunk(out, 1003, [&] {
            put(out, static_cast<std::int32_t>(ranges_.size()));
            for (const auto& [id, range] : ranges_) {
                put(out, id);
                put(out, range.first);
                put(out, range.second);
            }
        });
    if (!fileValues_.empty())
        putChunk(out, 1004, [&] {
            put(out, static_cast<std::int32_t>(fileValues_.size()));
            for (const auto& [id, value] : fileValues_) {
                put(out, id);
                put(out, value);
            }
        });
    put(out, std::int32_t{9999999});
}

bool KolWriter::finish(Bytes& out) const try {
    out.clear();
    if (version_ < kFirstVersion)
        return false;
    writeHead(out);
    const auto marker = static_cast<std::int64_t>(out.size());
    put(out, std::int32_t{0});
    writeTail(out);
    put(out, marker);
    put(out, version_);
    for (const char c : {'K', 'O', 'L', 'V', '2', 'N', 'M', 'B'})
        out.push_back(static_cast<std::uint8_t>(c));
    return true;
} catch (const std::bad_alloc&) {
    out = {};
    return false;
}

bool KolWriter::writeFile(const std::string& path, std::string& problem) const {
    Bytes bytes;
    if (!finish(bytes)) {
        problem = version_ < kFirstVersion ? "this version can't be written"
                                           : "there isn't enough memory";
        return false;
    }
    const std::string beside = path + ".tmp" + std::to_string(getpid());
    std::FILE* const file = std::fopen(beside.c_str(), "wb");
    bool done = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    // Closing writes what is buffered: only then it is known to have worked.
    done = file && std::fclose(file) == 0 && done;
    done = done && std::rename(beside.c_str(), path.c_str()) == 0;
    if (!done) {
        problem = path + " can't be written: " + std::strerror(errno);
        std::remove(beside.c_str());
    }
    return done;
}

}  // namespace nimbra
