// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Light of a black body by its temperature.
#pragma once

#include "tessra/export.h"
#include "tessra/math.h"

namespace TessUtils {

/// Luminous efficacy of radiation at 540 THz, in lm/W.
inline constexpr double kLuminousEfficacy = 683.0;

/// Luminance in cd/m2 of a black body at `kelvin`:
///   683 lm/W * integral of B(lambda, T) * y(lambda) over 360 to 830 nm,
/// B being Planck's spectral radiance and y the CIE 1931 luminosity. 0 at 0 K and below.
TESSRA_API double blackBodyLuminance(double kelvin);

/// Linear colour (sRGB primaries) of a black body, in W/(m2 sr), with its luminance divided by
/// 683 lm/W in green. Red and blue are the colour's own, at least 0: below some 1900 K there is no
/// blue in the gamut.
TESSRA_API Color blackBodyColor(double kelvin);

}  // namespace TessUtils
