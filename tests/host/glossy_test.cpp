// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/glossy.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/tracer_fixture.h"

namespace nimbra::host::test {
namespace {

using namespace TessUtils;

TEST(Fresnel, Dielectric_KnownValues) {
    EXPECT_NEAR(fresnelDielectric(1, 1.5f), 0.04f, 1e-6f);
    EXPECT_NEAR(fresnelDielectric(1, 1.33f), 0.02006f, 1e-5f);
    EXPECT_NEAR(fresnelDielectric(0, 1.5f), 1, 1e-6f);
    EXPECT_EQ(fresnelDielectric(0.5f, 1), 0);
    // Brewster's angle: the mean of no parallel and of the perpendicular share.
    const float ior = 1.5f, cosine = 1 / std::sqrt(1 + ior * ior);
    const float perpendicular = std::pow((1 - ior * ior) / (1 + ior * ior), 2.0f);
    EXPECT_NEAR(fresnelDielectric(cosine, ior), 0.5f * perpendicular, 1e-6f);
}

/// Calls back with points spread evenly over the unit square (a lattice of golden ratio).
template <class Use>
void forSquare(const Use& use) {
    constexpr int kCount = 20000;
    for (int i = 0; i < kCount; ++i) {
        const double golden = i * 0.6180339887498949;
        const float u[2] = {(static_cast<float>(i) + 0.5f) / kCount,
                            static_cast<float>(golden - std::floor(golden))};
        use(u, 1.0 / kCount);
    }
}

/// The share of an even sky that a surface mirrors, by its own samples.
double bySamples(GlossyBRDF& brdf) {
    double sum = 0;
    forSquare([&](const float u[2], double share) {
        float weight = 0;
        const Vector dir = brdf.sampleDirection({}, u, weight);
        EXPECT_NEAR(length(dir), 1, 1e-4f);
        EXPECT_TRUE(weight >= 0 && weight <= 1.0001f) << weight;
        sum += weight * share;
    });
    return sum;
}

/// The same by lights from all directions: of density cos / pi, against light over cos.
double byLights(GlossyBRDF& brdf, const Vector& normal) {
    const Basis basis(normal);
    double sum = 0;
    forSquare([&](const float u[2], double share) {
        const Vector local = sampleCosineHemisphere(u);
        Color light = Color{1, 1, 1} * (1 / std::max(local.z, 1e-3f)), raw;
        sum += brdf.eval({}, basis.toWorld(local), light, raw, -1).g * share;
    });
    return sum;
}

TEST(Glossy, SamplesAndLights_GiveTheSameShareOfAnEvenSky) {
    const Vector normal = normalize(Vector{0.3f, 1, -0.2f});
    const Basis basis(normal);
    for (const float cosine : {1.0f, 0.7f, 0.3f})
        for (const float roughness : {0.5f, 0.8f, 1.0f}) {
            const Vector eye = basis.toWorld({std::sqrt(1 - cosine * cosine), 0, cosine});
            GlossyBRDF brdf({1, 1, 1}, 1.33f, roughness, normal, normal, eye);
            const double sampled = bySamples(brdf);
            EXPECT_NEAR(byLights(brdf, normal), sampled, 0.03 * sampled)
                << cosine << " " << roughness;
        }
}

TEST(Glossy, NoRoughness_MirrorsExactly) {
    const Vector normal{0, 0, 1}, eye = normalize(Vector{1, 0, 2});
    GlossyBRDF brdf({1, 1, 1}, 1.5f, 0, normal, normal, eye);
    const float u[2] = {0.3f, 0.9f};
    float weight = 0;
    const Vector dir = brdf.sampleDirection({}, u, weight);
    EXPECT_NEAR(length(dir - Vector{-eye.x, -eye.y, eye.z}), 0, 1e-5f);
    EXPECT_NEAR(weight, fresnelDielectric(eye.z, 1.5f), 1e-5f);
}

}  // namespace
}  // namespace nimbra::host::test
