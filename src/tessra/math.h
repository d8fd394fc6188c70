// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Value types that host and library exchange: vectors, colours and transforms.
// Directions and colours are single precision; points in the world are double, since scenes may
// lie far from the origin.
#pragma once

#include <cmath>

namespace TessUtils {

struct Vector {
    float x = 0, y = 0, z = 0;

    float& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
    float operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }
    Vector operator+(const Vector& b) const { return {x + b.x, y + b.y, z + b.z}; }
    Vector operator-(const Vector& b) const { return {x - b.x, y - b.y, z - b.z}; }
    Vector operator-() const { return {-x, -y, -z}; }
    Vector operator*(float s) const { return {x * s, y * s, z * s}; }
    Vector& operator+=(const Vector& b) { return *this = *this + b; }
    bool operator==(const Vector&) const = default;
};

inline float dot(const Vector& a, const Vector& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vector cross(const Vector& a, const Vector& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float length(const Vector& a) {
    return std::sqrt(dot(a, a));
}
/// Unit vector along a; a itself when its length is zero or not finite.
inline Vector normalize(const Vector& a) {
    const float l = length(a);
    return l > 0.0f && std::isfinite(l) ? a * (1.0f / l) : a;
}

/// A point in world or object space, in scene units.
struct TracePoint {
    double x = 0, y = 0, z = 0;

    double& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
    double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }
    TracePoint operator+(const TracePoint& b) const { return {x + b.x, y + b.y, z + b.z}; }
    TracePoint operator-(const TracePoint& b) const { return {x - b.x, y - b.y, z - b.z}; }
    TracePoint operator*(double s) const { return {x * s, y * s, z * s}; }
    bool operator==(const TracePoint&) const = default;
};

inline Vector toVector(const TracePoint& p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}
inline TracePoint toPoint(const Vector& v) {
    return {v.x, v.y, v.z};
}

/// Scene-linear colour.
struct Color {
    float r = 0, g = 0, b = 0;

    float& operator[](int i) { return i == 0 ? r : i == 1 ? g : b; }
    float operator[](int i) const { return i == 0 ? r : i == 1 ? g : b; }
    Color operator+(const Color& c) const { return {r + c.r, g + c.g, b + c.b}; }
    Color operator-(const Color& c) const { return {r - c.r, g - c.g, b - c.b}; }
    Color operator*(const Color& c) const { return {r * c.r, g * c.g, b * c.b}; }
    Color operator*(float s) const { return {r * s, g * s, b * s}; }
    Color& operator+=(const Color& c) { return *this = *this + c; }
    Color& operator*=(const Color& c) { return *this = *this * c; }
    bool operator==(const Color&) const = default;
    float maxComponent() const { return std::fmax(r, std::fmax(g, b)); }
};

/// Colour with alpha.
struct AColor {
    Color color;
    float alpha = 0;
    bool operator==(const AColor&) const = default;
};

/// An affine map p' = p.x * f[0] + p.y * f[1] + p.z * f[2] + offs; f holds the axis (column)
/// vectors.
struct Transform {
    Vector f[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    TracePoint offs;

    bool operator==(const Transform&) const = default;
    Vector applyVector(const Vector& v) const { return f[0] * v.x + f[1] * v.y + f[2] * v.z; }
    TracePoint applyPoint(const TracePoint& p) const {
        TracePoint r = offs;
        for (int a = 0; a < 3; ++a)
            r[a] += double(f[0][a]) * p.x + double(f[1][a]) * p.y + double(f[2][a]) * p.z;
        return r;
    }
};
using TraceTransform = Transform;

}  // namespace TessUtils
