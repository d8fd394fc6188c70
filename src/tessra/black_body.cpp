// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Planck's law integrated against the colour matching functions of the CIE 1931 observer.
#include "tessra/black_body.h"

#include <algorithm>
#include <cmath>

namespace TessUtils {
namespace {

struct Xyz {
    double x = 0, y = 0, z = 0;
};

// One lobe with its own width on either side of the peak; widths are inverse, in 1/nm.
double lobe(double wavelength, double peak, double below, double above) {
    const double t = (wavelength - peak) * (wavelength < peak ? below : above);
    return std::exp(-0.5 * t * t);
}

// Multi-lobe fit by Wyman, Sloan and Shirley, "Simple Analytic Approximations to the CIE XYZ Color
// Matching Functions", Journal of Computer Graphics Techniques 2(2), 2013.
Xyz matchingFunctions(double w) {
    return {0.362 * lobe(w, 442.0, 0.0624, 0.0374) + 1.056 * lobe(w, 599.8, 0.0264, 0.0323) -
                0.065 * lobe(w, 501.1, 0.0490, 0.0382),
            0.821 * lobe(w, 568.8, 0.0213, 0.0247) + 0.286 * lobe(w, 530.9, 0.0613, 0.0322),
            1.217 * lobe(w, 437.0, 0.0845, 0.0278) + 0.681 * lobe(w, 459.0, 0.0385, 0.0725)};
}

// Spectral radiance of a black body in W/(m2 sr nm):
// B = 2 h c^2 / lambda^5 / (exp(h c / (lambda k T)) - 1), with the constants of the SI of 2019.
double spectralRadiance(double nanometres, double kelvin) {
    constexpr double kFirst = 1.191042972397188e-16;  // 2 h c^2, W m2
    constexpr double kSecond = 1.438776877503934e-2;  // h c / k, m K
    const double w = nanometres * 1e-9;
    return kFirst / (w * w * w * w * w) / std::expm1(kSecond / (w * kelvin)) * 1e-9;
}

// Radiance weighted by the matching functions, in W/(m2 sr); trapezoids of 5 nm.
Xyz weightedRadiance(double kelvin) {
    Xyz sum;
    if (!(kelvin > 0))
        return sum;
    constexpr double kStep = 5;
    constexpr int kSteps = 94;  // 360 to 830 nm
    for (int i = 0; i <= kSteps; ++i) {
        const double w = 360 + kStep * i;
        const double width = i == 0 || i == kSteps ? 0.5 * kStep : kStep;
        const double b = spectralRadiance(w, kelvin) * width;
        const Xyz m = matchingFunctions(w);
        sum.x += m.x * b;
        sum.y += m.y * b;
        sum.z += m.z * b;
    }
    return sum;
}

}  // namespace

double blackBodyLuminance(double kelvin) {
    return kLuminousEfficacy * weightedRadiance(kelvin).y;
}

Color blackBodyColor(double kelvin) {
    const Xyz c = weightedRadiance(kelvin);
    const double red = 3.2404542 * c.x - 1.5371385 * c.y - 0.4985314 * c.z;
    const double blue = 0.0556434 * c.x - 0.2040259 * c.y + 1.0572252 * c.z;
    return {static_cast<float>(std::max(red, 0.0)), static_cast<float>(c.y),
            static_cast<float>(std::max(blue, 0.0))};
}

}  // namespace TessUtils
