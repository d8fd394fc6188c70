// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Colour arithmetic of the march loops.
#pragma once

#include "tessra/math.h"

namespace nimbra {

inline float largest(const TessUtils::Color& c) {
    const float m = c.g > c.b ? c.g : c.b;
    return c.r > m ? c.r : m;
}

inline float smallest(const TessUtils::Color& c) {
    const float m = c.g < c.b ? c.g : c.b;
    return c.r < m ? c.r : m;
}

inline float mean(const TessUtils::Color& c) {
    return (c.r + c.g + c.b) / 3;
}

/// What an opacity lets through: 1 - alpha, not below 0.
inline TessUtils::Color transparencyOf(const TessUtils::Color& alpha) {
    const float r = 1 - alpha.r, g = 1 - alpha.g, b = 1 - alpha.b;
    return {r > 0 ? r : 0, g > 0 ? g : 0, b > 0 ? b : 0};
}

}  // namespace nimbra
