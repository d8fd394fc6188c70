// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "textures/ocean_wavelets.h"

#include <cmath>

#include "textures/ocean_math.h"

namespace nimbra {

using namespace ocean;

namespace {

/// One band at the place and time of a query.
struct BandAtPoint {
    float waveNumber, amplitude, fade;
    float timePhase, loopPhase;
    float u, v;        // the place in lattice cells
    int nearI, nearJ;  // the lattice point next to it
    std::uint32_t seedTerm;
    bool onLattice;
};

BandAtPoint placeBand(const WaveletField& field, const WaveletQuery& query, int index) {
    const Wave& wave = query.waves[index];
    BandAtPoint band;
    band.waveNumber = wave.waveNumber;
    band.amplitude = wave.amplitude;
    band.fade = index + 1 == query.waveCount ? query.lastFade : 1.0f;
    band.timePhase = query.time * wave.omega;
    band.loopPhase = 0;
    if (query.loopGaps)
        band.loopPhase = query.loopGaps[index] * query.time / query.loopLength;
    band.u = field.latticeDensity * query.x * wave.waveNumber / kTwoPi;
    band.v = field.latticeDensity * query.y * wave.waveNumber / kTwoPi;
    band.seedTerm = field.seedTerm + wave.seed;

    const float i = std::floor(band.u + 0.5f), j = std::floor(band.v + 0.5f);
    band.onLattice = std::fabs(i) <= kLatticeLimit && std::fabs(j) <= kLatticeLimit;
    band.nearI = band.onLattice ? static_cast<int>(i) : 0;
    band.nearJ = band.onLattice ? static_cast<int>(j) : 0;
    return band;
}

/// The phase at the crest theta of a trochoid whose parameter runs as theta + sigma cos theta:
/// three Newton steps. Crests get narrow and troughs wide.
float sharpenPhase(float phase, float sigma) {
    if (!(sigma > 0.001f))
        return phase;
    float theta = phase;
    for (int step = 0; step < 3; ++step)
        theta += (phase - (theta + sigma * waveCosine(theta))) / (1 - sigma * waveSine(theta));
    return theta;
}

/// Adds the wavelet of a random state; `weight` is that of its distance.
void addWavelet(const WaveletField& field, const WaveletQuery& query, const BandAtPoint& band,
                std::uint32_t state, float weight, WaveletSum& sum) {
    // Four uniform numbers are close to a normal distribution.
    float offWind = 0;
    for (int draw = 0; draw < 4; ++draw) {
        state = nextRandom(state);
        offWind += static_cast<float>(state) * kTo01 - 0.5f;
    }
    const float sine = waveSine(offWind * field.spread);
    const float cosine = std::sqrt(1 - sine * sine);
    const float dx = cosine * field.windDir[0] - sine * field.windDir[1];
    const float dy = cosine * field.windDir[1] + sine * field.windDir[0];

    const float phase = (dx * query.x + dy * query.y) * band.waveNumber + band.timePhase +
                        static_cast<float>(nextRandom(state)) * kToAngle + band.loopPhase;
    const float amplitude = weight * band.amplitude * band.fade;
    if (!field.vectorMode) {
        sum.z += waveSine(sharpenPhase(phase, field.sigma)) * amplitude;
        return;
    }
    sum.z += waveSine(phase) * amplitude;
    const float chop = waveCosine(phase);
    sum.x += dx * chop * amplitude * field.choppiness;
    sum.y += dy * chop * amplitude * field.choppiness;
}

void addCell(const WaveletField& field, const WaveletQuery& query, const BandAtPoint& band, int i,
             int j, WaveletSum& sum) {
    const float alongX = band.u - static_cast<float>(i), alongY = band.v - static_cast<float>(j);
    if (std::fabs(alongX) > 1.5f || std::fabs(alongY) > 1.5f)
        return;
    const std::uint32_t hash =
        hashCell(static_cast<std::uint32_t>(j) * kCellFactorY + band.seedTerm +
                 static_cast<std::uint32_t>(i) * kCellFactorX);
    const std::uint32_t second = nextRandom(hash);
    const float a = static_cast<float>(hash) * kTo01 + alongY - 0.5f;
    const float b = static_cast<float>(second) * kTo01 + alongX - 0.5f;
    const float r2 = a * a + b * b;
    if (r2 > 1)
        return;
    const float weight = (1 - r2) * (1 - r2);
    addWavelet(field, query, band, second, weight, sum);
}

}  // namespace

WaveletSum sumWaveletsPlain(const WaveletField& field, const WaveletQuery& query) {
    WaveletSum sum;
    for (int index = 0; index < query.waveCount; ++index) {
        const BandAtPoint band = placeBand(field, query, index);
        if (!band.onLattice)
            continue;
        for (int j = band.nearJ - 1; j <= band.nearJ + 1; ++j)
            for (int i = band.nearI - 1; i <= band.nearI + 1; ++i)
                addCell(field, query, band, i, j, sum);
    }
    return sum;
}

}  // namespace nimbra
