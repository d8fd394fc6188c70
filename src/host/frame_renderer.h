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

/// Value of layer "Z" where nothing was met.
inline constexpr float kNoDepth = 1e10f;

/// What a tracer answers for one camera sample. `layers` has the size that the tracer announced.
struct SampleValue {
    TessUtils::Color color;  // associated with alpha
    float alpha = 0;
    std::vector<float> layers;
};

/// A picture or a part of it. Rows go down; values are averages over the samples of a pixel, in
/// layer "Z" the nearest of them.
struct FrameBuffer {
    int fullWidth = 0, fullHeight = 0;    // the whole picture
    int x0 = 0, y0 = 0;                   // upper left corner of the part that is held
    int width = 0, height = 0;            // its size
    std::vector<float> rgba;              // 4 a pixel, scene-linear, associated alpha
    std::vector<std::string> layerNames;  // channel names like "Z" or "diffuse.R"
    std::vector<float> layers;            // layerNames.size() a pixel

    void resize(int fullW, int fullH, int left, int top, int w, int h,
                std::vector<std::string> names);
    float* pixel(int x, int y) { return &rgba[(std::size_t(y - y0) * width + (x - x0)) * 4]; }
    const float* pixel(int x, int y) const {
        return &rgba[(std::size_t(y - y0) * width + (x - x0)) * 4];
    }
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

enum class RenderStatus { Complete, Aborted, Failed };

struct FrameRenderJob {
    CameraTracer* tracer = nullptr;
    const AbortFlag* abort = nullptr;  // may be null
    RenderSettings settings;
    int threadCount = 1;
    CropWindow crop;
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
/// that aren't finite count as black. After an abort the pixels of unfinished tiles are zero.
FrameRenderResult renderFrame(const FrameRenderJob& job, FrameBuffer& out);

}  // namespace nimbra::host
