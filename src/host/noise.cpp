// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/noise.h"

#include <cmath>
#include <cstdint>

namespace nimbra::host {

using TessUtils::TracePoint;

namespace {

// A hash in place of Perlin's table of 256 entries, so that nothing repeats.
std::uint32_t cellHash(std::int64_t x, std::int64_t y, std::int64_t z) {
    std::uint64_t h = static_cast<std::uint64_t>(x) * 0x9e3779b97f4a7c15U;
    h = (h ^ (h >> 29)) + static_cast<std::uint64_t>(y) * 0xbf58476d1ce4e5b9U;
    h = (h ^ (h >> 32)) + static_cast<std::uint64_t>(z) * 0x94d049bb133111ebU;
    h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9U;
    return static_cast<std::uint32_t>(h >> 32);
}

// Perlin's twelve edge directions, four of them twice.
double gradient(std::uint32_t hash, double x, double y, double z) {
    const std::uint32_t h = hash & 15;
    const double u = h < 8 ? x : y;
    const double v = h < 4 ? y : h == 12 || h == 14 ? x : z;
    return ((h & 1) ? -u : u) + ((h & 2) ? -v : v);
}

double fade(double t) {
    return t * t * t * (t * (t * 6 - 15) + 10);
}
double mix(double a, double b, double t) {
    return a + (b - a) * t;
}

}  // namespace

float gradientNoise(const TracePoint& p) {
    // Beyond this a double has no fraction worth noise, and the cast below would overflow.
    constexpr double kFarthest = 1e15;
    for (int a = 0; a < 3; ++a)
        if (!(std::abs(p[a]) < kFarthest))
            return 0;
    const double fx = std::floor(p.x), fy = std::floor(p.y), fz = std::floor(p.z);
    const auto ix = static_cast<std::int64_t>(fx), iy = static_cast<std::int64_t>(fy),
               iz = static_cast<std::int64_t>(fz);
    const double x = p.x - fx, y = p.y - fy, z = p.z - fz;
    double corner[8];
    for (int i = 0; i < 8; ++i) {
        const int dx = i & 1, dy = (i >> 1) & 1, dz = i >> 2;
        corner[i] = gradient(cellHash(ix + dx, iy + dy, iz + dz), x - dx, y - dy, z - dz);
    }
    const double u = fade(x), v = fade(y), w = fade(z);
    const double low = mix(mix(corner[0], corner[1], u), mix(corner[2], corner[3], u), v);
    const double high = mix(mix(corner[4], corner[5], u), mix(corner[6], corner[7], u), v);
    return static_cast<float>(mix(low, high, w));
}

float fractalNoise(const TracePoint& p, const FractalNoise& noise) {
    double sum = 0, amplitude = 1, total = 0, frequency = 1;
    for (int i = 0; i < noise.octaves; ++i) {
        // Shifted, so that the zeros of the octaves don't meet.
        const double shift = i * 17.31;
        const TracePoint q{p.x * frequency + shift, p.y * frequency + shift,
                           p.z * frequency + shift};
        sum += amplitude * gradientNoise(q);
        total += amplitude;
        amplitude *= noise.gain;
        frequency *= noise.lacunarity;
    }
    return total > 0 ? static_cast<float>(sum / total) : 0;
}

}  // namespace nimbra::host
