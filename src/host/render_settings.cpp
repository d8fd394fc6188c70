// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/render_settings.h"

#include "host/parameter_view.h"

namespace nimbra::host {

using namespace TessUtils;

HostPluginInfo SettingsPlugin::info() {
    return {
        "TessraSettings",
        2026010101,
        HostCategory::Settings,
        "How the scene is rendered: size, frames, sampling, motion blur, units. At most one in a "
        "scene.",
        {kHostSettings}};
}

namespace {

void addPictureRows(TessraParameterListDesc& table, const RenderSettings& d) {
    table.addParamInt("width", d.width, -1, "Width of the picture in pixels",
                      "minValue=(1), maxValue=(65536)");
    table.addParamInt("height", d.height, -1, "Height of the picture in pixels",
                      "minValue=(1), maxValue=(65536)");
    table.addParamColor("background", d.background, -1, "What rays see that leave the scene");
    table.addParamFloat("background_alpha", d.backgroundAlpha, -1,
                        "Alpha of the background: 0 leaves it transparent",
                        "minValue=(0), maxValue=(1)");
    table.addParamFloat("z_depth_black", d.zDepthBlack, -1, "Distance that depth layers show as 0");
    table.addParamFloat("z_depth_white", d.zDepthWhite, -1, "Distance that depth layers show as 1");
}

void addFrameRows(TessraParameterListDesc& table, const RenderSettings& d) {
    table.addParamInt("first_frame", d.firstFrame, -1, "First frame of the scene");
    table.addParamInt("last_frame", d.lastFrame, -1, "Last frame of the scene");
    table.addParamInt("frame_step", d.frameStep, -1, "Every how many frames one is rendered",
                      "minValue=(1)");
    table.addParamFloat("fps", d.framesPerSecond, -1, "Frames in one second",
                        "minValue=(0.001), maxValue=(100000)");
    table.addParamBool("motion_blur", d.motionBlur, -1,
                       "Blur what moves while the shutter is open");
    table.addParamFloat("shutter_interval", d.shutterInterval, -1,
                        "How long the shutter is open, in frames", "minValue=(0), maxValue=(100)");
    table.addParamFloat("shutter_center", d.shutterCenter, -1,
                        "Middle of the open time, in frames from the frame's own time",
                        "minValue=(-100), maxValue=(100)");
}

void addSamplingRows(TessraParameterListDesc& table, const RenderSettings& d) {
    table.addParamInt("samples", d.samples, -1, "Camera rays for each pixel",
                      "minValue=(1), maxValue=(1048576)");
    table.addParamInt("seed", static_cast<int>(d.seed), -1,
                      "Another seed gives the same picture with other noise");
    table.addParamInt("pixel_filter", static_cast<int>(d.pixelFilter), -1,
                      "How the samples of a pixel are spread",
                      "enum=(0:Box;1:Triangle;2:Gaussian)");
    table.addParamFloat("filter_width", d.filterWidth, -1,
                        "Full width of the pixel filter in pixels", "minValue=(0), maxValue=(64)");
    table.addParamInt("threads", d.threads, -1,
                      "Render threads, 0 for all processors that may be used",
                      "minValue=(0), maxValue=(64)");
    table.addParamInt("tile_size", d.tileSize, -1,
                      "Edge of the tiles that threads work on, in pixels",
                      "minValue=(1), maxValue=(4096)");
    table.addParamInt("image_sampler", d.imageSampler, -1,
                      "What plug-ins are told of the image sampler",
                      "enum=(0:Fixed;3:Progressive)");
    table.addParamInt("probabilistic_samples", d.probabilisticSamples, -1,
                      "Random samples that volumes take along a camera ray; 0 marches them whole",
                      "minValue=(0), maxValue=(65536)");
    table.addParamInt("probabilistic_samples_gi", d.probabilisticSamplesGI, -1,
                      "The same along rays of indirect light", "minValue=(0), maxValue=(65536)");
}

void addLightRows(TessraParameterListDesc& table, const RenderSettings& d) {
    table.addParamBool("gi", d.globalIllumination, -1,
                       "Trace light that surfaces and volumes pass on");
    table.addParamInt("gi_bounces", d.giBounces, -1, "Most diffuse bounces of indirect light",
                      "minValue=(0), maxValue=(64)");
    table.addParamInt("ray_depth", d.rayDepth, -1, "Most bounces of any kind",
                      "minValue=(0), maxValue=(256)");
    table.addParamInt("max_transparency_levels", d.maxTransparencyLevels, -1,
                      "Most transparent surfaces that one ray passes",
                      "minValue=(1), maxValue=(10000)");
    table.addParamFloat("max_ray_intensity", d.maxRayIntensity, -1,
                        "Brightest that one camera ray may be, 0 for no limit", "minValue=(0)");
    table.addParamFloat("black_body_white", d.blackBodyWhite, -1,
                        "Luminance of a black body, in cd/m2, that the picture shows as 1",
                        "minValue=(1e-6)");
}

void addSpaceRows(TessraParameterListDesc& table, const RenderSettings& d) {
    table.addParamInt("up_axis", 1, -1, "Which axis points up", "enum=(0:x;1:y;2:z)");
    table.addParamFloat("meters_per_unit", d.metersPerUnit, -1,
                        "Length of one scene unit in metres", "minValue=(1e-12)");
    table.addParam("scene_offset", paramtype_vector, -1,
                   "Subtracted from all positions, for scenes far from the origin");
}

}  // namespace

void SettingsPlugin::defineParameters(TessraParameterListDesc& table) {
    const RenderSettings defaults;
    addPictureRows(table, defaults);
    addFrameRows(table, defaults);
    addSamplingRows(table, defaults);
    addLightRows(table, defaults);
    addSpaceRows(table, defaults);
}

SettingsPlugin::SettingsPlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {}

RenderSettings SettingsPlugin::read(double time) {
    const ParameterView p(*this, time);
    RenderSettings s;
    s.width = p.getInt("width");
    s.height = p.getInt("height");
    s.background = p.getColor("background");
    s.backgroundAlpha = p.getFloat("background_alpha");
    s.zDepthBlack = p.getFloat("z_depth_black");
    s.zDepthWhite = p.getFloat("z_depth_white");

    s.firstFrame = p.getInt("first_frame");
    // A scene that names its first frame alone has one frame.
    s.lastFrame = getParameter("last_frame") ? p.getInt("last_frame") : s.firstFrame;
    s.frameStep = p.getInt("frame_step");
    s.framesPerSecond = p.getFloat("fps");
    s.motionBlur = p.getBool("motion_blur");
    s.shutterInterval = p.getFloat("shutter_interval");
    s.shutterCenter = p.getFloat("shutter_center");

    s.samples = p.getInt("samples");
    s.seed = static_cast<std::uint32_t>(p.getInt("seed"));
    s.pixelFilter = static_cast<PixelFilter>(p.getInt("pixel_filter"));
    s.filterWidth = p.getFloat("filter_width");
    s.threads = p.getInt("threads");
    s.tileSize = p.getInt("tile_size");
    s.imageSampler = p.getInt("image_sampler");
    s.probabilisticSamples = p.getInt("probabilistic_samples");
    s.probabilisticSamplesGI = p.getInt("probabilistic_samples_gi");

    s.globalIllumination = p.getBool("gi");
    s.giBounces = p.getInt("gi_bounces");
    s.rayDepth = p.getInt("ray_depth");
    s.maxTransparencyLevels = p.getInt("max_transparency_levels");
    s.maxRayIntensity = p.getFloat("max_ray_intensity");
    s.blackBodyWhite = p.getFloat("black_body_white");

    const int up = p.getInt("up_axis");
    s.up = {up == 0 ? 1.0f : 0.0f, up == 1 ? 1.0f : 0.0f, up == 2 ? 1.0f : 0.0f};
    s.metersPerUnit = p.getFloat("meters_per_unit");
    s.sceneOffset = toPoint(p.getVector("scene_offset"));
    return s;
}

}  // namespace nimbra::host
