// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/camera.h"

#include <cmath>
#include <numbers>

#include "host/sampling.h"

namespace nimbra::host {

using TessUtils::TracePoint;
using TessUtils::TraceRay;
using TessUtils::Vector;

Matrix44 multiply(const Matrix44& a, const Matrix44& b) {
    Matrix44 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k)
                r[i * 4 + j] += a[i * 4 + k] * b[k * 4 + j];
    return r;
}

namespace {

double dotPoint(const Vector& axis, const TracePoint& p) {
    return axis.x * p.x + axis.y * p.y + axis.z * p.z;
}

TracePoint along(const Vector& direction, double distance) {
    return {direction.x * distance, direction.y * distance, direction.z * distance};
}

bool isUsable(const Vector& v) {
    const float l = length(v);
    return l > 1e-12f && std::isfinite(l);
}

/// The plane projections: they differ in the film's size and in the rays.
class PlaneCamera : public CameraModel {
public:
    /// `filmWidth` at distance 1 for a perspective, anywhere for parallel rays.
    PlaneCamera(const ProjectionSettings& settings, double filmWidth)
        : s_(settings),
          filmWidth_(filmWidth),
          filmHeight_(filmWidth * settings.height / (settings.width * settings.pixelAspect)) {}

    double depth(const TracePoint& point) const final {
        return dotPoint(s_.placement.forward, point - s_.placement.position);
    }

    bool hasWideLens() const final { return s_.lensRadius > 0; }

    Matrix44 worldToCamera() const final {
        const Vector axes[3] = {s_.placement.right, s_.placement.up, s_.placement.forward};
        Matrix44 m{};
        for (int c = 0; c < 3; ++c) {
            for (int r = 0; r < 3; ++r)
                m[r * 4 + c] = axes[c][r];
            m[12 + c] = -dotPoint(axes[c], s_.placement.position);
        }
        m[15] = 1;
        return m;
    }

protected:
    /// Place on the film in its units, from its middle; x right, y up.
    void filmPosition(float x, float y, double& fx, double& fy) const {
        fx = (x / s_.width - 0.5) * filmWidth_;
        fy = (0.5 - y / s_.height) * filmHeight_;
    }
    void pixelPosition(double fx, double fy, double& x, double& y) const {
        x = (fx / filmWidth_ + 0.5) * s_.width;
        y = (0.5 - fy / filmHeight_) * s_.height;
    }
    /// Moves a ray, given in camera axes, to its place on the lens: it still meets the same point
    /// of the plane in focus. Then cuts it at the clip planes.
    bool finish(TracePoint origin, TracePoint dir, const LensSample& lens, TraceRay& out) const {
        if (s_.lensRadius > 0) {
            const double toFocus = s_.focusDistance / dir.z;
            const TracePoint focus = origin + dir * toFocus;
            float lx, ly;
            sampleDisc(lens.u, lx, ly);
            origin = origin + TracePoint{lx * s_.lensRadius, ly * s_.lensRadius, 0};
            dir = focus - origin;
        }
        const double l = std::sqrt(dir.x * dir.x + dir.y * dir.y + dir.z * dir.z);
        const CameraPlacement& at = s_.placement;
        out.p = at.position + along(at.right, origin.x) + along(at.up, origin.y);
        const TracePoint d =
            along(at.right, dir.x / l) + along(at.up, dir.y / l) + along(at.forward, dir.z / l);
        out.dir = normalize(toVector(d));
        out.mint = s_.nearClip * l / dir.z;
        out.maxt = s_.farClip * l / dir.z;
        return out.mint < out.maxt;
    }

    ProjectionSettings s_;
    double filmWidth_, filmHeight_;
};

class PinholeCamera final : public PlaneCamera {
public:
    using PlaneCamera::PlaneCamera;

    bool ray(float x, float y, const LensSample& lens, TraceRay& out) const override {
        TracePoint dir{0, 0, 1};
        filmPosition(x, y, dir.x, dir.y);
        return finish({}, dir, lens, out);
    }
    bool project(const TracePoint& point, double& x, double& y) const override {
        const TracePoint v = point - s_.placement.position;
        const double z = dotPoint(s_.placement.forward, v);
        if (z <= 0)
            return false;
        pixelPosition(dotPoint(s_.placement.right, v) / z, dotPoint(s_.placement.up, v) / z, x, y);
        return true;
    }
    bool worldToNDC(Matrix44& out) const override {
        // x' = (x / w + z / 2) / z, y' = (z / 2 - y / h) / z
        const Matrix44 toNDC = {
            1 / filmWidth_, 0, 0, 0, 0, -1 / filmHeight_, 0, 0, 0.5, 0.5, 1, 1, 0, 0, 0, 0};
        out = multiply(worldToCamera(), toNDC);
        return true;
    }
};

class OrthographicCamera final : public PlaneCamera {
public:
    using PlaneCamera::PlaneCamera;

    bool ray(float x, float y, const LensSample& lens, TraceRay& out) const override {
        TracePoint origin;
        filmPosition(x, y, origin.x, origin.y);
        return finish(origin, {0, 0, 1}, lens, out);
    }
    bool project(const TracePoint& point, double& x, double& y) const override {
        const TracePoint v = point - s_.placement.position;
        pixelPosition(dotPoint(s_.placement.right, v), dotPoint(s_.placement.up, v), x, y);
        return true;
    }
    bool worldToNDC(Matrix44& out) const override {
        const Matrix44 toNDC = {
            1 / filmWidth_, 0, 0, 0, 0, -1 / filmHeight_, 0, 0, 0, 0, 1, 0, 0.5, 0.5, 0, 1};
        out = multiply(worldToCamera(), toNDC);
        return true;
    }
};

}  // namespace

CameraPlacement CameraPlacement::lookAt(const TracePoint& position, const TracePoint& target,
                                        const Vector& up) {
    CameraPlacement p;
    p.position = position;
    const Vector view = toVector(target - position);
    p.forward = isUsable(view) ? normalize(view) : Vector{0, 0, -1};
    Vector right = cross(p.forward, normalize(up));
    if (!isUsable(right) || length(right) < 1e-5f)
        right =
            cross(p.forward, std::fabs(p.forward.y) < 0.9f ? Vector{0, 1, 0} : Vector{0, 0, -1});
    p.right = normalize(right);
    p.up = cross(p.right, p.forward);
    return p;
}

CameraPlacement CameraPlacement::fromTransform(const TessUtils::Transform& transform) {
    const TracePoint target = transform.offs - toPoint(normalize(transform.f[2]));
    return lookAt(transform.offs, target, transform.f[1]);
}

std::unique_ptr<CameraModel> newPinholeCamera(const ProjectionSettings& settings, double fov) {
    const double half = fov * std::numbers::pi / 360;
    return std::make_unique<PinholeCamera>(settings, 2 * std::tan(half));
}

std::unique_ptr<CameraModel> newOrthographicCamera(const ProjectionSettings& settings,
                                                   double filmWidth) {
    return std::make_unique<OrthographicCamera>(settings, filmWidth);
}

}  // namespace nimbra::host
