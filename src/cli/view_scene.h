// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The scene that shows a cache: container, camera, lights and settings, as the text of a scene
// file.
#pragma once

#include <string>

#include "cli/time_options.h"
#include "cli/view_look.h"

namespace nimbra::cli {

struct ViewScene {
    std::string cachePath;  // file or pattern, absolute
    int firstFrame = 1, lastFrame = 1;
    TimeOptions time;
    ViewLook look;
    int width = 960, height = 540;
    double azimuth = 35;    // of the camera around the up axis, in degrees
    double elevation = 12;  // above the horizon
    bool ground = false;    // a floor below the box that catches shadows
};

/// A scene file; reads well and can be edited further.
std::string sceneText(const ViewScene& scene);

}  // namespace nimbra::cli
