// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What both colour loops need at each step.
#include "volume/march_loop.h"

#include <algorithm>

#include "foundation/log.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;

void advance(RaySegment& segment, Illuminator& illuminator, float time, bool first) {
    illuminator.selectShader(*segment.shader);
    if (!segment.shader->stepSegment(segment, illuminator, time, first, nullptr)) {
        segment.alpha = {};
        segment.color = {};
        if ((segment.state & kSegmentStuck) != 0)
            reportColorCycle(illuminator);
    }
}

void reportColorCycle(const Illuminator& illuminator) {
    NMBUtils::logLine("#::Shade - color cycle! pt:%f %f \n", illuminator.screenPos[0],
                      illuminator.screenPos[1]);
}

Color stepColor(const RaySegment& segment, Illuminator& illuminator) {
    Color color = segment.color;
    if (illuminator.inMedium && segment.shader->has(kMediumFog))
        illuminator.applyMediumAttenuation(color, segment);
    const bool indirect = (illuminator.kind & kKindDiffuse) != 0;
    return indirect ? color * segment.shader->giMultiplier : color;
}

void ColorMarch::begin(Illuminator& illuminator) {
    illuminator.beginElements();
    elementMask = illuminator.elementMask;
    if ((elementMask & 1u << kElementAge) != 0)
        elementMask |= 1u << kElementZDepth;
    illuminator.transmittance = transmittance;
}

void ColorMarch::setDepth(const RaySegment& segment, Illuminator& illuminator) const {
    if ((elementMask & 1u << kElementZDepth) == 0)
        return;
    const float depth = segment.shader->volzdepth != 0 ? segment.alpha.g * segment.tCur : 0.0f;
    illuminator.elements[kElementZDepth] = {depth, depth, depth};
}

void ColorMarch::addElements(const Illuminator& illuminator, const Color& weight) {
    if (elementMask == 0)
        return;
    for (int i = 0; i < kElementCount; ++i) {
        if ((elementMask >> i & 1u) != 0)
            elements[i] += illuminator.elements[i] * weight;
    }
}

void ColorMarch::finish(Illuminator& illuminator, const Color& opacity) {
    if (elementMask == 0)
        return;
    if ((elementMask & 1u << kElementAge) != 0 && opacity.g != 0)
        elements[kElementAge] = elements[kElementAge] * (1.0f / opacity.g);
    std::copy(elements, elements + kElementCount, illuminator.elements);
    illuminator.writeElements();
}

}  // namespace nimbra
