// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Loads a .kol file of any bytes and asks its frame for everything, as far as that stays small.
#pragma once

#include <string>

#include "cache/frame_data.h"
#include "cache/prt_group.h"

namespace nimbra::test {

/// A grid takes what its header states, however little the file holds.
inline bool hasSmallGrid(const NimbraFrameData& frame) {
    constexpr std::int64_t kMostCells = 1 << 18;
    return voxelCount(frame.gridSize) <= kMostCells;
}

inline void readAllChannels(NimbraFrameData& frame) {
    for (int c = -1; c <= kChannelSlots; ++c) {
        float low = 0, high = 0, first = 0;
        frame.getChannelRange(c, low, high);
        const int cell[3] = {0, 0, 0};
        frame.readChannelRun(cell, c, 1, &first);
    }
}

inline void readAllParticles(NimbraFrameData& frame) {
    constexpr int kMostParticles = 1 << 16;
    for (NimbraFrameData::PGroup* const group : frame.groups) {
        if (group->count > kMostParticles)
            continue;
        for (int c = 0; c < kPrtChannelSlots; ++c)
            for (const int i : {0, group->count - 1, group->count}) {
                unsigned char value[12];
                group->getValue(i, c, value);
            }
        group->findById(7);
    }
}

/// The status of the load in full; -1 if one that failed left something behind.
inline int walkKol(const std::string& path) {
    NimbraFrameData header;
    header.ImportKol(path, true, true);
    NimbraFrameData frame;
    const int status = frame.ImportKol(path, true, false);
    // Velocities of particles may come from the grid as well.
    if (status == kLoadOk && hasSmallGrid(frame)) {
        readAllChannels(frame);
        readAllParticles(frame);
    }
    const bool empty = !frame.compressed && frame.compressedInts == 0 && frame.groups.size == 0;
    return status == kLoadOk || empty ? status : -1;
}

}  // namespace nimbra::test
