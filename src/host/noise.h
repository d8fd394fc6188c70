// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Gradient noise in space: Perlin, "Improving noise", 2002.
#pragma once

#include "tessra/math.h"

namespace nimbra::host {

/// About -1 to 1, zero at all whole positions; never repeats.
float gradientNoise(const TessUtils::TracePoint& p);

struct FractalNoise {
    int octaves = 4;
    float lacunarity = 2;  // frequency of one octave over that of the one before
    float gain = 0.5f;     // amplitude of one octave over that of the one before
};

/// Octaves of gradient noise, scaled so that the amplitudes sum to 1.
float fractalNoise(const TessUtils::TracePoint& p, const FractalNoise& noise);

}  // namespace nimbra::host
