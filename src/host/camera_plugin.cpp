// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/camera_plugin.h"

#include "host/plugin_values.h"

namespace nimbra::host {

using TessUtils::TracePoint;
using TessUtils::Vector;

HostPluginInfo CameraPlugin::info() {
    return {"TessraCamera",
            0x4E425001,
            HostCategory::Camera,
            "Perspective or orthographic camera with depth of field",
            {kHostCamera}};
}

void CameraPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    t.addParamInt("type", 0, -1, "projection", "enum=(0:Perspective;1:Orthographic)");
    t.addParam("position", TessUtils::paramtype_vector, -1, "place of the camera; 0 0 10 if unset");
    t.addParam("target", TessUtils::paramtype_vector, -1,
               "point that the camera looks at; the origin if unset");
    t.addParam("up", TessUtils::paramtype_vector, -1,
               "direction that shows upwards; that of the scene if unset");
    t.addParamTransform("transform", true, {}, -1,
                        "place and axes (right, up, backwards) in place of position and target");
    t.addParamFloat("fov", 45, -1, "horizontal angle of view in degrees",
                    "minValue=(0.01), maxValue=(179)");
    t.addParamFloat("film_width", 10, -1, "width of the orthographic view in scene units",
                    "minValue=(1e-6)");
    t.addParamFloat("near", 0, -1, "distance at which things begin to be seen", "minValue=(0)");
    t.addParamFloat("far", 1e18f, -1, "distance at which things end to be seen", "minValue=(0)");
    t.addParamFloat("lens_radius", 0, -1,
                    "radius of the lens in scene units; above 0 the picture has a depth of field",
                    "minValue=(0)");
    t.addParamFloat("focus_distance", 10, -1, "distance along the view that is in focus",
                    "minValue=(1e-6)");
    t.addParamInt("motion_blur", -1, -1,
                  "blur by the camera's own motion; On opens the shutter whatever the settings say",
                  "enum=(-1:As in the settings;0:Off;1:On)");
    t.addParamFloat("pixel_aspect", 1, -1, "width of a pixel over its height", "minValue=(0.01)");
}

CameraPlugin::CameraPlugin(TessUtils::TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("type", &type_);
    paramList->setParamCache("fov", &fov_);
    paramList->setParamCache("film_width", &filmWidth_);
    paramList->setParamCache("near", &near_);
    paramList->setParamCache("far", &far_);
    paramList->setParamCache("lens_radius", &lensRadius_);
    paramList->setParamCache("focus_distance", &focusDistance_);
    paramList->setParamCache("motion_blur", &motionBlur_);
    paramList->setParamCache("pixel_aspect", &pixelAspect_);
}

CameraPlacement CameraPlugin::placement(double time, const Vector& sceneUp) const {
    if (paramList->getParam("transform"))
        return CameraPlacement::fromTransform(readTransform(*paramList, "transform", time));
    return CameraPlacement::lookAt(toPoint(readVector(*paramList, "position", time, {0, 0, 10})),
                                   toPoint(readVector(*paramList, "target", time, {0, 0, 0})),
                                   readVector(*paramList, "up", time, sceneUp));
}

std::unique_ptr<CameraModel> CameraPlugin::makeCamera(double time, int width, int height,
                                                      const TracePoint& sceneOffset,
                                                      const Vector& sceneUp) {
    paramList->cacheParams(time);
    ProjectionSettings s;
    s.placement = placement(time, sceneUp);
    s.placement.position = s.placement.position - sceneOffset;
    s.width = width;
    s.height = height;
    s.pixelAspect = pixelAspect_;
    s.nearClip = near_;
    s.farClip = far_;
    s.lensRadius = lensRadius_;
    s.focusDistance = focusDistance_;
    return type_ == static_cast<int>(CameraType::Orthographic)
               ? newOrthographicCamera(s, filmWidth_)
               : newPinholeCamera(s, fov_);
}

}  // namespace nimbra::host
