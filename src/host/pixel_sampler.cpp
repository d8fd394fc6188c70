// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/pixel_sampler.h"

namespace nimbra::host {

namespace {

// Finaliser of a 32-bit hash with low bias (C. Wellons, "Prospecting for hash functions", 2018).
std::uint32_t hash(std::uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    return x ^ (x >> 16);
}

std::uint32_t combine(std::uint32_t seed, std::uint32_t value) {
    return seed ^ (value + (seed << 6) + (seed >> 2) + 0x9e3779b9U);
}

std::uint32_t reverseBits(std::uint32_t x) {
    x = __builtin_bswap32(x);
    x = ((x & 0x0f0f0f0fU) << 4) | ((x & 0xf0f0f0f0U) >> 4);
    x = ((x & 0x33333333U) << 2) | ((x & 0xccccccccU) >> 2);
    return ((x & 0x55555555U) << 1) | ((x & 0xaaaaaaaaU) >> 1);
}

// A permutation in which each bit depends only on lower bits and on the seed (Laine and Karras,
// "Stratified sampling for stochastic transparency", 2011): on reversed bits, an Owen scramble.
std::uint32_t permuteUpwards(std::uint32_t x, std::uint32_t seed) {
    x += seed;
    x ^= x * 0x6c50b47cU;
    x ^= x * 0xb82f1e52U;
    x ^= x * 0xc7afe638U;
    x ^= x * 0x8d22f6e6U;
    return x;
}

// Second dimension of Sobol's sequence, bits reversed. Its matrix is Pascal's triangle modulo 2:
// bit j is the sum of all index bits i whose number contains that of j (Lucas), which five folds
// give.
std::uint32_t pascalFold(std::uint32_t x) {
    x ^= (x >> 1) & 0x55555555U;
    x ^= (x >> 2) & 0x33333333U;
    x ^= (x >> 4) & 0x0f0f0f0fU;
    x ^= (x >> 8) & 0x00ff00ffU;
    return x ^ ((x >> 16) & 0x0000ffffU);
}

SamplePair pairAt(std::uint32_t pixelHash, std::uint32_t reversedSample, std::uint32_t pair) {
    const std::uint32_t pairHash = hash(combine(pixelHash, pair));
    return {pairHash, reverseBits(permuteUpwards(reversedSample, pairHash))};
}

float numberOf(const SamplePair& pair, bool second) {
    const std::uint32_t reversedPoint = second ? pascalFold(pair.index) : pair.index;
    const std::uint32_t seed = hash(combine(pair.hash, second ? 2 : 1));
    const std::uint32_t bits = reverseBits(permuteUpwards(reversedPoint, seed));
    // The 24 upper bits, so that the result is exact and below 1.
    return static_cast<float>(bits >> 8) * 0x1p-24f;
}

}  // namespace

float sampleDimension(std::uint32_t pixelHash, std::uint32_t sample, std::uint32_t dimension) {
    return numberOf(pairAt(pixelHash, reverseBits(sample), dimension >> 1), dimension & 1);
}

void PixelSampler::start(std::uint32_t seed, int x, int y, int sample) {
    const std::uint32_t row = hash(combine(hash(seed), static_cast<std::uint32_t>(y)));
    pixelHash_ = hash(combine(row, static_cast<std::uint32_t>(x)));
    startSample(sample);
}

void PixelSampler::startSample(int sample) {
    sample_ = reverseBits(static_cast<std::uint32_t>(sample));
    dimension_ = 0;
}

float PixelSampler::next() {
    // Dimension 0 comes first, and a stream begins with a pair: no second is asked for without its
    // first.
    const bool second = dimension_ & 1;
    if (!second)
        pair_ = pairAt(pixelHash_, sample_, dimension_ >> 1);
    ++dimension_;
    return numberOf(pair_, second);
}

void PixelSampler::jumpTo(std::uint32_t stream) {
    // Far above what one path draws.
    dimension_ = (stream + 1) << 16;
}

}  // namespace nimbra::host
