// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Noise for a channel: every voxel is multiplied by a factor that depends on its place in object
// space alone, whatever the grid around it and the number of threads.
#pragma once

#include <cstdint>

#include "cache/grid_channel.h"
#include "foundation/matrix34.h"

namespace nimbra {

/// The factor of a voxel: within 1 - randomize / 2 and 1 + randomize / 2.
struct SmoothingAddNoiseFunc {
    static constexpr const char* kName = "SmoothingAddNoiseFunc";

    NMBUtils::Matrix34 gridToObject;
    float randomize = 0;

    float operator()(int x, int y, int z, float value) const;
};

/// A number in [0, 1] that looks random, a pure function of a position.
float noiseAtPosition(const TessUtils::Vector& p);

/// Multiplies all voxels of a channel of that size. `row`: room for nx floats, used for a tree.
void addSmoothingNoise(GridChannelProxy<float>& channel, const int size[3],
                       const SmoothingAddNoiseFunc& noise, float* row);

}  // namespace nimbra
