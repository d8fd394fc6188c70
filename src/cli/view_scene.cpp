// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/view_scene.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;
using Point = std::array<double, 3>;

constexpr double kFov = 36;       // horizontal, degrees
constexpr double kMargin = 1.08;  // free space around the subject
constexpr double kDegree = 3.14159265358979323846 / 180;

/// Axes of the view of a box: `up` is the scene's, the others span the ground.
struct Frame {
    Point right, up, front;
};

Frame frameOf(int upAxis) {
    Frame f{};
    f.up[upAxis] = 1;
    f.right[(upAxis + 1) % 3] = 1;
    f.front[(upAxis + 2) % 3] = 1;
    return f;
}

Point combine(const Frame& f, double right, double up, double front) {
    Point p{};
    for (int i = 0; i < 3; ++i)
        p[i] = f.right[i] * right + f.up[i] * up + f.front[i] * front;
    return p;
}

double dot(const Point& a, const Point& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Point cross(const Point& a, const Point& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Point normalized(const Point& a) {
    const double l = std::sqrt(dot(a, a));
    return {a[0] / l, a[1] / l, a[2] / l};
}

Point centre(const ViewLook& look) {
    Point c{};
    for (int i = 0; i < 3; ++i)
        c[i] = (look.boxLow[i] + look.boxHigh[i]) / 2;
    return c;
}

double largestSide(const ViewLook& look) {
    double side = 0;
    for (int i = 0; i < 3; ++i)
        side = std::max(side, look.boxHigh[i] - look.boxLow[i]);
    return std::max(side, 1e-6);
}

struct Camera {
    Point position, target;
};

// Far enough back that all corners of the box are in view.
Camera placeCamera(const ViewScene& s) {
    const Frame frame = frameOf(s.look.upAxis);
    const double a = s.azimuth * kDegree, e = s.elevation * kDegree;
    const Point back =
        combine(frame, std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e));
    const Point right = normalized(cross(frame.up, back)), up = cross(back, right);
    const double tanX = std::tan(kFov * kDegree / 2), tanY = tanX * s.height / s.width;
    const Point target = centre(s.look);
    double distance = 0;
    for (int corner = 0; corner < 8; ++corner) {
        Point d{};
        for (int i = 0; i < 3; ++i)
            d[i] = ((corner >> i & 1) ? s.look.boxHigh[i] : s.look.boxLow[i]) - target[i];
        const double toward = dot(d, back);
        distance = std::max({distance, toward + kMargin * std::fabs(dot(d, right)) / tanX,
                             toward + kMargin * std::fabs(dot(d, up)) / tanY});
    }
    Camera camera{target, target};
    for (int i = 0; i < 3; ++i)
        camera.position[i] += back[i] * distance;
    return camera;
}

double rounded(double v, double scale) {
    const double unit = std::pow(10.0, std::floor(std::log10(scale)) - 4);
    return std::round(v / unit) * unit;
}

Json pointJson(const Point& p, double scale) {
    Json out = Json::array();
    for (const double v : p)
        out.push_back(Json::parse(fmt::format("{:.7g}", rounded(v, scale))));
    return out;
}

// A solid throws back far more light than smoke lets out.
bool isSolid(const ViewLook& look) {
    return look.subject == Subject::LevelSet;
}

Json settingsJson(const ViewScene& s) {
    Json out{{"plugin", "TessraSettings"}, {"width", s.width},
             {"height", s.height},         {"samples", 8},
             {"up_axis", s.look.upAxis},   {"first_frame", s.firstFrame},
             {"last_frame", s.lastFrame}};
    const bool dark = s.look.hasFire();
    out["background"] = dark ? Json::array({0.012, 0.014, 0.018}) : Json::array({0.1, 0.13, 0.17});
    out["background_alpha"] = 1;
    return out;
}

Json cacheJson(const ViewScene& s) {
    Json out{
        {"plugin", "NmbShaderCache"}, {"cache_path", s.cachePath}, {"usrchmap", s.look.mapping}};
    if (s.time.speed)
        out["play_speed"] = Json::parse(fmt::format("{}", *s.time.speed));
    if (s.time.offset)
        out["read_offset"] = *s.time.offset;
    if (s.time.blend)
        out["blend_method"] = *s.time.blend;
    return out;
}

Json cameraJson(const ViewScene& s) {
    const Camera camera = placeCamera(s);
    const double scale = largestSide(s.look);
    return {{"plugin", "TessraCamera"},
            {"position", pointJson(camera.position, scale)},
            {"target", pointJson(camera.target, scale)},
            {"fov", kFov}};
}

Json containerJson(const ViewLook& look) {
    Json out{{"plugin", "NmbShaderSim"}, {"cache", "@cache"}, {"renderAsVolumetric", true}};
    for (const auto& [name, value] : look.settings)
        out[name] = Json::parse(value);
    out["rendstep"] = 60;
    out["rendshadstep"] = 150;
    return out;
}

// The key light comes from the camera's left and above, so that shapes read.
Json keyJson(const ViewScene& s) {
    const double a = (s.azimuth - 65) * kDegree, e = 40 * kDegree;
    const Point from = combine(frameOf(s.look.upAxis), std::sin(a) * std::cos(e), std::sin(e),
                               std::cos(a) * std::cos(e));
    const Point direction{-from[0], -from[1], -from[2]};
    return {{"plugin", "TessraLightDirectional"},
            {"direction", pointJson(direction, 1)},
            {"color",
             s.look.hasFire() ? Json::array({0.75, 0.85, 1.0}) : Json::array({1.0, 0.95, 0.88})},
            {"intensity", s.look.hasFire()  ? 0.35
                          : isSolid(s.look) ? 0.75
                                            : 2.2}};
}

Json skyJson(const ViewScene& s) {
    const bool dark = s.look.hasFire();
    return {{"plugin", "TessraLightSky"},
            {"color", dark ? Json::array({0.5, 0.6, 0.8}) : Json::array({0.65, 0.8, 1.0})},
            {"intensity", dark              ? 0.06
                          : isSolid(s.look) ? 0.25
                                            : 0.35},
            {"samples", 4}};
}

// Fire shines on its own smoke.
Json glowJson(const ViewLook& look) {
    Point middle{};
    double size = 0;
    for (int i = 0; i < 3; ++i) {
        middle[i] = (look.fireLow[i] + look.fireHigh[i]) / 2;
        size = std::max(size, look.fireHigh[i] - look.fireLow[i]);
    }
    return {{"plugin", "TessraLightPoint"},
            {"position", pointJson(middle, size)},
            {"color", Json::array({1.0, 0.45, 0.12})},
            {"intensity", Json::parse(fmt::format("{:.4g}", 0.35 * size * size))}};
}

Json groundJson(const ViewLook& look) {
    const Frame f = frameOf(look.upAxis);
    const double side = 200 * largestSide(look);
    Point place = centre(look);
    for (int i = 0; i < 3; ++i)
        place[i] += f.up[i] * (look.boxLow[look.upAxis] - place[look.upAxis]);
    // The plane's own axes: x and z lie in it, y points up.
    Json transform = Json::array();
    for (const Point& row : {f.front, f.up, f.right, place})
        transform.push_back(row);
    return {{"plugin", "TessraMesh"},
            {"shape", "Plane"},
            {"material", "@floor"},
            {"size", Json::array({side, side, side})},
            {"transform", transform}};
}

}  // namespace

std::string sceneText(const ViewScene& s) {
    Json scene;
    scene["nimbra"] = 1;
    scene["settings"] = settingsJson(s);
    scene["camera"] = cameraJson(s);
    scene["cache"] = cacheJson(s);
    scene["container"] = containerJson(s.look);
    scene["volumes"] = {{"plugin", "NmbShaderSimVol"}};
    scene["key"] = keyJson(s);
    scene["sky"] = skyJson(s);
    if (s.look.hasFire())
        scene["glow"] = glowJson(s.look);
    if (s.ground) {
        scene["floor"] = {{"plugin", "TessraMaterial"}, {"diffuse", {0.22, 0.22, 0.22, 1.0}}};
        scene["ground"] = groundJson(s.look);
    }
    return scene.dump(2) + "\n";
}

}  // namespace nimbra::cli
