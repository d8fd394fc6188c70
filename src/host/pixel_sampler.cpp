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

std::uint64_t reverseBits(std::uint64_t x) {
    constexpr std::uint64_t kNibbles = 0x0f0f0f0f0f0f0f0f, kPairs = 0x3333333333333333,
                            kBits = 0x5555555555555555;
    x = __builtin_bswap64(x);
    x = ((x & kNibbles) << 4) | ((x >> 4) & kNibbles);
    x = ((x & kPairs) << 2) | ((x >> 2) & kPairs);
    return ((x & kBits) << 1) | ((x >> 1) & kBits);
}

std::uint32_t reverseBits(std::uint32_t x) {
    return static_cast<std::uint32_t>(reverseBits(std::uint64_t{x}) >> 32);
}

float toNumber(std::uint32_t bits) {
    // The 24 upper bits, so that the result is exact and below 1.
    return static_cast<float>(bits >> 8) * 0x1p-24f;
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

struct NumberPair {
    float first, second;
};

NumberPair pairAt(std::uint32_t pixelHash, std::uint32_t reversedSample, std::uint32_t pair) {
    const std::uint32_t pairHash = hash(combine(pixelHash, pair));
    const std::uint32_t index = reverseBits(permuteUpwards(reversedSample, pairHash));
    const std::uint32_t first = permuteUpwards(index, hash(combine(pairHash, 1)));
    const std::uint32_t second = permuteUpwards(pascalFold(index), hash(combine(pairHash, 2)));
    // Both reversed at once, the halves change their places.
    const std::uint64_t bits = reverseBits(std::uint64_t{first} << 32 | second);
    return {toNumber(static_cast<std::uint32_t>(bits)),
            toNumber(static_cast<std::uint32_t>(bits >> 32))};
}

}  // namespace

float sampleDimension(std::uint32_t pixelHash, std::uint32_t sample, std::uint32_t dimension) {
    const NumberPair pair = pairAt(pixelHash, reverseBits(sample), dimension >> 1);
    return dimension & 1 ? pair.second : pair.first;
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
    const std::uint32_t dimension = dimension_++;
    if (dimension & 1)
        return second_;
    const NumberPair pair = pairAt(pixelHash_, sample_, dimension >> 1);
    second_ = pair.second;
    return pair.first;
}

void PixelSampler::jumpTo(std::uint32_t stream) {
    // Far above what one path draws.
    dimension_ = (stream + 1) << 16;
}

}  // namespace nimbra::host
