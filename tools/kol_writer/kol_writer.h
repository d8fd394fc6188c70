// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Makes .kol files: the library itself only reads them. Channels are packed as they are added, so
// that a caller needs to hold only one of them expanded.
//
//     KolWriter writer;
//     writer.setGrid(size, transform);
//     writer.addChannel(kSmoke, voxels, {.encoding = {.bits = 12}, .zones = 2});
//     writer.finish(bytes);   // or writeFile(path, problem)
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "cache/prt_group.h"
#include "cache/sg_compressor.h"

namespace nimbra {

/// How a grid channel is packed.
struct KolChannelForm {
    /// Bits 1 to 19: so many steps over the range, the error is half a step; 20 and more: the
    /// floats as they are; 0: steps of `encoding.step`. A zone with a value that isn't finite
    /// becomes a constant 0.
    NMBUtils::ZoneEncoding encoding;
    /// Parts that readers may unpack side by side.
    int zones = 1;
    /// Whether the range of the values goes into the file.
    bool storeRange = false;
};

/// A particle channel: count x prtChannelWords(id) words, particle after particle.
struct KolParticles {
    int id = kPrtPosition;
    /// kPrtSequence and kPrtPlanar hold floats, packed by `encoding`; the others keep every bit.
    PrtMethod method = kPrtZip;
    std::span<const std::byte> values;
    NMBUtils::ZoneEncoding encoding = {.bits = 20};
};

/// A particle group.
struct KolGroup {
    std::string name;
    std::int32_t count = 0;
    std::int32_t flags = 0;
    unsigned char userValue[8] = {};
    std::vector<KolParticles> channels;
};

class KolWriter {
public:
    /// Versions from 5 on, whose grid channels are plain sequences.
    static constexpr std::int32_t kFirstVersion = 5, kVersion = 6;
    explicit KolWriter(std::int32_t version = kVersion) : version_(version) {}

    // Header values. A reader gets them as they are here.
    std::int32_t frameNumber = 0;
    float timeStep = 0.033333335f;
    float simScale = 0.001f;
    /// With simTime, simInfo2, simStep, simInfo4 inside.
    SimInfo simInfo;
    float motionTm[12] = {};
    float motionTm2[12] = {};
    float motionTm3[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    std::string description;

    /// Cells and the transform from object space to cells (three axis vectors, then the offset).
    /// Before any channel.
    void setGrid(const std::int32_t size[3], const float transform[12]);
    /// One value for each cell, x fastest. False for an id outside 0 to 31, another count than the
    /// grid has, a channel that is there already, 2^31 words in all, or without memory.
    bool addChannel(int id, std::span<const float> values, const KolChannelForm& form);
    /// Colours of all cells as 0x00RRGGBB, in place of channels 7 to 9. False as above.
    bool addPackedColor(std::span<const std::uint32_t> colors);
    /// A record as it is, for tests: any id, payload of whole words.
    bool addRecord(std::int32_t id, std::span<const std::uint8_t> payload);
    /// Range of a channel as readers shall take it.
    void setRange(std::int32_t id, float min, float max);
    void setFileValue(std::int32_t id, std::int64_t value) { fileValues_[id] = value; }
    /// Sets or clears a bit of the mask; bit 31 is a flag of the frame.
    void setMaskBit(int bit, bool on);

    /// Packs a group. False for a channel outside 0 to 31 or of a wrong length, or without memory.
    bool addGroup(const KolGroup& group);

    /// Bytes of the grid records so far.
    std::uint64_t gridBytes() const { return grid_.size(); }
    /// The whole file. False for a version below kFirstVersion, or without memory.
    bool finish(std::vector<std::uint8_t>& out) const;
    /// The same into a file, written beside it and renamed. `problem` says why not.
    bool writeFile(const std::string& path, std::string& problem) const;

private:
    struct PackedChannel {
        std::int32_t id, method;
        std::vector<std::uint8_t> bytes;
    };
    struct PackedGroup {
        std::string name;
        std::int32_t count, flags;
        unsigned char userValue[8];
        std::uint32_t mask;
        std::vector<PackedChannel> channels;
    };

    void growBox(const KolParticles& positions);
    void writeHead(std::vector<std::uint8_t>& out) const;
    void writeTail(std::vector<std::uint8_t>& out) const;

    std::int32_t version_;
    bool hasGrid_ = false;
    std::int32_t gridSize_[3] = {0, 0, 0};
    float transform_[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    std::uint32_t mask_ = 0;
    std::vector<std::uint8_t> grid_;
    std::map<std::int32_t, std::pair<float, float>> ranges_;
    std::map<std::int32_t, std::int64_t> fileValues_;
    std::vector<PackedGroup> groups_;
    float boxMin_[3] = {1e20f, 1e20f, 1e20f};
    float boxMax_[3] = {-1e20f, -1e20f, -1e20f};
};

}  // namespace nimbra
