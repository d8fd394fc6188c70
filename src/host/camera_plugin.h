// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-in "TessraCamera": where the picture is taken from.
#pragma once

#include <memory>

#include "host/camera.h"
#include "host/host_plugin.h"

namespace nimbra::host {

enum class CameraType { Perspective = 0, Orthographic = 1 };

class CameraPlugin final : public TessUtils::TessraPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit CameraPlugin(TessUtils::TessraPluginDesc* desc);

    /// The camera as it stands at `time`, for a picture of that size; `sceneOffset` is taken off
    /// its position.
    std::unique_ptr<CameraModel> makeCamera(double time, int width, int height,
                                            const TessUtils::TracePoint& sceneOffset,
                                            const TessUtils::Vector& sceneUp);
    /// False where the scene takes the camera's own motion out of the blur.
    bool hasMotionBlur() const { return motionBlur_ != 0; }
    /// Width of a pixel over its height, at the time of the last makeCamera.
    float pixelAspect() const { return pixelAspect_; }

private:
    CameraPlacement placement(double time, const TessUtils::Vector& sceneUp) const;

    int type_ = 0, motionBlur_ = -1;
    float fov_ = 45, filmWidth_ = 10, near_ = 0, far_ = 1e18f;
    float lensRadius_ = 0, focusDistance_ = 10, pixelAspect_ = 1;
};

}  // namespace nimbra::host
