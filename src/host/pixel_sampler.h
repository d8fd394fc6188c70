// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Random numbers of camera samples: each a pure function of seed, pixel, sample and dimension, so
// that neither threads nor tiles change a picture.
#pragma once

#include <cstdint>

#include "tessra/shading.h"

namespace nimbra::host {

/// Well-spread numbers in [0, 1). Dimensions are taken in pairs; each pair of a pixel is a shuffled
/// and scrambled (0,2)-sequence over the samples (Burley, "Practical Hash-based Owen Scrambling",
/// 2020), so that the first n samples fill the square evenly in every pair.
class PixelSampler final : public TessUtils::RaySampler {
public:
    PixelSampler() = default;
    /// Begins sample number `sample` of a pixel at dimension 0.
    void start(std::uint32_t seed, int x, int y, int sample);
    /// The same for another sample of that pixel.
    void startSample(int sample);
    float next() override;
    /// Leaves out the next pair of dimensions, which nobody needs.
    void skipPair() { dimension_ += 2; }
    /// Goes on at the first dimension of stream `stream`: for numbers that must not depend on how
    /// many were drawn before.
    void jumpTo(std::uint32_t stream);

private:
    std::uint32_t pixelHash_ = 0;
    std::uint32_t sample_ = 0;  // bits reversed
    std::uint32_t dimension_ = 0;
    float second_ = 0;  // of the pair, where its first has been drawn
};

/// The number of one dimension.
float sampleDimension(std::uint32_t pixelHash, std::uint32_t sample, std::uint32_t dimension);

}  // namespace nimbra::host
