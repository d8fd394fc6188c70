// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The probabilistic colour loop: instead of blending all steps, light is computed at a few
// interaction points. Sample i interacts where the transmittance falls to its threshold u(i); the
// thresholds are stratified over [0, 1).
#include "volume/color_ops.h"
#include "volume/march_loop.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;

namespace {

class Interactions {
public:
    Interactions(ColorMarch& colorMarch, Illuminator& rayIlluminator, int sampleCount)
        : march(colorMarch),
          illuminator(rayIlluminator),
          count(sampleCount),
          xi(rayIlluminator.random()) {}

    /// Takes one step into account. False when nothing behind it can be hit.
    bool pass(RaySegment& segment) {
        Color& T = march.transmittance;
        T *= transparencyOf(segment.alpha);
        illuminator.transmittance = T;
        const float m = largest(T);
        if (hit < count && threshold(hit) >= m)
            interact(segment, m);
        return hit < count && !(m < segment.shader->stoptransp);
    }

    int hits() const { return hit; }

private:
    /// Falls with i.
    float threshold(int i) const {
        return (xi + static_cast<float>(count - 1 - i)) / static_cast<float>(count);
    }

    /// All samples that interact within the step share its colour.
    void interact(RaySegment& segment, float transmittance) {
        segment.alpha = {1, 1, 1};
        segment.shader->shadeAtSample(segment, illuminator, true);
        segment.color = stepColor(segment, illuminator);
        march.setDepth(segment, illuminator);
        for (; hit < count && threshold(hit) >= transmittance; ++hit) {
            march.color += segment.color;
            march.addElements(illuminator, {1, 1, 1});
        }
    }

    ColorMarch& march;
    Illuminator& illuminator;
    int count;
    int hit = 0;
    float xi;
};

}  // namespace

void marchProbabilistic(RayData& rayData, float time, int samples, Color& color, Color& alpha) {
    Illuminator& illuminator = *rayData.illuminator;
    ColorMarch march;
    march.begin(illuminator);
    Interactions interactions(march, illuminator, samples);
    walkNearestFirst(rayData, illuminator, time,
                     [&](RaySegment& segment, bool) { return interactions.pass(segment); });

    const float hits = static_cast<float>(interactions.hits());
    const float opacity = hits / static_cast<float>(samples);
    if (interactions.hits() != 0) {
        const float mean = 1.0f / static_cast<float>(samples);
        march.color = march.color * mean;
        for (Color& element : march.elements)
            element = element * mean;
    }
    alpha = {opacity, opacity, opacity};
    march.finish(illuminator, alpha);
    color = march.color;
}

}  // namespace nimbra
