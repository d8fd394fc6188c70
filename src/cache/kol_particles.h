// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Particles of .kol files: the summary, the form with packed channels, and the two older forms with
// one block of data for all groups.
//
// Summary (chunk 1000): int32 groups; each: text name, int32 count, uint32 mask, int32 flags.
//   Then the box, 6 floats, and 4 bytes without a meaning.
// Packed channels (chunk 1002): int32 groups; each: text name, int32 flags, int32 count, 8 bytes
//   user value, int32 channels; each: int32 id, int32 method (PrtMethod), int32 bytes, the bytes.
// One block (section 7 plain, 13 compressed): int32 words, the block, int32 groups; each: text
//   name, int32 count, 32 x int32 first word of each channel or -1, then tags up to 0:
//   1: int32 flags; 2: int32 bytes, the particles' IDs; 3: 8 bytes user value.
//   Plain: particle after particle; compressed: a kPrtPlanar stream up to anywhere in the block.
//   IDs: symbols of bit_coder.h, low and high word of each difference to the ID before.
// Negative sizes and counts, offsets outside the block and unknown tags fail the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cache/kol_stream.h"
#include "cache/prt_group.h"

namespace nimbra {

/// Chunk 1000 up to the box: groups by name, without channels.
void readKolSummary(NimbraFrameData& frame, KolStream& in);
/// Chunk 1002: groups in place of those that are there.
void readKolGroups(NimbraFrameData& frame, KolStream& in);

/// Sections 7 and 13: groups in place of those that are there.
class KolParticleBlock {
public:
    struct Mode {
        bool compressed = false;
        bool headerOnly = false;
        /// A summary told the groups and their box.
        bool groupsKnown = false;
    };
    KolParticleBlock(NimbraFrameData& frame, KolStream& in, const Mode& mode)
        : frame_(frame), in_(in), mode_(mode) {}

    void read();

private:
    using PGroup = NimbraFrameData::PGroup;

    void readGroup();
    void readChannel(PGroup& group, int channel, std::int64_t firstWord);
    void readTags(PGroup& group);
    void readIds(PGroup& group);
    void growBox(PGroup& group, std::int64_t firstWord);
    bool mayExpand(std::int64_t bytes);

    NimbraFrameData& frame_;
    KolStream& in_;
    const Mode mode_;
    std::vector<std::byte> block_;
    std::int64_t blockWords_ = 0;
    std::int32_t groupCount_ = 0;
    std::uint64_t expandedBytes_ = 0;
};

}  // namespace nimbra
