// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The colour loop: steps are blended front to back.
//   C += color * T,  T *= 1 - alpha
// T. Porter, T. Duff, "Compositing digital images", SIGGRAPH 1984 (the "over" operator with
// colour already multiplied by opacity).
#include "volume/color_ops.h"
#include "volume/march_loop.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;

namespace {

/// Blends one step. False when nothing behind it shows.
bool blend(ColorMarch& march, const RaySegment& segment, Illuminator& illuminator) {
    Color& T = march.transmittance;
    march.color += stepColor(segment, illuminator) * T;
    march.setDepth(segment, illuminator);
    march.addElements(illuminator, T);
    T *= transparencyOf(segment.alpha);
    illuminator.transmittance = T;
    if (!(largest(T) < segment.shader->stoptransp))
        return true;
    T = {};
    return false;
}

}  // namespace

void marchColor(RayData& rayData, float time, Color& color, Color& alpha) {
    Illuminator& illuminator = *rayData.illuminator;
    ColorMarch march;
    march.begin(illuminator);
    walkNearestFirst(rayData, illuminator, time,
                     [&](const RaySegment& segment) { return blend(march, segment, illuminator); });
    alpha = transparencyOf(march.transmittance);
    march.finish(illuminator, alpha);
    color = march.color;
}

}  // namespace nimbra
