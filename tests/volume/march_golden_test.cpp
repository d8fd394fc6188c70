// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Single rays against golden values.
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using nlohmann::json;
using TessUtils::Color;
using TessUtils::Vector;

/// A Color, Vector or TracePoint of its three numbers.
template <class T>
T tripleFrom(const json& list) {
    return {list[0], list[1], list[2]};
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
        if (shape["shape"] == "sphere") {
            const float r = shape["radius"];
            const Vector center = tripleFrom<Vector>(shape["center"]), reach{r, r, r};
            shapes.push_back({true, center - reach, center + reach});
        } else {
            shapes.push_back(
                {false, tripleFrom<Vector>(shape["min"]), tripleFrom<Vector>(shape["max"])});
        }
    }
    volume.gizmo = std::make_unique<ShapesGizmo>(shapes);
    const NMBUtils::Matrix34 place =
        NMBUtils::Matrix34::fromTransform(transformFrom(from["world_from_gizmo"]));
    volume.shader.setGizmo(volume.gizmo.get(), place, place);
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
            volume->params.simpleColor = tripleFrom<Color>(value);
        else if (key != "usegizmo")  // of no meaning to the shader
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
    light.color = tripleFrom<Color>(from["color"]);
    light.directional = from["type"] == "directional";
    if (light.directional) {
        light.toLight = tripleFrom<Vector>(from["to_light"]);
        light.shadowLength = from["shadow_length"];
    }
    return light;
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
        const Tolerance tolerance(golden.json["tolerance"]);
        for (std::size_t i = 0; i < golden.json["rays"].size(); ++i) {
            const json& ray = golden.json["rays"][i];
            ShadeQuery shade;
            shade.rayStart = tripleFrom<TessUtils::TracePoint>(ray["start"]);
            shade.rayEnd = tripleFrom<TessUtils::TracePoint>(ray["end"]);
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
                result =
                    shadeOver(tripleFrom<Color>(query["background"]), shade, shaders, illuminator);
                EXPECT_EQ(result.marched, expected["marched"][i].get<int>()) << what;
                expectGoldens(golden, tolerance, result.color, expected["rgb"][i],
                              what + " colour");
            } else {
                result.opacity = shadowOf(shade, shaders, illuminator);
            }
            expectGoldens(golden, tolerance, result.opacity, expected["opacity"][i],
                          what + " opacity");
        }
    }
}

}  // namespace
}  // namespace nimbra::test
