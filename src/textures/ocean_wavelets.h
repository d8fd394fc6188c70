// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The hot part of the ocean: the sum of all wavelets that reach a point. It exists twice, plain and
// in vector code, with the same value to the bit.
#pragma once

#include <cstdint>
#include <vector>

namespace nimbra {

/// One frequency band.
struct Wave {
    float omega = 0;       // angular frequency in 1/s, times the speed factor
    float amplitude = 0;   // of a wavelet at its centre
    float waveNumber = 0;  // 1/length
    std::uint32_t seed = 0;
};

/// What all wavelets of one sea share.
struct WaveletField {
    float windDir[2] = {1, 0};
    float spread = 0;          // scale of the angles off the wind, in radians
    float latticeDensity = 0;  // lattice cells in a wavelength
    float choppiness = 0;      // horizontal against vertical movement
    float sigma = 0;           // sharpness of the crests of heights
    std::uint32_t seedTerm = 0;
    bool vectorMode = false;
};

/// Where, when and how finely the sea is asked.
struct WaveletQuery {
    float x = 0, y = 0;
    float time = 0;
    float loopLength = 0;  // the waves repeat after this time
    /// Behind the last wave kWavePadding more can be read, whatever they hold.
    const Wave* waves = nullptr;
    /// One for each wave, padded as well: see ocean::loopGap. Null: no loop.
    const float* loopGaps = nullptr;
    int waveCount = 0;
    float lastFade = 1;  // factor of the last of these waves
};
inline constexpr int kWavePadding = 16;

/// Offsets along x and y stay 0 outside of the vector mode.
struct WaveletSum {
    float x = 0, y = 0, z = 0;
};

// Each band has a lattice with one wavelet in each cell, jittered by up to half a cell. Of the 3 x
// 3 cells around a point, those whose wavelet is within one cell of it count, weighted by (1 -
// r^2)^2: sparse convolution noise (Lewis, "Algorithms for solid noise synthesis", 1989) with plane
// waves as its kernels. Sums run from band to band, in a band along y and then along x. Cells
// beyond the range of 32-bit integers hold nothing.

WaveletSum sumWaveletsPlain(const WaveletField& field, const WaveletQuery& query);

using WaveletKernel = WaveletSum (*)(const WaveletField&, const WaveletQuery&);
/// The vector code for one instruction set.
struct WaveletCode {
    const char* name;
    WaveletKernel kernel;
};
/// All that this machine can run, the best first; never empty.
const std::vector<WaveletCode>& waveletCodes();

}  // namespace nimbra
