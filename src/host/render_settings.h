// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-in "TessraSettings": how a scene is rendered.
#pragma once

#include <cstdint>

#include "host/host_plugin.h"
#include "tessra/renderer.h"

namespace nimbra::host {

enum class PixelFilter { Box = 0, Triangle = 1, Gaussian = 2 };

/// The values of the settings, plain.
struct RenderSettings {
    int width = 960;
    int height = 540;
    int samples = 16;  // camera rays a pixel
    std::uint32_t seed = 0;
    int threads = 0;  // 0: all that the process may use
    int tileSize = 32;
    PixelFilter pixelFilter = PixelFilter::Gaussian;
    float filterWidth = 1.5f;  // full width, in pixels
    int firstFrame = 1;
    int lastFrame = 1;
    int frameStep = 1;
    float framesPerSecond = 24;
    bool motionBlur = false;
    float shutterInterval = 0.5f;  // in frames
    float shutterCenter = 0;       // offset of the middle of the interval from the frame's time
    bool globalIllumination = false;
    int giBounces = 2;
    int rayDepth = 8;      // bounces of any kind
    int imageSampler = 0;  // TessraSequenceData::imageSamplerType
    int maxTransparencyLevels = 50;
    float maxRayIntensity = 0;  // limit of one sample's colour, 0: none
    TessUtils::Color background;
    float backgroundAlpha = 0;
    TessUtils::Vector up{0, 1, 0};
    float metersPerUnit = 1;
    TessUtils::TracePoint sceneOffset;
    int probabilisticSamples = 0;
    int probabilisticSamplesGI = 0;
    float zDepthBlack = 0;
    float zDepthWhite = 1000;
    float blackBodyWhite = 1;  // luminance of a black body, in cd/m2, that renders as 1
};

class SettingsPlugin final : public TessUtils::TessraPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit SettingsPlugin(TessUtils::TessraPluginDesc* desc);

    /// The values at a time, from the scene or else the defaults.
    RenderSettings read(double time);
};

}  // namespace nimbra::host
