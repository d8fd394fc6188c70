// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reflection by a surface of tiny mirrors, whose directions spread about its normal.
#pragma once

#include "host/sampling.h"
#include "tessra/shading.h"

namespace nimbra::host {

/// Share of unpolarized light that a border to a dielectric reflects. `cosine` is that of the angle
/// to the normal, `ior` the refractive index inside over that outside, at least 1.
float fresnelDielectric(float cosine, float ior);

/// GGX microfacets (Walter et al., "Microfacet Models for Refraction through Rough Surfaces", 2007)
/// with the height-correlated masking of Smith. `roughness` is the square root of GGX's alpha; 0
/// mirrors, and lights without a size aren't seen in it.
class GlossyBRDF final : public TessUtils::BRDFSampler {
public:
    /// Unit vectors of the world; `toEye` must be on the side of both normals.
    GlossyBRDF(const TessUtils::Color& color, float ior, float roughness,
               const TessUtils::Vector& normal, const TessUtils::Vector& geometricNormal,
               const TessUtils::Vector& toEye);

    TessUtils::Color eval(const TessUtils::TraceRay& ray, const TessUtils::Vector& lightDir,
                          TessUtils::Color& lightColor, TessUtils::Color& raw,
                          float distance) override;
    /// A mirrored direction, from the normals that the eye sees (Heitz, "Sampling the GGX
    /// Distribution of Visible Normals", 2018). `weight` has the reflected share in it.
    TessUtils::Vector sampleDirection(const TessUtils::TraceRay& ray, const float u[2],
                                      float& weight) override;

private:
    float masking(const TessUtils::Vector& local) const;

    TessUtils::Color color_;
    float ior_, alpha_;
    TessUtils::Vector normal_, geometricNormal_;
    Basis basis_;
    TessUtils::Vector eye_;  // about the normal as z
};

}  // namespace nimbra::host
