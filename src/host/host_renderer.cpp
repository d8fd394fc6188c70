// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/host_renderer.h"

#include "host/session.h"

namespace nimbra::host {

using namespace TessUtils;

void HostProgress::setProgressTitle(const char* text) {
    std::lock_guard lock(mutex_);
    title_ = text ? text : "";
    if (!title_.empty())
        log_.debug(title_);
    if (observer_)
        observer_->phase(title_);
}

void HostProgress::setAbort(int abort) {
    if (abort)
        abort_.request();
    else if (abort_.reason() == AbortFlag::kAbortByCaller)
        abort_.clear();
}

void HostProgress::rendering(double share, double elapsed, double remaining) {
    std::lock_guard lock(mutex_);
    if (observer_)
        observer_->rendering(share, elapsed, remaining);
}

void HostProgress::setProgress(int) {
    std::lock_guard lock(mutex_);
    // The unit is the plug-in's own, so all that can be said is that the phase goes on.
    if (observer_)
        observer_->phase(title_);
}

void HostProgress::message(Level level, const char* text) {
    switch (level) {
        case Level::Statistic:
            log_.debug(text);
            break;
        case Level::Warning:
            log_.warning(text);
            break;
        case Level::Info:
            log_.info(text);
            break;
    }
}

HostServices::HostServices(Scene& ofScene, const RenderSettings& settings, int cameraMotionBlur)
    : scene(ofScene), planck(settings.blackBodyWhite) {
    camera.motionBlur = cameraMotionBlur;
    units.up = settings.up;
    units.metersPerUnit = settings.metersPerUnit;
    units.framesPerSecond = settings.framesPerSecond;
    probabilistic.primary = settings.probabilisticSamples;
    probabilistic.gi = settings.probabilisticSamplesGI;
}

PluginInterface* HostServices::find(InterfaceID id) {
    switch (id) {
        case ids::kCameraSettings:
            return &camera;
        case ids::kSceneUnits:
            return &units;
        case ids::kScene:
            return &scene;
        case ids::kVolumetricList:
            return &volumetrics;
        case ids::kRenderChannelList:
            return &channels;
        case ids::kProbabilisticSettings:
            return &probabilistic;
        case ids::kPlanckTable:
            return &planck;
        default:
            return nullptr;
    }
}

PluginInterface* HostSequence::getInterface(InterfaceID id) {
    PluginInterface* const own = services ? services->find(id) : nullptr;
    return own ? own : TessraSequenceData::getInterface(id);
}

HostRenderer::HostRenderer(Scene& scene, const RenderSettings& settings, int cameraMotionBlur,
                           ProgressCallback* progress, ThreadManager* threads, int threadCount)
    : services_(scene, settings, cameraMotionBlur) {
    sequence_.services = &services_;
    sequence_.progress = progress;
    sequence_.threadManager = threads;
    sequence_.threadCount = threadCount;
    sequence_.motionBlurOn = settings.motionBlur;
    sequence_.giOn = settings.globalIllumination;
    sequence_.maxRayIntensityOn = settings.maxRayIntensity > 0;
    sequence_.maxTransparencyLevels = settings.maxTransparencyLevels;
    sequence_.imageSamplerType = settings.imageSampler;
}

PluginInterface* HostRenderer::getInterface(InterfaceID id) {
    PluginInterface* const own = services_.find(id);
    return own ? own : TessraRenderer::getInterface(id);
}

void HostRenderer::setFrame(FrameNumber frame, const RenderSettings& settings) {
    frame_.frameNumber = static_cast<int>(frame.whole());
    frame_.t = frame.time();
    const double middle = frame_.t + (settings.motionBlur ? settings.shutterCenter : 0.0f);
    const double half = settings.motionBlur ? settings.shutterInterval * 0.5 : 0.0;
    frame_.frameStart = middle - half;
    frame_.frameEnd = middle + half;
    frame_.zDepthBlack = settings.zDepthBlack;
    frame_.zDepthWhite = settings.zDepthWhite;
    frame_.sceneOffset = settings.sceneOffset;
}

}  // namespace nimbra::host
