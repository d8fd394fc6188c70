// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/picture_output.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>

#include "host/atomic_file.h"
#include "host/camera_plugin.h"
#include "host/light_plugin.h"

namespace nimbra::host {

bool hasBackground(const FinishedFrame& frame) {
    const RenderSettings& settings = frame.settings;
    if (settings.backgroundAlpha > 0 || settings.background.maxComponent() > 0)
        return true;
    for (const LightPlugin* light : frame.scene.pluginsOf<LightPlugin>()) {
        TessUtils::Color ignored;
        if (light->background({0, 1, 0}, ignored))
            return true;
    }
    return false;
}

bool PictureOutput::prepare(const std::vector<FrameNumber>& frames, std::string& error) const {
    std::set<std::string> folders;
    for (const FrameNumber frame : frames)
        for (const std::string& path : options_.paths(frame)) {
            if (!path.ends_with(".exr") && !path.ends_with(".png")) {
                error = path + ": the name must end in .exr or .png";
                return false;
            }
            if (!canBeWritten(path, error))
                return false;
            const std::string folder = std::filesystem::path(path).parent_path().string();
            if (folders.insert(folder).second && !prepareOutputFolder(path, error))
                return false;
        }
    return true;
}

PictureNeeds PictureOutput::needs(FrameNumber frame) const {
    PictureNeeds needs{ChannelDepth::Half, false};
    for (const std::string& path : options_.paths(frame)) {
        if (path.ends_with(".exr"))
            needs.layers = true;
        else
            needs.colors = ChannelDepth::Float;
    }
    return needs;
}

PictureMetadata PictureOutput::metadata(const FinishedFrame& frame) const {
    PictureMetadata m;
    m.framesPerSecond = frame.settings.framesPerSecond;
    auto& values = m.values;
    values["Software"] = "nimbra " + options_.version;
    values["nimbra/version"] = options_.version;
    values["nimbra/scene"] = std::filesystem::path(frame.scene.path()).filename().string();
    if (frame.frame.isWhole())
        values["nimbra/frame"] = static_cast<int>(frame.frame.whole());
    else
        values["nimbra/frame"] = static_cast<float>(frame.frame.time());
    values["nimbra/samples"] = frame.settings.samples;
    values["nimbra/seed"] = static_cast<int>(frame.settings.seed);
    values["nimbra/complete"] = frame.complete ? 1 : 0;
    values["nimbra/warnings"] = frame.warnings;
    if (frame.cacheTimes.size() == 1)
        values["nimbra/cacheTime"] = static_cast<float>(frame.cacheTimes.front());
    else if (!frame.cacheTimes.empty())
        values["nimbra/cacheTime"] = fmt::format("{}", fmt::join(frame.cacheTimes, " "));
    if (!options_.deterministic) {
        values["nimbra/renderSeconds"] = static_cast<float>(frame.statistics.renderSeconds);
        values["nimbra/peakMemory"] =
            static_cast<float>(static_cast<double>(frame.statistics.peakMemory) / (1 << 20));
    }
    const std::vector<CameraPlugin*> cameras = frame.scene.pluginsOf<CameraPlugin>();
    if (cameras.empty())
        return m;
    const auto camera = cameras.front()->makeCamera(frame.frame.time(), frame.settings.width,
                                                    frame.settings.height, {}, frame.settings.up);
    m.pixelAspect = cameras.front()->pixelAspect();
    values["worldToCamera"] = camera->worldToCamera();
    Matrix44 toNDC;
    if (camera->worldToNDC(toNDC))
        values["worldToNDC"] = toNDC;
    return m;
}

bool PictureOutput::write(const FinishedFrame& frame, std::string& error) {
    for (const std::string& path : options_.paths(frame.frame)) {
        if (path.ends_with(".exr")) {
            if (!writeExr(path, frame.pixels, metadata(frame), error))
                return false;
            continue;
        }
        PngOptions png;
        png.alpha = hasBackground(frame) ? PngAlpha::Opaque : PngAlpha::Keep;
        png.filmic = options_.filmic;
        png.exposure = options_.exposure;
        if (!writePng(path, frame.pixels, png, error))
            return false;
    }
    return true;
}

}  // namespace nimbra::host
