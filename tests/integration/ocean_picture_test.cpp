// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "module_fixture.h"

namespace nimbra::host {
namespace {

// Seen from straight above, a plane glows by the height that also lifts it. All bands are longer
// than the plane's cells.
constexpr const char* kSea = R"(
    "settings": {"plugin": "TessraSettings", "width": 24, "height": 24, "samples": 1,
                 "filter_width": 0, "fps": 24},
    "camera": {"plugin": "TessraCamera", "type": 1, "film_width": 12, "position": [0, 10, 0],
               "up": [0, 0, -1]},
    "waves": {"plugin": "NmbShaderOceanTex", "vector": false, "lod": 4, "sharpness": 0,
              "rgboffset": 1, "animmode": 2, "loopLength": 2.5},
    "sea": {"plugin": "TessraMesh", "shape": "Plane", "size": [14, 1, 14], "cells": 280,
            "displacement": "@waves", "displacement_type": "Height", "material": "@glow"},
    "glow": {"plugin": "TessraMaterial", "diffuse": 0, "emission": "@waves"})";

TEST_F(ModuleTest, OceanInColorAndDisplacementSlots_AgreesAndLoops) {
    const auto scene = make(kSea);
    ASSERT_NE(scene, nullptr) << faults_;
    KeptFrames output;
    const SessionResult result = render(*scene, output, {0, 20, 60}, 2);
    ASSERT_EQ(result.status, RenderStatus::Complete) << result.error;
    float low = 9, high = 0, change = 0;
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 24; ++x) {
            for (const FrameBuffer& picture : output.pictures) {
                const float height = picture.pixel(x, y)[0];
                const float depth = picture.channels[4].at(picture.index(x, y));
                EXPECT_NEAR(depth, 10 - height, 2e-3f);  // triangles of 0.05 units are flat
                low = std::min(low, height);
                high = std::max(high, height);
            }
            const float first = output.pictures[0].pixel(x, y)[0];
            EXPECT_NEAR(output.pictures[2].pixel(x, y)[0], first, 1e-4f);
            change = std::max(change, std::fabs(output.pictures[1].pixel(x, y)[0] - first));
        }
    EXPECT_GT(high - low, 0.1f);
    EXPECT_GT(change, 0.05f);
}

}  // namespace
}  // namespace nimbra::host
