// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Single rays against golden values.
#include "foundation/ramps.h"
#include "support/golden.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using nlohmann::json;
using TessUtils::Color;
using TessUtils::Vector;

Color colorFrom(const json& list) {
    return {list[0].get<float>(), list[1].get<float>(), list[2].get<float>()};
}

Vector vectorFrom(const json& list) {
    return {list[0].get<float>(), list[1].get<float>(), list[2].get<float>()};
}

TessUtils::TracePoint pointFrom(const json& list) {
    return {list[0].get<double>(), list[1].get<double>(), list[2].get<double>()};
}

TessUtils::Transform transformFrom(const json& m) {
    TessUtils::Transform t;
    for (int i = 0; i < 9; ++i)
        t.f[i / 3][i % 3] = m[i].get<float>();
    for (int i = 0; i < 3; ++i)
        t.offs[i] = m[9 + i].get<double>();
    return t;
}

void setRange(LutRange& range, const json& lut) {
    if (lut.contains("range"))
        range = {lut["range"][0].get<float>(), lut["range"][1].get<float>()};
}

void setCurve(NMBUtils::RenderDiagramSamplerStandAlone& curve, const json& points) {
    std::vector<float> xs, ys;
    std::vector<NMBUtils::MultiCurvePointType> types;
    for (const json& point : points) {
        xs.push_back(point[0]);
        ys.push_back(point[1]);
        types.push_back(static_cast<NMBUtils::MultiCurvePointType>(point[2].get<int>()));
    }
    ASSERT_TRUE(curve.setPoints(xs.data(), ys.data(), types.data(), static_cast<int>(xs.size())));
}

void setGradient(NMBUtils::RenderGradientSamplerStandAlone& gradient, const json& from) {
    std::vector<float> positions;
    std::vector<Color> colors;
    for (const json& key : from["keys"]) {
        positions.push_back(key[0]);
        colors.push_back({key[1], key[2], key[3]});
    }
    ASSERT_TRUE(
        gradient.setKeys(positions.data(), colors.data(), static_cast<int>(positions.size())));
    gradient.type = from["type"];
}

void buildTables(TestVolume& volume, const json& luts) {
    if (luts.contains("emission")) {
        const json& from = luts["emission"];
        setRange(volume.luts.eRange, from);
        NMBUtils::RenderDiagramSamplerStandAlone curve;
        NMBUtils::RenderGradientSamplerStandAlone gradient;
        setCurve(curve, from["curve"]["points"]);
        setGradient(gradient, from["gradient"]);
        EmissionTableSettings settings;
        settings.rawIndex = from["raw"];
        settings.blackbodyMode = from["channel"];
        settings.blackbody = from["blackbody"];
        settings.physMult = from["phys_mult"];
        settings.emult = from["emult"];
        settings.tmultFireOpacity = from["tmult_fire"];
        settings.fireOpacityScale = from["fire_scale"];
        settings.fireOpacityMode = volume.params.getInt("fire_opacity_mode");
        volume.luts.buildEmissionTable(curve, gradient, settings);
    }
    if (luts.contains("diffuse")) {
        setRange(volume.luts.dRange, luts["diffuse"]);
        NMBUtils::RenderGradientSamplerStandAlone gradient;
        setGradient(gradient, luts["diffuse"]["gradient"]);
        volume.luts.buildDiffuseTable(gradient, luts["diffuse"]["raw"]);
    }
    if (luts.contains("opacity")) {
        setRange(volume.luts.tRange, luts["opacity"]);
        NMBUtils::RenderDiagramSamplerStandAlone curve;
        setCurve(curve, luts["opacity"]["curve"]["points"]);
        volume.luts.buildOpacityTable(curve, luts["opacity"]["raw"],
                                      volume.params.getInt("transpmode") != 0,
                                      luts["opacity"]["scale"]);
    }
}

void setGizmo(TestVolume& volume, const json& from) {
    std::vector<ShapesGizmo::Shape> shapes;
    for (const json& shape : from["shapes"]) {
        ShapesGizmo::Shape s;
        s.sphere = shape["shape"] == "sphere";
        if (s.sphere) {
            s.center = vectorFrom(shape["center"]);
            s.radius = shape["radius"];
        } else {
            s.low = vectorFrom(shape["min"]);
            s.high = vectorFrom(shape["max"]);
        }
        shapes.push_back(s);
    }
    volume.gizmo = std::make_unique<ShapesGizmo>(shapes);
    const NMBUtils::Matrix34 place =
        NMBUtils::Matrix34::fromTransform(transformFrom(from["world_from_gizmo"]));
    volume.shader.setGizmo(volume.gizmo.get(), place, place);
}

/// Rows that other parts of the library read.
bool isShaderParameter(const std::string& key) {
    return key != "usegizmo";
}

std::unique_ptr<TestVolume> makeVolume(const GoldenCase& golden, const json& from) {
    const json& size = from["size"];
    auto volume = std::make_unique<TestVolume>(size[0], size[1], size[2]);
    for (int i = 0; i < 12; ++i)
        volume->frame.transform[i] = from["transform"][i].get<float>();
    volume->nodeTransform = transformFrom(from["node_transform"]);
    for (const auto& [channel, data] : from["channels"].items()) {
        if (data.contains("const"))
            volume->fill(std::stoi(channel), data["const"].get<float>());
        else
            volume->fill(std::stoi(channel), readNpy<float>(golden.file(data["file"])).values);
    }
    volume->params.set("jitter", 1);
    for (const auto& [key, value] : from["params"].items()) {
        if (key == "simple_color")
            volume->params.simpleColor = colorFrom(value);
        else if (isShaderParameter(key))
            volume->params.set(key, value);
    }
    buildTables(*volume, from["luts"]);
    volume->load();
    for (int i = 0; i < 3; ++i)
        volume->shader.cell_aspect[i] = from["cell_aspect"][i];
    if (from.contains("gizmo"))
        setGizmo(*volume, from["gizmo"]);
    return volume;
}

TestIlluminator::Light lightFrom(const json& from) {
    TestIlluminator::Light light;
    light.color = colorFrom(from["color"]);
    light.directional = from["type"] == "directional";
    if (light.directional) {
        light.toLight = vectorFrom(from["to_light"]);
        light.shadowLength = from["shadow_length"];
    }
    return light;
}

void expectColor(const GoldenCase& golden, const Color& got, const json& expected,
                 const std::string& what) {
    const Tolerance tolerance(golden.json["tolerance"]);
    for (int i = 0; i < 3; ++i)
        expectGolden(golden, tolerance, got[i], expected[i],
                     what + " channel " + std::to_string(i));
}

TEST(MarchGolden, RaysGiveTheExpectedColorAndOpacity) {
    for (const GoldenCase& golden : goldenCases("march")) {
        SCOPED_TRACE(golden.name());
        std::vector<std::unique_ptr<TestVolume>> volumes;
        std::vector<const VolumeShader*> shaders;
        for (const json& from : golden.json["volumes"]) {
            volumes.push_back(makeVolume(golden, from));
            shaders.push_back(&volumes.back()->shader);
        }
        const json& query = golden.json["query"];
        const int from = query["from_volume"];
        const json& expected = golden.json["expected"];
        for (std::size_t i = 0; i < golden.json["rays"].size(); ++i) {
            const json& ray = golden.json["rays"][i];
            ShadeQuery shade;
            shade.rayStart = pointFrom(ray["start"]);
            shade.rayEnd = pointFrom(ray["end"]);
            shade.isGI = query["is_gi"];
            shade.gamma = query["gamma"];
            shade.probabilisticSamples = query["samples"];
            TestIlluminator illuminator;
            illuminator.kind = query["kind"];
            illuminator.bounces = query["bounce_level"];
            illuminator.from = from >= 0 ? shaders[from] : nullptr;
            illuminator.scene = shaders;
            for (const json& light : golden.json["lights"])
                illuminator.lights.push_back(lightFrom(light));
            illuminator.randomNumbers = ray.value("random", std::vector<float>());

            const std::string what = "ray " + std::to_string(i);
            ShadeResult result;
            if (query["color"]) {
                result = shadeOver(colorFrom(query["background"]), shade, shaders, illuminator);
                EXPECT_EQ(result.marched, expected["marched"][i].get<int>()) << what;
                expectColor(golden, result.color, expected["rgb"][i], what + " colour");
            } else {
                result.opacity = shadowOf(shade, shaders, illuminator);
            }
            expectColor(golden, result.opacity, expected["opacity"][i], what + " opacity");
        }
    }
}

}  // namespace
}  // namespace nimbra::test
