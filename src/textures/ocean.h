// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A sea surface that never repeats: a wind-driven spectrum, evaluated point by point as a sum of
// small wavelets. There is no grid and no table.
#pragma once

#include <cstdint>

#include "foundation/array.h"
#include "foundation/matrix34.h"
#include "tessra/math.h"
#include "textures/ocean_wavelets.h"

namespace nimbra {

/// What moves the waves.
enum OceanAnimMode : int {
    kOceanTime = 0,    // the time that is asked for
    kOceanDirect = 1,  // always the same time
    kOceanLoop = 2,    // the time that is asked for, repeating
};

/// The arguments of Ocean::setup. With the wind, places and the wind's speed are multiplied by
/// `meterScale` and movements divided by it: since lengths and heights of waves grow with the
/// square of the speed, the waves become larger by that factor.
struct OceanSettings {
    bool vector = true;  // movement in three directions, not heights
    float sharpness = 0.9f;
    float bell = 0.2f;    // width of a wavelet
    float velcoh = 0.2f;  // 1: all waves run along the wind
    int seed = 345344;
    float meterScale = 1;  // scene units in a metre
    bool useWind = true;
    float wind = 3;  // m/s
    float velmult = 1;
    int lod = 10;  // frequency bands; beyond 1024 none has any effect
    float rgbmult = 1, rgboffset = 0;
    int animMode = kOceanTime;
    float directTime = 1, loopLength = 0;  // seconds
    NMBUtils::Matrix34 toVector;           // from the texture's space to that of the result
};

/// A record of one thread; its keeper is the ocean.
struct FoamCache {
    float point[2] = {0, 0};
    float foam = 0;
};

/// `setup` on one thread; after it any number of threads may evaluate. Without memory the sea is
/// flat.
class Ocean {
public:
    using Wave = nimbra::Wave;

    void setup(const OceanSettings& settings);

    /// The movement of the point (x, y) at a time in seconds, in heights (the same number thrice)
    /// or as a vector. Waves shorter than `filterSize` are left out; 0 or less keeps them all.
    TessUtils::Vector evaluate(float x, float y, float time, float filterSize) const {
        return evaluateBy(kernel_, x, y, time, filterSize);
    }
    /// The same by a kernel of one's own choice.
    TessUtils::Vector evaluateBy(WaveletKernel kernel, float x, float y, float time,
                                 float filterSize) const;

    /// The sea at a point as a texture shows it. `upAxisFlag` 1: y is up, else z. Of a vector, the
    /// movements along x and y between -1 and 1 stand as 0 to 1; z has the colour offset added.
    void getValue(TessUtils::Color& out, const TessUtils::Vector& point, float time, int upAxisFlag,
                  float filterSize) const;

    // Made by `setup`, to be read only.
    NMBUtils::NmbArray<Wave> waves;
    NMBUtils::NmbArray<float> loopGaps;  // one for each wave: see ocean::loopGap
    NMBUtils::NmbArray<FoamCache> foamCaches;
    float windDir[2] = {1, 0};
    float choppiness = 0;
    float amplitudeSum = 0, energySum = 0;
    float heightOffset = 0, heightScale = 1, rgbOffset = 0;
    float wind[2] = {0, 0};
    int seed = 0;
    bool vectorMode = false;
    float spread = 0, sharpness = 0, latticeDensity = 0;
    float meterScale = 1;
    NMBUtils::Matrix34 toVector;
    bool useWind = false;
    int animMode = kOceanTime;
    float directTime = 0, loopLength = 0;

private:
    void buildSpectrum(int bands, float velmult);
    void limitBands(float filterSize, WaveletQuery& query) const;

    WaveletField field_;
    WaveletKernel kernel_ = sumWaveletsPlain;
};

}  // namespace nimbra
