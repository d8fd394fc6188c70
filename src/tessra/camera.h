// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras as plug-ins see them: a ray for each place in the picture. The class tells the kind of
// projection, for those who need its inverse.
#pragma once

#include "tessra/shading.h"

namespace TessUtils {

/// Immutable during a frame; used on any thread.
class TESSRA_API CameraSampler {
public:
    virtual ~CameraSampler();
    /// Sets origin and direction of the ray through (x, y), in pixels from the upper left corner of
    /// the picture and perhaps outside of it. `time` lies within the frame's motion interval, 0 to
    /// 1. False where the camera sees nothing.
    virtual bool getRay(float x, float y, float time, TraceRay& out) const = 0;

    int width = 100, height = 100;  // of the picture, in pixels
    float pixelAspect = 1;          // width of a pixel over its height
    float fovX = 0, fovY = 0;       // radians; 0 for cameras without an angle of view
    Transform transform;            // to the world: right, up and backward are the axes
};

/// Perspective from a point.
class TESSRA_API PinholeCamera : public CameraSampler {};
/// Parallel rays.
class TESSRA_API OrthoCamera : public CameraSampler {};
/// All around a point; pixels are proportional to the angle from the axis of view.
class TESSRA_API SphereCamera : public CameraSampler {};
/// All around a point; pixels are proportional to longitude and latitude.
class TESSRA_API WarpedSphereCamera : public CameraSampler {};
/// Around the vertical axis: an angle in x, a plane or parallel rays in y.
class TESSRA_API CylindricCamera : public CameraSampler {};
/// A circular picture of a wide angle.
class TESSRA_API FishEyeCamera : public CameraSampler {};
/// A strip of the horizon, by angle in both directions.
class TESSRA_API PanoramaCamera : public CameraSampler {};

}  // namespace TessUtils
