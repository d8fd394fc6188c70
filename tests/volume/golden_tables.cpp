// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/golden_tables.h"

#include <vector>

#include "foundation/ramps.h"

namespace nimbra::test {
namespace {

using nlohmann::json;
using NMBUtils::RenderDiagramSamplerStandAlone;
using NMBUtils::RenderGradientSamplerStandAlone;

void setRange(LutRange& range, const json& from) {
    if (from.contains("range"))
        range = {from["range"][0].get<float>(), from["range"][1].get<float>()};
}

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

void buildGoldenEmission(NimbraVolumeRenderLUTholder& luts, const json& from, int fireOpacityMode) {
    setRange(luts.eRange, from);
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
    setRange(luts.dRange, from);
    RenderGradientSamplerStandAlone gradient;
    setGradient(gradient, from["gradient"]);
    luts.buildDiffuseTable(gradient, from["raw"]);
}

void buildGoldenOpacity(NimbraVolumeRenderLUTholder& luts, const json& from, bool invert) {
    setRange(luts.tRange, from);
    RenderDiagramSamplerStandAlone curve;
    setCurve(curve, from["curve"]);
    luts.buildOpacityTable(curve, from["raw"], invert, from["scale"]);
}

}  // namespace nimbra::test
