// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Turns a traced scene into pixels: tiles for up to 64 render threads, jittered samples, progress.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/abort_flag.h"
#include "host/frame_buffer.h"
#include "host/pixel_sampler.h"
#include "host/render_settings.h"
#include "tessra/math.h"

namespace nimbra::host {

/// One camera sample, on one render thread.
struct CameraSample {
    float x = 0, y = 0;  // place in the full picture, in pixels from its upper left corner
    int sample = 0;      // number within the pixel
    int threadIndex = 0;
    PixelSampler* random = nullptr;  // next numbers of this sample: lens, time, then all bounces
};

/// What a tracer answers for one camera sample. `layers` has the size that the tracer announced.
struct SampleValue {
    TessUtils::Color color;  // associated with alpha
    float alpha = 0;
    std::vector<float> layers;
};

/// What looks along camera rays. `radiance` is called on all render threads.
class CameraTracer {
public:
    virtual ~CameraTracer() = default;
    /// Channel names of the values in SampleValue::layers.
    virtual std::vector<std::string> layerNames() const { return {}; }
    virtual void radiance(const CameraSample& sample, SampleValue& out) = 0;
};

/// The part of the picture to render, in pixels; x1 and y1 are outside. Empty: everything.
struct CropWindow {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool empty() const { return x1 <= x0 || y1 <= y0; }
};

/// What of a picture will be used.
struct PictureNeeds {
    ChannelDepth colors = ChannelDepth::Float;
    bool layers = true;
};

enum class RenderStatus { Complete, Aborted, Failed };

struct FrameRenderJob {
    CameraTracer* tracer = nullptr;
    const AbortFlag* abort = nullptr;  // may be null
    RenderSettings settings;
    int threadCount = 1;
    CropWindow crop;
    PictureNeeds needs;
    /// Called on the calling thread, ten times a second at most: share of the work done, 0 to 1.
    std::function<void(double share)> progress;
};

struct FrameRenderResult {
    RenderStatus status = RenderStatus::Complete;
    std::string error;  // of the first failure
    bool outOfMemory = false;
    std::uint64_t cameraSamples = 0;
    std::uint64_t invalidSamples = 0;  // not finite, taken as black
    double seconds = 0;
};

/// Renders all tiles on `threadCount` threads of its own and returns when they have ended. Values
/// that aren't finite count as black. After an abort unfinished tiles are as if nothing was met
/// there.
FrameRenderResult renderFrame(const FrameRenderJob& job, FrameBuffer& out);

}  // namespace nimbra::host
