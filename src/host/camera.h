// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras: from a place in the picture to a ray, and back.
#pragma once

#include <array>
#include <memory>

#include "tessra/shading.h"

namespace nimbra::host {

/// Sixteen entries, row by row; points are rows: p' = p * M.
using Matrix44 = std::array<double, 16>;

Matrix44 multiply(const Matrix44& a, const Matrix44& b);

/// Where a camera stands: unit axes in world space.
struct CameraPlacement {
    TessUtils::TracePoint position;
    TessUtils::Vector right{1, 0, 0}, up{0, 1, 0}, forward{0, 0, -1};

    /// Looks from `position` to `target`. When both fall together, or when up lies along the view,
    /// another axis stands in.
    static CameraPlacement lookAt(const TessUtils::TracePoint& position,
                                  const TessUtils::TracePoint& target, const TessUtils::Vector& up);
    /// Columns of the transform: right, up, backward; its scale is ignored.
    static CameraPlacement fromTransform(const TessUtils::Transform& transform);
};

/// Two random numbers, or their like, for a place on the lens; {0.5, 0.5} is its middle.
struct LensSample {
    float u[2] = {0.5f, 0.5f};
};

/// Immutable after it was made; used on all render threads.
class CameraModel {
public:
    virtual ~CameraModel() = default;
    /// Sets origin, direction, mint and maxt of the ray through (x, y), in pixels from the upper
    /// left corner of the full picture. False where the camera sees nothing.
    virtual bool ray(float x, float y, const LensSample& lens, TessUtils::TraceRay& out) const = 0;
    /// False where all rays go through the middle of the lens, whatever the sample.
    virtual bool hasWideLens() const = 0;
    /// The pixel position of a point through the middle of the lens; false if it has none.
    virtual bool project(const TessUtils::TracePoint& point, double& x, double& y) const = 0;
    /// Distance along the view of a point: what a depth channel holds.
    virtual double depth(const TessUtils::TracePoint& point) const = 0;
    /// To x right, y up, z forward, with the camera in the origin.
    virtual Matrix44 worldToCamera() const = 0;
    /// To x right and y down, (0, 0) and (1, 1) being the corners of the full picture. False for
    /// cameras that no matrix describes.
    virtual bool worldToNDC(Matrix44& out) const = 0;
};

/// What the projections by a plane have in common.
struct ProjectionSettings {
    CameraPlacement placement;
    int width = 1, height = 1;  // of the full picture, in pixels
    float pixelAspect = 1;      // width of a pixel over its height
    double nearClip = 0;        // distances along the view; nothing outside of them is seen
    double farClip = 1e18;
    float lensRadius = 0;  // in scene units; 0: all is sharp
    float focusDistance = 10;
};

/// Perspective; `fov` is the horizontal angle of view in degrees, above 0 and below 180.
std::unique_ptr<CameraModel> newPinholeCamera(const ProjectionSettings& settings, double fov);
/// Parallel rays; `filmWidth` is the width of the view in scene units.
std::unique_ptr<CameraModel> newOrthographicCamera(const ProjectionSettings& settings,
                                                   double filmWidth);

}  // namespace nimbra::host
