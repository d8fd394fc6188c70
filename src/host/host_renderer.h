// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The renderer as plug-ins see it: data of the sequence and the frame, and the objects that both
// answer to by ID.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "host/abort_flag.h"
#include "host/frame_number.h"
#include "host/host_log.h"
#include "host/planck_table.h"
#include "host/render_settings.h"
#include "host/scene.h"
#include "tessra/renderer.h"
#include "tessra/shading.h"

namespace nimbra::host {

class ProgressObserver;

/// Sends a plug-in's messages to the log and its phases to the observer.
class HostProgress final : public TessUtils::ProgressCallback {
public:
    HostProgress(HostLog& log, AbortFlag& abort, ProgressObserver* observer)
        : log_(log), abort_(abort), observer_(observer) {}

    void setProgressTitle(const char* text) override;
    /// Passes on how far the picture is.
    void rendering(double share, double elapsed, double remaining);
    bool getAbort() override { return abort_.requested(); }
    /// Taking a stop back doesn't take back the user's.
    void setAbort(int abort) override;
    void setProgress(int done) override;
    void processEvents() override {}

protected:
    void message(Level level, const char* text) override;

private:
    HostLog& log_;
    AbortFlag& abort_;
    ProgressObserver* observer_;
    std::mutex mutex_;  // pre-passes on render threads have phases too
    std::string title_;
};

class CameraSettings final : public TessUtils::CameraSettingsInterface {
public:
    int motionBlur = -1;
    int getValue(int key) override {
        return key == TessUtils::kCameraMotionBlurKey ? motionBlur : 0;
    }
};

class SceneUnits final : public TessUtils::SceneUnitsInterface {
public:
    TessUtils::Vector up{0, 1, 0};
    float metersPerUnit = 1;
    float framesPerSecond = 24;
    TessUtils::Vector upDirection() const override { return up; }
    float scale() const override { return metersPerUnit; }
    float frameDuration() const override { return 1.0f / framesPerSecond; }
};

class ProbabilisticSettings final : public TessUtils::ProbabilisticSettingsInterface {
public:
    int primary = 0, gi = 0;
    int samples() const override { return primary; }
    int samplesGI() const override { return gi; }
};

/// What the renderer and the sequence answer to by ID.
struct HostServices {
    HostServices(Scene& ofScene, const RenderSettings& settings, int cameraMotionBlur);
    PluginInterface* find(InterfaceID id);

    Scene& scene;
    CameraSettings camera;
    SceneUnits units;
    ProbabilisticSettings probabilistic;
    TessUtils::VolumetricListInterface volumetrics;
    TessUtils::RenderChannelListInterface channels;
    PlanckTable planck;
};

class HostSequence final : public TessUtils::TessraSequenceData {
public:
    HostServices* services = nullptr;
    PluginInterface* getInterface(InterfaceID id) override;
};

/// One for each render; plug-ins attach their per-render objects to it.
class HostRenderer final : public TessUtils::TessraRenderer {
public:
    HostRenderer(Scene& scene, const RenderSettings& settings, int cameraMotionBlur,
                 TessUtils::ProgressCallback* progress, TessUtils::ThreadManager* threads,
                 int threadCount);

    const TessUtils::TessraSequenceData& getSequenceData() const override { return sequence_; }
    const TessUtils::TessraFrameData& getFrameData() const override { return frame_; }
    PluginInterface* getInterface(InterfaceID id) override;

    void setFrame(FrameNumber frame, const RenderSettings& settings);
    HostServices& services() { return services_; }

private:
    HostServices services_;
    HostSequence sequence_;
    TessUtils::TessraFrameData frame_;
};

}  // namespace nimbra::host
