// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Single rays against golden values.
#include "support/golden.h"
#include "volume/golden_tables.h"
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

void buildTables(TestVolume& volume, const json& luts) {
    if (luts.contains("emission"))
        buildGoldenEmission(volume.luts, luts["emission"],
                            volume.params.getInt("fire_opacity_mode"));
    if (luts.contains("diffuse"))
        buildGoldenDiffuse(volume.luts, luts["diffuse"]);
    if (luts.contains("opacity"))
        buildGoldenOpacity(volume.luts, luts["opacity"], volume.params.getInt("transpmode") != 0);
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
