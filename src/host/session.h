// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Drives all plug-ins of a scene through a render of one or more frames, in the fixed order:
// preRenderBegin (modifiers), setupRender, renderBegin; for each frame preFrameBegin (modifiers),
// frameBegin, compileGeometry, tracing, clearGeometry, frameEnd, postFrameEnd (modifiers);
// renderEnd, postRenderEnd (modifiers).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/abort_flag.h"
#include "host/frame_number.h"
#include "host/frame_renderer.h"
#include "host/host_log.h"
#include "host/render_settings.h"
#include "host/scene.h"
#include "tessra/renderer.h"
#include "tessra/shading.h"

namespace nimbra::host {

/// Told what goes on, one call at a time. Phases may be announced on any thread, all else comes on
/// the scene thread.
class ProgressObserver {
public:
    virtual ~ProgressObserver() = default;
    /// `number` of `count` frames begins, counted from 0.
    virtual void frameStarted(FrameNumber /*frame*/, int /*number*/, int /*count*/) {}
    /// A phase that a plug-in or the host announces; "" ends it.
    virtual void phase(const std::string& /*title*/) {}
    /// Share of the frame's tiles that are done, and estimates in seconds.
    virtual void rendering(double /*share*/, double /*elapsed*/, double /*remaining*/) {}
    virtual void frameFinished(FrameNumber /*frame*/, RenderStatus /*status*/) {}
};

/// How long each phase of a frame took, and what was done in it.
struct FrameStatistics {
    double loadSeconds = 0;      // preFrameBegin and frameBegin
    double geometrySeconds = 0;  // compileGeometry and the tracer's preparation
    double renderSeconds = 0;
    double outputSeconds = 0;
    std::uint64_t cameraSamples = 0;
    std::uint64_t invalidSamples = 0;
    std::uint64_t rays = 0;      // of all kinds
    std::size_t peakMemory = 0;  // of the process, bytes
};

/// The tracer of a session, as the session sees it. Made once, prepared for every frame.
class FrameTracer : public CameraTracer {
public:
    /// After all compileGeometry of the frame, on the scene thread: acceleration structures,
    /// lights.
    virtual void beginFrame(TessUtils::TessraRenderer& renderer, Scene& scene,
                            const RenderSettings& settings) = 0;
    /// Before the frame's frameEnd calls, also after a failed beginFrame.
    virtual void endFrame() = 0;
    /// Rays of all kinds traced since beginFrame.
    virtual std::uint64_t rayCount() const { return 0; }
};

/// A finished frame on its way to a file.
struct FinishedFrame {
    const FrameBuffer& pixels;
    const RenderSettings& settings;
    const FrameStatistics& statistics;
    const Scene& scene;
    FrameNumber frame;
    bool complete = true;
    /// What the scene's sequences of files showed, in scene order; those that had a frame.
    std::vector<double> cacheTimes;
    int warnings = 0;  // different ones while the frame was rendered
};

/// Where frames go.
class FrameOutput {
public:
    virtual ~FrameOutput() = default;
    /// What write() will read of a frame's picture.
    virtual PictureNeeds needs(FrameNumber /*frame*/) const { return {}; }
    /// Writes a complete frame; false with `error` when it could not be written.
    virtual bool write(const FinishedFrame& frame, std::string& error) = 0;
};

struct SessionOptions {
    std::vector<FrameNumber> frames;  // empty: the range of the scene's settings
    bool keepGoing = false;           // a failed frame doesn't stop the others
    std::optional<int> threads;       // these replace the scene's values
    std::optional<int> width, height;
    std::optional<int> samples;
    std::optional<std::uint32_t> seed;
    CropWindow crop;
    std::vector<TessUtils::RenderChannelRef> channels;  // render channels to fill
};

struct FrameReport {
    FrameNumber frame;
    RenderStatus status = RenderStatus::Complete;
    std::string error;
    bool outOfMemory = false;
    bool outputFailed = false;
    FrameStatistics statistics;
};

struct SessionResult {
    RenderStatus status = RenderStatus::Complete;  // Complete only if all frames are
    std::string error;                             // of the first failure
    bool outOfMemory = false;                      // any frame failed for want of memory
    bool outputFailed = false;                     // any frame could not be written
    std::vector<FrameReport> frames;               // those that were begun
    double seconds = 0;

    /// "2 of 10 frames failed: 3, 7"; "" if none did.
    std::string failureSummary() const;
};

/// One render of a scene. All calls on one thread, the scene thread.
class RenderSession {
public:
    /// Everything handed over must outlive the session; `observer` may be null.
    RenderSession(Scene& scene, FrameTracer& tracer, FrameOutput& output, HostLog& log,
                  AbortFlag& abort, ProgressObserver* observer = nullptr);
    ~RenderSession();
    RenderSession(const RenderSession&) = delete;
    RenderSession& operator=(const RenderSession&) = delete;

    /// Renders; never throws what a plug-in throws. Can be called again for another render.
    SessionResult run(const SessionOptions& options);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace nimbra::host
