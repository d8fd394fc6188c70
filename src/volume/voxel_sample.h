// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What one look into the grids of a volume answers, and which of them to look at.
#pragma once

#include <cstdint>

#include "tessra/math.h"

namespace nimbra {

struct VoxelSample {
    /// The channels that emission, diffuse colour, opacity and surface are based on, normalised to
    /// 0..1 over their ranges.
    float e = 0, d = 0, t = 0, s = 0;
    TessUtils::Color gridColor;  // of the grid's own colour channels
    /// Where it was read: the grid position after displacement and motion.
    TessUtils::Vector position;
};

/// Bits of a sample mask.
enum SampleMask : std::uint32_t {
    kSampleE = 0x1,
    kSampleD = 0x2,
    kSampleT = 0x4,
    kSampleS = 0x8,
    kSampleScalars = 0xF,
    kSampleColor = 0x70,
    kSampleUndisplaced = 0x800,
    kSampleRaw = 0x1000,  // without the normalisation to 0..1
    kSampleWrapX = 0x2000,
    kSampleWrapY = 0x4000,
    kSampleWrapZ = 0x8000,
    kSampleWrap = 0xE000,
};

}  // namespace nimbra
