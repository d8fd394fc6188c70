// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/test_scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <stdexcept>

#include "foundation/ramps.h"

namespace nimbra::test {

using TessUtils::Color;
using TessUtils::TracePoint;
using TessUtils::Vector;

TestParams::TestParams() {
    std::istringstream rows(
        "lightcache 1  pmbounces 1  pmprimary 0  heathaze 0  hhfactor 1  geommode 0  "
        "rendsolid 0  jitter 1  invgizmo 0  bounces 10  rendstep 90  rendshadstep 200  "
        "softb 0  displmul 1  fadebylevel 1  displfade 20  fadebyvel 0  displvelfade 20  "
        "usefadeobj 0  displgeomfade 20  surflevel 0.1  difmul 1  transfext 1  transfown 1  "
        "shad_strength 1  subred 0  sampler 1  smoketransp 0.5  stoptransp 0.999  "
        "skiptransp 0.001  play_speed 1  bias 1  noscatter 3  brdfscatter 1  al_enable 1  "
        "selfshadow 2  gridreduct 5  self_illum_map_min_pow 0.1  al_decay 2  mbgrid 0  "
        "mbsmooth 3  optvolpass 1  transpmode 1  fire_opacity_mode 0  volnorm 0  volzdepth 0  "
        "displ2d 1  displacement 0  earg 1  darg 5  targ 0  sarg 2  mod_e 0  mod_d 0  "
        "mod_t 0  solidbelow 0  wrapx 0  wrapy 0  wrapz 0  ");
    std::string key;
    for (double value; rows >> key >> value;)
        numbers[key] = value;
}

Color TestParams::getColor(const char* key) const {
    EXPECT_STREQ(key, "simple_color");
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

ShadeResult TestVolume::shade(const ShadeQuery& ray, Illuminator& illuminator) const {
    return shadeOver({}, ray, {&shader}, illuminator);
}

Color TestVolume::shadow(const ShadeQuery& ray, Illuminator& illuminator) const {
    return shadowOf(ray, {&shader}, illuminator);
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
bool crossShape(const ShapesGizmo::Shape& shape, const Vector& origin, const Vector& dir,
                double span[2]) {
    // In the space where the shape reaches from -1 to 1.
    double a = 0, b = 0, c = -1;
    double enter = -1e30, leave = 1e30;
    for (int axis = 0; axis < 3; ++axis) {
        const double half = (double(shape.high[axis]) - shape.low[axis]) / 2;
        const double o = (origin[axis] - shape.low[axis]) / half - 1, d = dir[axis] / half;
        a += d * d;
        b += o * d;
        c += o * o;
        enter = std::fmax(enter, std::fmin((-1 - o) / d, (1 - o) / d));
        leave = std::fmin(leave, std::fmax((-1 - o) / d, (1 - o) / d));
    }
    const double root = std::sqrt(b * b - a * c);
    span[0] = shape.sphere ? (-b - root) / a : enter;
    span[1] = shape.sphere ? (-b + root) / a : leave;
    return span[0] < span[1];
}

}  // namespace

bool ShapesGizmo::firstHit(const Vector& origin, const Vector& dir, float mint, float maxt,
                           GizmoHit& hit) const {
    hit.distance = maxt;
    bool found = false;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        double span[2];
        if (!crossShape(shapes[i], origin, dir, span))
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

namespace {

using nlohmann::json;
using NMBUtils::RenderDiagramSamplerStandAlone;
using NMBUtils::RenderGradientSamplerStandAlone;

void setCurve(RenderDiagramSamplerStandAlone& curve, const json& from) {
    std::vector<float> xs, ys;
    std::vector<NMBUtils::MultiCurvePointType> types;
    for (const json& point : from["points"]) {
        xs.push_back(point[0]);
        ys.push_back(point[1]);
        types.push_back(static_cast<NMBUtils::MultiCurvePointType>(point[2].get<int>()));
    }
    ASSERT_TRUE(curve.setPoints(xs.data(), ys.data(), types.data(), static_cast<int>(xs.size())));
}

void setGradient(RenderGradientSamplerStandAlone& gradient, const json& from) {
    std::vector<float> positions;
    std::vector<TessUtils::Color> colors;
    for (const json& key : from["keys"]) {
        positions.push_back(key[0]);
        colors.push_back({key[1], key[2], key[3]});
    }
    gradient.type = from["type"];
    ASSERT_TRUE(
        gradient.setKeys(positions.data(), colors.data(), static_cast<int>(positions.size())));
}

}  // namespace

void setGoldenRange(LutRange& range, const json& from, const char* key) {
    if (from.contains(key))
        range = {from[key][0].get<float>(), from[key][1].get<float>()};
}

void buildGoldenEmission(NimbraVolumeRenderLUTholder& luts, const json& from, int fireOpacityMode) {
    setGoldenRange(luts.eRange, from);
    EmissionTableSettings settings;
    settings.rawIndex = from["raw"];
    settings.blackbodyMode = from["channel"];
    settings.blackbody = from["blackbody"];
    settings.physMult = from["phys_mult"];
    settings.emult = from["emult"];
    settings.tmultFireOpacity = from["tmult_fire"];
    settings.fireOpacityScale = from["fire_scale"];
    settings.fireOpacityMode = fireOpacityMode;
    RenderDiagramSamplerStandAlone curve;
    RenderGradientSamplerStandAlone gradient;
    setCurve(curve, from["curve"]);
    setGradient(gradient, from["gradient"]);
    luts.buildEmissionTable(curve, gradient, settings);
}

void buildGoldenDiffuse(NimbraVolumeRenderLUTholder& luts, const json& from) {
    setGoldenRange(luts.dRange, from);
    RenderGradientSamplerStandAlone gradient;
    setGradient(gradient, from["gradient"]);
    luts.buildDiffuseTable(gradient, from["raw"]);
}

void buildGoldenOpacity(NimbraVolumeRenderLUTholder& luts, const json& from, bool invert) {
    setGoldenRange(luts.tRange, from);
    RenderDiagramSamplerStandAlone curve;
    setCurve(curve, from["curve"]);
    luts.buildOpacityTable(curve, from["raw"], invert, from["scale"]);
}

}  // namespace nimbra::test
