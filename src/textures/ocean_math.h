// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The numbers behind the waves: hashes, random streams and the parabola that stands for the sine.
// The parabola is part of the look: waves drawn with a true sine are other waves.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace nimbra::ocean {

inline constexpr float kPi = 3.14159265f;
inline constexpr float kTwoPi = 6.28318531f;
inline constexpr float kInverseTwoPi = 0.159154943f;

// sin x is nearly 4/pi x - 4/pi^2 |x| x on [-pi, pi]; the last digits are rounded so that its
// square never exceeds 1.
inline constexpr float kSineLinear = 1.273236f;
inline constexpr float kSineSquare = 0.405283f;

inline constexpr float kTo01 = 2.3283064370807974e-10f;     // 2^-32
inline constexpr float kToAngle = 1.4629180092948736e-09f;  // 2 pi / 2^32

inline constexpr std::uint32_t kStreamFactor = 0x41C64E6D, kStreamStep = 0x3039;
inline constexpr std::uint32_t kHashStep = 0xCC6C5534;
// How a cell's place enters its hash.
inline constexpr std::uint32_t kCellFactorX = 0x159, kCellFactorY = 0x63E86F,
                               kCellFactorSeed = 0x549C7;

/// The largest lattice coordinate whose neighbours are 32-bit integers too.
inline constexpr float kLatticeLimit = 2147483520.0f;

/// The next number of a linear congruential stream.
constexpr std::uint32_t nextRandom(std::uint32_t state) {
    return state * kStreamFactor + kStreamStep;
}

/// What lies `steps` further in the stream: state * factor + step.
struct StreamJump {
    std::uint32_t factor = 1, step = 0;
};
constexpr StreamJump streamJump(int steps) {
    StreamJump jump;
    for (int i = 0; i < steps; ++i)
        jump = {jump.factor * kStreamFactor, jump.step * kStreamFactor + kStreamStep};
    return jump;
}

/// Scrambles the bits without losing any information.
constexpr std::uint32_t mixBits(std::uint32_t x) {
    return (((x >> 16) ^ x) >> 7) ^ (((x * 8) ^ x) << 10) ^ x;
}
constexpr std::uint32_t hashCell(std::uint32_t cell) {
    return mixBits(cell) * kStreamFactor + kHashStep;
}

/// The same angle within [-pi, pi]. Of large angles only so much is left as their digits hold.
inline float wrapAngle(float angle) {
    const float wrapped = angle - kTwoPi * std::floor(angle * kInverseTwoPi + 0.5f);
    return std::clamp(wrapped, -kPi, kPi);
}
/// For angles within [-pi, pi].
inline float parabola(float angle) {
    return kSineLinear * angle - kSineSquare * std::fabs(angle) * angle;
}
inline float waveSine(float angle) {
    return parabola(wrapAngle(angle));
}
inline float waveCosine(float angle) {
    return waveSine(angle + 0.5f * kPi);
}

/// What makes a band close a loop: its phase gains this much more over the loop's length, which
/// makes up a whole number of turns.
inline float loopGap(float loopLength, float omega) {
    return kTwoPi - std::fmod(loopLength * omega, kTwoPi);
}

}  // namespace nimbra::ocean
