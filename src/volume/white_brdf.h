// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The neutral scatterer by which the host's lighting code lights a point inside a volume.
#pragma once

#include "tessra/shading.h"
#include "tessra/surface_shading.h"

namespace nimbra {

/// Scatters white light evenly in all directions. Direct light comes as an irradiance that a white
/// surface facing the light would show, so that smoke and a white wall are equally bright.
class MyWhiteBRDF final : public TessUtils::BRDFSampler, public TessUtils::BSDFSampler {
public:
    /// The light times `diffuse`, and times `scatterMul` in GI. A light at distance d counts with
    /// d^2 / (d^2 + 0.25), which softens lights inside the smoke. Rays that aren't of a volume
    /// point get nothing from behind `normal`.
    TessUtils::Color eval(const TessUtils::TraceRay& ray, const TessUtils::Vector& lightDir,
                          TessUtils::Color& lightColor, TessUtils::Color& raw,
                          float distance) override;
    /// Uniform over the sphere: half as dense as over a hemisphere, which is the weight.
    TessUtils::Vector sampleDirection(const TessUtils::TraceRay& ray, const float u[2],
                                      float& weight) override;

    TessUtils::Color diffuse{1, 1, 1};
    float scatterMul = 1;  // of indirect light
    TessUtils::Vector normal;
    float rayLimit = 0;  // longest indirect ray; 0: no limit

    /// Whether the following are summed. They are not weighted by `diffuse`.
    bool recordElements = false;
    TessUtils::Color illumination;  // direct light that shadows took away
    TessUtils::Color raw;           // direct light that arrived
    TessUtils::Color rawGI;         // indirect light that arrived
};

}  // namespace nimbra
