// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/light_kinds.h"

#include <cmath>

#include "host/plugin_values.h"

namespace nimbra::host {

using TessUtils::Color;
using TessUtils::LightSample;
using TessUtils::ShadeData;
using TessUtils::TracePoint;
using TessUtils::Vector;

namespace {

HostPluginInfo lightInfo(const char* name, PluginID id, const char* description) {
    return {name, id, HostCategory::Light, description, {TessUtils::ids::kLight}};
}

Color mix(const Color& a, const Color& b, float t) {
    return a * (1 - t) + b * t;
}

}  // namespace

// --- Point ---------------------------------------------------------------------------------------

HostPluginInfo PointLightPlugin::info() {
    return lightInfo("TessraLightPoint", 0x4E425010, "Light from a point or a small ball");
}

void PointLightPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    defineCommonParameters(t);
    t.addParam("position", TessUtils::paramtype_vector, -1, "place of the light");
    t.addParamFloat("radius", 0, -1, "of the ball that shines; 0: a point with sharp shadows",
                    "minValue=(0)");
    t.addParamInt("decay", 2, -1, "fall-off: the colour is that at distance 1",
                  "enum=(0:None;1:Linear;2:Square)");
}

PointLightPlugin::PointLightPlugin(TessUtils::TessraPluginDesc* desc) : LightPlugin(desc) {
    paramList->setParamCache("radius", &radius_);
    paramList->setParamCache("decay", &decay_);
}

void PointLightPlugin::frameBegin(TessUtils::TessraRenderer* renderer) {
    LightPlugin::frameBegin(renderer);
    const TessUtils::TessraFrameData& frame = renderer->getFrameData();
    position_ = toPoint(readVector(*paramList, "position", frame.t, {})) - frame.sceneOffset;
}

bool PointLightPlugin::sample(const ShadeData& data, const float u[2], LightSample& out) const {
    TracePoint place = position_;
    if (radius_ > 0) {
        // A shell of the ball: seen from outside, it shines nearly as its middle would.
        place = place + toPoint(sampleCone(u, -1) * radius_);
    }
    const TracePoint way = place - data.position;
    const double squared = way.x * way.x + way.y * way.y + way.z * way.z;
    const double distance = std::sqrt(squared);
    if (!(distance > 1e-12) || !std::isfinite(distance))
        return false;
    const double fallOff = decay_ == 0 ? 1 : decay_ == 1 ? distance : squared;
    out.direction = toVector(way * (1 / distance));
    out.distance = static_cast<float>(distance);
    out.color = light() * static_cast<float>(1 / fallOff);
    return true;
}

// --- Directional ---------------------------------------------------------------------------------

HostPluginInfo DirectionalLightPlugin::info() {
    return lightInfo("TessraLightDirectional", 0x4E425011, "Light from far away, like the sun's");
}

void DirectionalLightPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    defineCommonParameters(t);
    t.addParam("direction", TessUtils::paramtype_vector, -1,
               "where the light goes; 0 -1 0 if unset");
    t.addParamFloat("angle", 0, -1, "diameter of the light's disc in degrees (the sun's is 0.53)",
                    "minValue=(0), maxValue=(180)");
}

DirectionalLightPlugin::DirectionalLightPlugin(TessUtils::TessraPluginDesc* desc)
    : LightPlugin(desc) {
    paramList->setParamCache("angle", &angle_);
}

void DirectionalLightPlugin::frameBegin(TessUtils::TessraRenderer* renderer) {
    LightPlugin::frameBegin(renderer);
    const double time = renderer->getFrameData().t;
    toLight_ = Basis(-normalize(readVector(*paramList, "direction", time, {0, -1, 0})));
    cosAngle_ = angle_ > 0 ? std::cos(angle_ * kPi / 360) : 1.0f;
}

bool DirectionalLightPlugin::sample(const ShadeData&, const float u[2], LightSample& out) const {
    out.direction =
        isSharp() ? toLight_.normal : normalize(toLight_.toWorld(sampleCone(u, cosAngle_)));
    out.distance = -1;
    out.color = light();
    return true;
}

// --- Sky -----------------------------------------------------------------------------------------

HostPluginInfo SkyLightPlugin::info() {
    return lightInfo("TessraLightSky", 0x4E425012, "Light from all around");
}

void SkyLightPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    defineCommonParameters(t);
    t.addParamBool("gradient", false, -1, "the colour holds for the zenith alone");
    t.addParamColor("horizon_color", {1, 1, 1}, -1, "colour at the horizon",
                    "enable=(::gradient=1)");
    t.addParamColor("ground_color", {0.2f, 0.2f, 0.2f}, -1, "colour from below",
                    "enable=(::gradient=1)");
    t.addParamFloat("horizon_width", 0.5f, -1,
                    "exponent of the height (0 horizon, 1 zenith) in the blend",
                    "minValue=(0.01), maxValue=(10), enable=(::gradient=1)");
    t.addParamBool("visible", false, -1, "seen behind everything");
}

SkyLightPlugin::SkyLightPlugin(TessUtils::TessraPluginDesc* desc) : LightPlugin(desc) {
    paramList->setParamCache("gradient", &gradient_);
    paramList->setParamCache("horizon_color", &horizon_);
    paramList->setParamCache("ground_color", &ground_);
    paramList->setParamCache("horizon_width", &horizonWidth_);
    paramList->setParamCache("visible", &visible_);
}

void SkyLightPlugin::frameBegin(TessUtils::TessraRenderer* renderer) {
    LightPlugin::frameBegin(renderer);
    auto* units = dynamic_cast<TessUtils::SceneUnitsInterface*>(
        renderer->getInterface(TessUtils::ids::kSceneUnits));
    if (units)
        up_ = normalize(units->upDirection());
}

Color SkyLightPlugin::radiance(const Vector& dir) const {
    if (!gradient_)
        return light();
    const float height = dot(dir, up_);
    const float blend = std::pow(std::min(std::fabs(height), 1.0f), horizonWidth_);
    return height >= 0 ? mix(horizon_ * intensity(), light(), blend)
                       : mix(horizon_ * intensity(), ground_ * intensity(), blend);
}

bool SkyLightPlugin::background(const Vector& dir, Color& out) const {
    if (!visible_ || !isEnabled())
        return false;
    out = radiance(dir);
    return true;
}

bool SkyLightPlugin::sample(const ShadeData& data, const float u[2], LightSample& out) const {
    out.distance = -1;
    if (data.flags & TessUtils::kShadeVolumePoint) {
        // All directions count the same; a white volume shows the mean of the sky.
        out.direction = sampleCone(u, -1);
        out.color = radiance(out.direction);
        return true;
    }
    // The density cos / pi against the cosine that the surface brings in: radiance / cos is left.
    const Vector local = sampleCosineHemisphere(u);
    if (!(local.z > 1e-4f))
        return false;
    out.direction = normalize(Basis(data.normal).toWorld(local));
    out.color = radiance(out.direction) * (1 / local.z);
    return true;
}

}  // namespace nimbra::host
