// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/glossy.h"

#include <algorithm>
#include <cmath>

namespace nimbra::host {

using TessUtils::Color;
using TessUtils::TraceRay;
using TessUtils::Vector;

float fresnelDielectric(float cosine, float ior) {
    const float c = std::clamp(cosine, 0.0f, 1.0f);
    const float g = std::sqrt(std::max(ior * ior - 1 + c * c, 0.0f));
    if (!(g + c > 0))
        return 1;
    const float a = (g - c) / (g + c);
    const float b = (c * (g + c) - 1) / (c * (g - c) + 1);
    return 0.5f * a * a * (1 + b * b);
}

GlossyBRDF::GlossyBRDF(const Color& color, float ior, float roughness, const Vector& normal,
                       const Vector& geometricNormal, const Vector& toEye)
    : color_(color),
      ior_(ior),
      alpha_(roughness * roughness),
      normal_(normal),
      geometricNormal_(geometricNormal),
      basis_(normal),
      eye_{dot(basis_.tangent, toEye), dot(basis_.bitangent, toEye),
           std::max(dot(normal, toEye), 1e-4f)} {}

/// Smith's lambda.
float GlossyBRDF::masking(const Vector& local) const {
    const float z2 = local.z * local.z;
    const float slope2 = (local.x * local.x + local.y * local.y) / std::max(z2, 1e-12f);
    return 0.5f * (std::sqrt(1 + alpha_ * alpha_ * slope2) - 1);
}

Color GlossyBRDF::eval(const TraceRay&, const Vector& lightDir, Color& lightColor, Color& raw,
                       float) {
    const Color light = lightColor;
    lightColor = raw = {};
    const Vector l{dot(basis_.tangent, lightDir), dot(basis_.bitangent, lightDir),
                   dot(normal_, lightDir)};
    if (!(l.z > 0) || !(dot(geometricNormal_, lightDir) > 0) || !(alpha_ > 0))
        return {};
    const Vector half = normalize(l + eye_);
    const float a2 = alpha_ * alpha_;
    const float around = 1 + (a2 - 1) * half.z * half.z;
    const float density = a2 / (kPi * around * around);
    const float shadowing = 1 / (1 + masking(l) + masking(eye_));
    // A light's colour is its irradiance over pi, and the cosine is cancelled.
    return light * color_ *
           (kPi * density * shadowing * fresnelDielectric(dot(eye_, half), ior_) / (4 * eye_.z));
}

Vector GlossyBRDF::sampleDirection(const TraceRay&, const float u[2], float& weight) {
    // The visible normals of the stretched half sphere are those of a disc seen askew.
    const Vector v = normalize(Vector{alpha_ * eye_.x, alpha_ * eye_.y, eye_.z});
    const Basis basis(v);
    float x, y;
    sampleDisc(u, x, y);
    // The part of the disc below the horizon is folded up along the direction that leans there.
    const Vector up = normalize(Vector{0, 0, 1} - v * v.z);
    const bool steep = v.z > 0.99999f;
    const Vector side = steep ? basis.tangent : cross(up, v);
    const Vector lean = steep ? basis.bitangent : up;
    const float s = 0.5f * (1 + v.z);
    y = (1 - s) * std::sqrt(std::max(1 - x * x, 0.0f)) + s * y;
    const float z = std::sqrt(std::max(1 - x * x - y * y, 0.0f));
    const Vector n = side * x + lean * y + v * z;
    const Vector half = normalize(Vector{alpha_ * n.x, alpha_ * n.y, std::max(n.z, 1e-6f)});

    const float along = dot(eye_, half);
    const Vector l = half * (2 * along) - eye_;
    weight = 0;
    if (!(l.z > 0))
        return normal_;
    weight =
        fresnelDielectric(along, ior_) * (1 + masking(eye_)) / (1 + masking(eye_) + masking(l));
    Vector dir = normalize(basis_.toWorld(l));
    // Smooth normals can mirror into a flat triangle: its other side is the same sky.
    const float below = dot(geometricNormal_, dir);
    if (below < 0)
        dir = normalize(dir - geometricNormal_ * (2 * below));
    return dir;
}

}  // namespace nimbra::host
