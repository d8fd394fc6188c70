// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "module_fixture.h"

namespace nimbra::host {
namespace {

TEST_F(ModuleTest, EveryKind_IsCreatedOrNamedAsMissing) {
    for (const PluginType* type : registry_.types()) {
        std::string error;
        Plugin* plugin = registry_.create(*type, error);
        if (plugin) {
            EXPECT_EQ(plugin->getPluginDesc(), type->desc);
            EXPECT_NE(plugin->getInterface(TessUtils::ids::kTessraPlugin), nullptr) << type->name();
        } else {
            EXPECT_EQ(error, "plug-in '" + std::string(type->name()) +
                                 "' is not available in this build of Nimbra");
        }
        registry_.destroy(plugin);
    }
}

// A lit floor below a container without a grid, seen past the collector.
constexpr const char* kFloorScene = R"(
    "settings": {"plugin": "TessraSettings", "width": 32, "height": 24, "samples": 2,
                 "tile_size": 8},
    "camera": {"plugin": "TessraCamera", "position": [0, 3, 8], "target": [0, 0, 0]},
    "sun": {"plugin": "TessraLightDirectional", "direction": [0, -1, 0], "intensity": 3},
    "white": {"plugin": "TessraMaterial", "diffuse": 0.5},
    "floor": {"plugin": "TessraMesh", "shape": "Plane", "size": [4, 4, 4], "material": "@white"},
    "box": {"plugin": "NmbShaderSim", "renderAsVolumetric": true},
    "volumes": {"plugin": "NmbShaderSimVol"})";

TEST_F(ModuleTest, ContainerWithoutAGrid_LeavesTheSceneAsItIs) {
    const auto scene = make(kFloorScene);
    ASSERT_NE(scene, nullptr) << faults_;
    KeptFrames output;
    const SessionResult result = render(*scene, output, {1, 2}, 2);
    ASSERT_EQ(result.status, RenderStatus::Complete) << result.error;
    ASSERT_EQ(output.frames, (std::vector<FrameNumber>{1, 2}));
    const FrameBuffer& picture = output.pictures[0];
    // A light's intensity is what a white surface shows that faces it; this one has half of white.
    const auto floor = picture.pixel(16, 12);
    EXPECT_NEAR(floor[0], 0.5 * 3, 1e-4);
    EXPECT_EQ(floor[3], 1.0f);
    const auto sky = picture.pixel(16, 0);
    EXPECT_EQ(sky[0], 0.0f);
    EXPECT_EQ(sky[3], 0.0f);
}

}  // namespace
}  // namespace nimbra::host
