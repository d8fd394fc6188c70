// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/test_scene.h"

#include <cmath>
#include <stdexcept>

namespace nimbra::test {

using TessUtils::Color;
using TessUtils::TracePoint;
using TessUtils::Vector;

TestParams::TestParams()
    : numbers{{"lightcache", 1},     {"pmbounces", 1},
              {"pmprimary", 0},      {"heathaze", 0},
              {"hhfactor", 1},       {"geommode", 0},
              {"rendsolid", 0},      {"jitter", 1},
              {"invgizmo", 0},       {"bounces", 10},
              {"rendstep", 90},      {"rendshadstep", 200},
              {"softb", 0},          {"displmul", 1},
              {"fadebylevel", 1},    {"displfade", 20},
              {"fadebyvel", 0},      {"displvelfade", 20},
              {"usefadeobj", 0},     {"displgeomfade", 20},
              {"surflevel", 0.1},    {"difmul", 1},
              {"transfext", 1},      {"transfown", 1},
              {"shad_strength", 1},  {"subred", 0},
              {"sampler", 1},        {"smoketransp", 0.5},
              {"stoptransp", 0.999}, {"skiptransp", 0.001},
              {"play_speed", 1},     {"bias", 1},
              {"noscatter", 3},      {"brdfscatter", 1},
              {"al_enable", 1},      {"selfshadow", 2},
              {"gridreduct", 5},     {"self_illum_map_min_pow", 0.1},
              {"al_decay", 2},       {"mbgrid", 0},
              {"mbsmooth", 3},       {"optvolpass", 1},
              {"transpmode", 1},     {"fire_opacity_mode", 0},
              {"volnorm", 0},        {"volzdepth", 0},
              {"displ2d", 1},        {"displacement", 0},
              {"earg", 1},           {"darg", 5},
              {"targ", 0},           {"sarg", 2},
              {"mod_e", 0},          {"mod_d", 0},
              {"mod_t", 0},          {"solidbelow", 0},
              {"wrapx", 0},          {"wrapy", 0},
              {"wrapz", 0}} {}

double TestParams::number(const char* key) const {
    const auto found = numbers.find(key);
    if (found == numbers.end())
        throw std::out_of_range(std::string("no such parameter: ") + key);
    return found->second;
}

Color TestParams::getColor(const char* key) const {
    if (std::string(key) != "simple_color")
        throw std::out_of_range(std::string("no such colour: ") + key);
    return simpleColor;
}

TestVolume::TestVolume(int nx, int ny, int nz) {
    frame.gridSize[0] = nx;
    frame.gridSize[1] = ny;
    frame.gridSize[2] = nz;
    params.set("jitter", 0);
}

void TestVolume::fill(int channel, float value) {
    fill(channel, [value](int, int, int) { return value; });
}

void TestVolume::fill(int channel, const std::function<float(int, int, int)>& value) {
    std::vector<float> values;
    for (int z = 0; z < frame.gridSize[2]; ++z)
        for (int y = 0; y < frame.gridSize[1]; ++y)
            for (int x = 0; x < frame.gridSize[0]; ++x)
                values.push_back(value(x, y, z));
    fill(channel, values);
}

void TestVolume::fill(int channel, const std::vector<float>& values) {
    GridChannelProxy<float>& proxy = frame.channels[channel];
    if (!proxy.allocate(frame.gridSize) ||
        proxy.storage->cells != static_cast<std::int64_t>(values.size()))
        throw std::runtime_error("the channel has another size than the grid");
    std::copy(values.begin(), values.end(), proxy.denseVoxels());
}

void TestVolume::load() {
    GridTransforms transforms;
    transforms.set(NMBUtils::Matrix34::fromFloats(frame.transform), nodeTransform);
    readVolumeSettings(shader, {params, &frame, luts, transforms});
}

float TestIlluminator::random() {
    if (nextRandom < randomNumbers.size())
        return randomNumbers[nextRandom++];
    state = state * 0x41C64E6Du + 0x3039u;
    return static_cast<float>(state >> 8) * 0x1p-24f;
}

void TestIlluminator::selectShader(const VolumeShader& selected) {
    currentShader = &selected;
    kind = (kind & ~kKindOwnShader) | (&selected == from ? kKindOwnShader : 0u);
}

Color TestIlluminator::lightAt(const Light& light, const Vector& pos) {
    if (!light.directional)
        return light.color;
    ShadeQuery query;
    query.rayStart = currentShader->worldFromGrid[0].applyPoint(TessUtils::toPoint(pos));
    query.rayEnd =
        query.rayStart + TessUtils::toPoint(normalize(light.toLight)) * light.shadowLength;
    TestIlluminator shadow;
    shadow.from = currentShader;
    return light.color * (Color{1, 1, 1} - shadowOf(query, scene, shadow));
}

void TestIlluminator::illuminate(Color& out, const Vector& pos, const Color& diffuse,
                                 LightSelectRecord*) {
    ++illuminations;
    out = {};
    for (const Light& light : lights)
        out += lightAt(light, pos);
    out *= diffuse;
}

ShadeResult shadeOver(const Color& background, ShadeQuery query,
                      const std::vector<const VolumeShader*>& shaders, Illuminator& illuminator) {
    query.shaders = shaders.data();
    query.count = static_cast<int>(shaders.size());
    ShadeResult result;
    result.color = background;
    result.marched = Shade(query, illuminator, &result.color, result.opacity);
    return result;
}

Color shadowOf(ShadeQuery query, const std::vector<const VolumeShader*>& shaders,
               Illuminator& illuminator) {
    query.shaders = shaders.data();
    query.count = static_cast<int>(shaders.size());
    Color opacity;
    Shade(query, illuminator, nullptr, opacity);
    return opacity;
}

ShadeQuery rayAlongX(double y, double z, double from, double to) {
    ShadeQuery query;
    query.rayStart = {from, y, z};
    query.rayEnd = {to, y, z};
    return query;
}

namespace {

/// Parameters at which a ray enters and leaves a shape; false if it misses.
bool crossSphere(const ShapesGizmo::Shape& shape, const Vector& origin, const Vector& dir,
                 double span[2]) {
    const TracePoint o = TessUtils::toPoint(origin) - TessUtils::toPoint(shape.center);
    const double a = dot(dir, dir);
    const double b = o.x * dir.x + o.y * dir.y + o.z * dir.z;
    const double c = o.x * o.x + o.y * o.y + o.z * o.z - double(shape.radius) * shape.radius;
    const double root = b * b - a * c;
    if (root < 0)
        return false;
    span[0] = (-b - std::sqrt(root)) / a;
    span[1] = (-b + std::sqrt(root)) / a;
    return true;
}

bool crossBox(const ShapesGizmo::Shape& shape, const Vector& origin, const Vector& dir,
              double span[2]) {
    span[0] = -1e30;
    span[1] = 1e30;
    for (int axis = 0; axis < 3; ++axis) {
        const double inverse = 1.0 / dir[axis];
        const double a = (shape.low[axis] - origin[axis]) * inverse;
        const double b = (shape.high[axis] - origin[axis]) * inverse;
        span[0] = std::fmax(span[0], std::fmin(a, b));
        span[1] = std::fmin(span[1], std::fmax(a, b));
    }
    return span[0] < span[1];
}

}  // namespace

bool ShapesGizmo::firstHit(const Vector& origin, const Vector& dir, float mint, float maxt,
                           GizmoHit& hit) const {
    hit.distance = maxt;
    bool found = false;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        double span[2];
        const Shape& shape = shapes[i];
        if (!(shape.sphere ? crossSphere(shape, origin, dir, span)
                           : crossBox(shape, origin, dir, span)))
            continue;
        for (int end = 0; end < 2; ++end) {
            const float distance = static_cast<float>(span[end]);
            if (distance > mint && distance < hit.distance) {
                hit = {distance, end == 0 ? 1 : 2, static_cast<int>(i)};
                found = true;
            }
        }
    }
    return found;
}

}  // namespace nimbra::test
