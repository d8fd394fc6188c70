// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "textures/ocean.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "textures/ocean_math.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;
using namespace ocean;

namespace {

constexpr float kGravity = 9.8f;
constexpr float kInverseGravity = 0.10204081f;
constexpr float kLowestFrequency = 8.5946f;  // times the wind speed
constexpr float kBandStep = 1.3f;            // from one frequency to the next
constexpr int kMaxBands = 1024;              // frequencies are infinite long before
constexpr int kFoamCaches = 256;
constexpr int kFadingBands = 8;

/// Pierson and Moskowitz, "A proposed spectral form for fully developed wind seas" (1964):
/// S = alpha g^2 / omega^5 exp(-0.74 (g / (U omega))^4), with alpha = 0.008.
float spectralDensity(float omega, float windSpeed) {
    const float square = omega * omega, fourth = square * square;
    const float ratio = kGravity / windSpeed;
    const float ratioFourth = ratio * ratio * (ratio * ratio);
    return 0.7683201f / (fourth * omega) * std::exp(-0.74f * ratioFourth / fourth);
}

}  // namespace

void Ocean::setup(const OceanSettings& settings) {
    vectorMode = settings.vector;
    sharpness = settings.sharpness;
    latticeDensity = 1.5f - settings.bell;
    spread = -std::log(std::clamp(settings.velcoh + 1e-6f, 0.0f, 1.0f));
    seed = settings.seed;
    meterScale = settings.meterScale;
    useWind = settings.useWind;
    wind[0] = useWind ? std::max(meterScale * settings.wind, 1e-6f) : 0.5f;
    wind[1] = 0;
    animMode = settings.animMode;
    directTime = settings.directTime;
    loopLength = settings.loopLength;
    toVector = settings.toVector;

    buildSpectrum(std::clamp(settings.lod, 0, kMaxBands), settings.velmult);
    foamCaches.SetSize(kFoamCaches);
    heightScale = settings.rgbmult;
    heightOffset = 0;
    rgbOffset = settings.rgboffset;

    field_.windDir[0] = windDir[0];
    field_.windDir[1] = windDir[1];
    field_.spread = spread;
    field_.latticeDensity = latticeDensity;
    field_.choppiness = choppiness;
    field_.sigma = sharpness * 0.96f;
    field_.seedTerm = static_cast<std::uint32_t>(seed) * kCellFactorSeed;
    field_.vectorMode = vectorMode;
    kernel_ = waveletCodes().front().kernel;
}

void Ocean::buildSpectrum(int bands, float velmult) {
    const float speed = std::sqrt(wind[0] * wind[0] + wind[1] * wind[1]);
    windDir[0] = wind[0] / (speed + 1e-6f);
    windDir[1] = wind[1] / (speed + 1e-6f);
    float omega = kLowestFrequency / (speed + 1e-6f);
    std::uint32_t state = mixBits(static_cast<std::uint32_t>(seed)) + 7;

    const Wave noWave;
    const float noGap = 0;
    if (!waves.SetSize(bands + kWavePadding, &noWave) ||
        !loopGaps.SetSize(bands + kWavePadding, &noGap))
        bands = 0;
    waves.SetSize(bands);
    loopGaps.SetSize(bands);
    amplitudeSum = energySum = 0;
    for (int i = 0; i < bands; ++i) {
        Wave& wave = waves[i];
        wave.waveNumber = omega * omega * kInverseGravity;
        const std::uint32_t first = nextRandom(state), second = nextRandom(first);
        state = second;
        wave.seed = (second & 0xFFFF0000) + (first >> 16);
        float width = kBandStep * omega - omega;
        if (!std::isfinite(width))
            width = 0;
        const float energy = spectralDensity(omega, speed) * 3.3f * width;
        energySum += energy;
        wave.amplitude = std::sqrt(energy > 0 ? energy : 0.0f);
        amplitudeSum += wave.amplitude;
        wave.omega = omega * velmult;
        loopGaps[i] = loopGap(loopLength, wave.omega);
        omega = omega * kBandStep;
    }
    const float calm = speed + 1e-6f;
    choppiness = energySum > 1e-6f ? 0.22805019f / (kLowestFrequency / (calm * calm)) * sharpness /
                                         std::sqrt(energySum)
                                   : 0.0f;
}

/// Ends the sum at the first of the finest bands that is shorter than the filter, and fades it.
void Ocean::limitBands(float filterSize, WaveletQuery& query) const {
    if (!(filterSize > 0))
        return;
    for (int i = std::max(waves.size - kFadingBands, 0); i < waves.size; ++i) {
        const float length = kTwoPi / waves[i].waveNumber;
        if (!(length < filterSize))
            continue;
        query.waveCount = i + 1;
        query.lastFade = length / filterSize;
        if (i > 0) {
            const float longer = kTwoPi / waves[i - 1].waveNumber;
            query.lastFade = std::max((longer - filterSize) / (longer - length), 0.0f);
        }
        return;
    }
}

Vector Ocean::evaluateBy(WaveletKernel kernel, float x, float y, float time,
                         float filterSize) const {
    WaveletQuery query;
    query.x = x;
    query.y = y;
    query.time = animMode == kOceanDirect ? directTime : time;
    if (animMode == kOceanLoop && loopLength > 1e-6f) {
        query.loopGaps = loopGaps.data;
        query.loopLength = loopLength;
        query.time = std::fmod(time, loopLength);
    }
    query.waves = waves.data;
    query.waveCount = waves.size;
    limitBands(filterSize, query);

    const WaveletSum sum = kernel(field_, query);
    const float height = heightScale * sum.z + heightOffset;
    if (!vectorMode)
        return {height, height, height};
    return {sum.x, sum.y, height};
}

void Ocean::getValue(Color& out, const Vector& point, float time, int upAxisFlag,
                     float filterSize) const {
    Vector p = point;
    if (upAxisFlag == 1)
        std::swap(p.y, p.z);
    if (useWind) {
        p = p * meterScale;
        filterSize *= meterScale;
    }
    Vector value = evaluate(p.x, p.y, time, filterSize);
    if (!vectorMode) {
        const float height = value.z / meterScale + rgbOffset;
        out = {height, height, height};
        return;
    }
    if (upAxisFlag == 1)
        std::swap(value.y, value.z);
    if (useWind)
        value = {value.x / meterScale, value.y / meterScale, value.z / meterScale};
    value = toVector.applyVector(value);
    out = {(value.x + 1) * 0.5f, (value.y + 1) * 0.5f, value.z + rgbOffset};
}

}  // namespace nimbra
