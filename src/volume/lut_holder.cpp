// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/lut_holder.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "foundation/ramps.h"
#include "volume/volume_shader.h"

namespace nimbra {
namespace {

using TessUtils::Color;

constexpr float kEntryStep = 0.000125f;  // 1 / kLutEntries
/// The least transparency of a table entry, so that its logarithm is finite.
constexpr float kLeastTransparency = 1e-6f;
/// What fire with an opacity of its own is brighter by.
constexpr float kOwnOpacityGain = 3.5f;
constexpr float kLumenPerWatt = 683.0f;

bool allocate(std::unique_ptr<float[]>& table, int floats) {
    if (!table)
        table.reset(new (std::nothrow) float[floats]);
    return table != nullptr;
}

float entryValue(int i, bool raw, const LutRange& range) {
    const float v = static_cast<float>(i) * kEntryStep;
    return raw ? v : v * range.width + range.start;
}

void storeColor(float* table, int i, const Color& c) {
    for (int channel = 0; channel < 3; ++channel)
        table[3 * i + channel] = c[channel];
}

/// The colour with each channel at least 0; a NaN counts as 0.
Color nonNegative(const Color& c) {
    return {std::fmax(c.r, 0.0f), std::fmax(c.g, 0.0f), std::fmax(c.b, 0.0f)};
}

float density(float transparency) {
    return std::log(std::clamp(transparency, kLeastTransparency, 1.0f));
}

/// Kelvin of one unit of the channel that fire is based on.
float kelvinPerUnit(int channel) {
    constexpr int kTemperature = 1, kSmoke = 2, kSpeed = 3, kFuel = 10;
    switch (channel) {
        case kTemperature:
            return 1;
        case kSmoke:
        case kFuel:
            return 3000;
        case kSpeed:
            return 10;
        default:
            return 0;
    }
}

/// Brightness of the black body at a value of the channel, mixed with 1 by its share.
float blackBodyWeight(float value, const EmissionTableSettings& s) {
    constexpr float kColdest = 150, kHottest = kPlanckEntries - 1;
    const float share = std::clamp(s.blackbody, 0.0f, 1.0f);
    const float kelvin = std::floor(value * kelvinPerUnit(s.blackbodyMode) + 0.5f);
    const float limited = std::isnan(kelvin) ? kColdest : std::clamp(kelvin, kColdest, kHottest);
    const float luminance =
        s.planckLuminance ? s.planckLuminance[static_cast<int>(limited)] * kLumenPerWatt : 0;
    return luminance * s.physMult * share + (1 - share);
}

/// The curve's value, 0 where it is no strength of a fire.
float fireStrength(const NMBUtils::IRenderDiagramSampler& curve, float value) {
    const float y = curve.eval(value, 0);
    return std::isfinite(y) && y > 0 ? y : 0;
}

bool holdsZero(float a, float b) {
    return (a <= 0 && b >= 0) || (a >= 0 && b <= 0);
}

}  // namespace

void NimbraVolumeRenderLUTholder::buildEmissionTable(
    const NMBUtils::IRenderDiagramSampler& curve, const NMBUtils::IRenderGradientSampler& gradient,
    const EmissionTableSettings& s) {
    const bool ownOpacity = s.fireOpacityMode == kFireOwnOpacity;
    const bool blackBody = s.blackbody != -1.0f;
    if (!allocate(emission, 3 * kLutEntries) || (ownOpacity && !allocate(fireOpacity, kLutEntries)))
        return;
    for (int i = 0; i < kLutEntries; ++i) {
        const float x = entryValue(i, s.rawIndex, eRange);
        float y = fireStrength(curve, x);
        const Color g = nonNegative(gradient.eval(x));
        const float weight = blackBody ? blackBodyWeight(x, s) : 1;
        if (ownOpacity) {
            // The curve's own crossing of 0 must not leak fire into the entries beside it.
            if (holdsZero(entryValue(i - 1, s.rawIndex, eRange), x) ||
                holdsZero(x, entryValue(i + 1, s.rawIndex, eRange)))
                y = 0;
            fireOpacity[i] = density(1 - y * s.tmultFireOpacity) * s.fireOpacityScale;
            storeColor(emission.get(), i, g * (s.emult * weight * kOwnOpacityGain));
        } else if (blackBody) {
            storeColor(emission.get(), i, g * (weight * y * s.emult));
        } else {
            // Brightness comes from the curve, whatever colour was picked.
            const float mean = (g.r + g.g + g.b) / 3;
            if (mean > 1e-6f)
                y *= s.physMult / mean;
            storeColor(emission.get(), i, g * (y * s.emult));
        }
    }
}

void NimbraVolumeRenderLUTholder::buildDiffuseTable(
    const NMBUtils::IRenderGradientSampler& gradient, bool rawIndex) {
    if (!allocate(diffuse, 3 * kLutEntries))
        return;
    for (int i = 0; i < kLutEntries; ++i)
        storeColor(diffuse.get(), i, nonNegative(gradient.eval(entryValue(i, rawIndex, dRange))));
}

void NimbraVolumeRenderLUTholder::buildOpacityTable(const NMBUtils::IRenderDiagramSampler& curve,
                                                    bool rawIndex, bool invert, float scale) {
    if (!allocate(opacity, kLutEntries))
        return;
    for (int i = 0; i < kLutEntries; ++i) {
        float f = curve.eval(entryValue(i, rawIndex, tRange), NMBUtils::kOpacityCurve);
        if (!std::isfinite(f))
            f = 0;
        opacity[i] = density(invert ? 1 - f : f) * scale;
    }
}

void NimbraVolumeRenderLUTholder::setEmissionList(const Color* list, int count, float multiplier) {
    if (count <= 0 || !allocate(emission, 3 * kLutEntries))
        return;
    for (int i = 0; i < kLutEntries; ++i)
        storeColor(emission.get(), i, list[std::min(i, count - 1)] * multiplier);
}

void NimbraVolumeRenderLUTholder::setDiffuseList(const Color* list, int count) {
    if (count <= 0 || !allocate(diffuse, 3 * kLutEntries))
        return;
    for (int i = 0; i < kLutEntries; ++i)
        storeColor(diffuse.get(), i, list[std::min(i, count - 1)]);
}

void NimbraVolumeRenderLUTholder::setOpacityList(const float* list, int count, bool invert,
                                                 float tmult, float densityScale) {
    if (count <= 0 || !allocate(opacity, kLutEntries))
        return;
    for (int i = 0; i < kLutEntries; ++i) {
        const float v = list[std::min(i, count - 1)];
        opacity[i] = invert ? density(1 - v) * tmult * densityScale : v;
    }
}

}  // namespace nimbra
