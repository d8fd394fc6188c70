// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The colour loop: steps are blended front to back.
//   C += color * T,  T *= 1 - alpha
// T. Porter, T. Duff, "Compositing digital images", SIGGRAPH 1984 (the "over" operator with
// colour already multiplied by opacity).
#include <algorithm>

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
    T *= {std::max(1 - segment.alpha.r, 0.0f), std::max(1 - segment.alpha.g, 0.0f),
          std::max(1 - segment.alpha.b, 0.0f)};
    illuminator.transmittance = T;
    if (!(T.maxComponent() < segment.shader->stoptransp))
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
    const Color& T = march.transmittance;
    alpha = {std::max(1 - T.r, 0.0f), std::max(1 - T.g, 0.0f), std::max(1 - T.b, 0.0f)};
    march.finish(illuminator, alpha);
    color = march.color;
}

}  // namespace nimbra
