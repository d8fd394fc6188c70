// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From files on disk to pixels: what is known of homogeneous smoke must come out of the picture.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "field3d/ogawa_writer.h"
#include "module_fixture.h"
#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra::host {
namespace {

constexpr int kCells = 20;
constexpr float kDensity = 0.05f;

using nimbra::test::bytesOf;
using nimbra::test::GridSpec;
using nimbra::test::LayerSpec;

constexpr int kVoxels = kCells * kCells * kCells;
constexpr float kSpeed = 90;  // to the right

/// A cube of voxels of one unit, all moving; cell (0, 0, 0) lies in the world's origin. Values, x
/// fastest.
void writeCube(const std::filesystem::path& path, const std::vector<float>& values) {
    GridSpec grid, speed{.name = "vel", .type = "vec3s"};
    for (int i = 0; i < kVoxels; ++i) {
        const std::array<int, 3> at = {i % kCells, i / kCells % kCells, i / kCells / kCells};
        grid.voxels.push_back({at, {values[static_cast<std::size_t>(i)], 0, 0}});
        speed.voxels.push_back({at, {kSpeed, 0, 0}});
    }
    nimbra::test::VdbSpec spec;
    spec.grids = {std::move(grid), std::move(speed)};
    nimbra::test::writeVdb(path, spec);
}

/// The same cube as a Field3D file.
std::string field3dCube(const std::vector<float>& values) {
    std::vector<float> speeds;
    for (int i = 0; i < kVoxels; ++i)
        speeds.insert(speeds.end(), {kSpeed, 0, 0});
    LayerSpec layer;
    layer.high = {kCells - 1, kCells - 1, kCells - 1};
    LayerSpec speedLayer = layer;
    layer.rows = {bytesOf(values)};
    speedLayer.name = "vel";
    speedLayer.components = 3;
    speedLayer.element = F3dElement::Vec32;
    speedLayer.rows = {bytesOf(speeds)};
    nimbra::test::OgawaWriter w;
    // The box reaches half a cell beyond the centres of its cells.
    const std::vector<double> matrix = {kCells, 0, 0,      0, 0,    kCells, 0,    0,
                                        0,      0, kCells, 0, -0.5, -0.5,   -0.5, 1};
    const auto type = w.text("mapping_type", "MatrixFieldMapping");
    const auto count = w.integer("num_time_samples", 1);
    const auto time = w.attribute("time_0", F3dElement::Float32, std::string(4, '\0'));
    const auto sample = w.attribute("matrix_0", F3dElement::Matrix64, bytesOf(matrix));
    const auto mapping = w.thing("mapping", 0, {type, count, time, sample});
    return w.finish({w.thing("smoke.0", 0, {mapping, layer.write(w), speedLayer.write(w)})});
}

/// Smoke that is denser to the right and to the top, and far denser where x is `wall`.
std::vector<float> ramp(int wall = -1) {
    std::vector<float> values;
    for (int i = 0; i < kVoxels; ++i) {
        const auto x = static_cast<float>(i % kCells), y = static_cast<float>(i / kCells % kCells);
        values.push_back(kDensity * (1 + 0.1f * x + 0.03f * y) * (i % kCells == wall ? 30 : 1));
    }
    return values;
}

class CachePicture : public ModuleTest {
protected:
    void SetUp() override {
        writeCube(folder_ / "cube_0001.vdb", std::vector<float>(kVoxels, kDensity));
    }

    std::string container(const std::string& name, double opacity, int step,
                          const std::string& files = "cube_####.vdb",
                          const std::string& cacheRows = "") const {
        return fmt::format(R"(
            "{0}_cache": {{"plugin": "NmbShaderCache", "cache_path": "{3}/{4}"{5}}},
            "{0}": {{"plugin": "NmbShaderSim", "cache": "@{0}_cache", "renderAsVolumetric": true,
                     "earg": 0, "darg": 5, "targ": 0, "smoketransp": {1}, "rendstep": {2},
                     "jitter": false, "lightcache": false}},)",
                           name, opacity, step, folder_.path().string(), files, cacheRows);
    }
    // Looks along z through the whole cube at a white background.
    std::string scene(const std::string& containers) const {
        return containers + R"(
            "settings": {"plugin": "TessraSettings", "width": 16, "height": 12, "samples": 2,
                         "tile_size": 4, "background": [1, 1, 1], "background_alpha": 1},
            "camera": {"plugin": "TessraCamera", "type": "Orthographic", "film_width": 4,
                       "position": [10, 10, 50], "target": [10, 10, 0], "up": [0, 1, 0]},
            "volumes": {"plugin": "NmbShaderSimVol"})";
    }
    FrameBuffer picture(const std::string& body, FrameNumber frame = 1, int threads = 2) {
        return render(body, {frame}, threads).at(0);
    }
    /// The same smoke in both formats.
    void writeRamps(const std::string& name, const std::vector<float>& values) {
        writeCube(folder_ / (name + ".vdb"), values);
        folder_.write(name + ".f3d", field3dCube(values));
    }
    static void expectSame(const FrameBuffer& a, const FrameBuffer& b) {
        ASSERT_EQ(a.channels.size(), b.channels.size());
        for (std::size_t c = 0; c < a.channels.size(); ++c)
            for (std::size_t i = 0; i < a.channels[c].size(); ++i)
                EXPECT_NEAR(a.channels[c].at(i), b.channels[c].at(i), 1e-5) << i;
    }
    static double middle(const FrameBuffer& picture) { return picture.pixel(8, 6)[0]; }

    nimbra::test::TempFolder folder_;
};

// -ln(1 - opacity) a cell at density 1.
double depthOf(double opacity) {
    return -std::log1p(-opacity) * kDensity * kCells;
}

// The walk may count one step more than fits, and the exponential is off by up to 2e-4 a step.
double slack(double opacity, int step) {
    return depthOf(opacity) / kCells * step * 0.01 + 2e-4 * kCells * 100 / step;
}

TEST_F(CachePicture, ConstantSmoke_TransmitsExponentially) {
    for (const double opacity : {0.1, 0.5, 0.9})
        for (const int step : {20, 50, 90, 130}) {
            const FrameBuffer p = picture(scene(container("a", opacity, step)));
            EXPECT_NEAR(std::log(middle(p)), -depthOf(opacity), slack(opacity, step))
                << "opacity " << opacity << ", step " << step;
        }
}

TEST_F(CachePicture, OverlappingContainers_MultiplyInAnyOrder) {
    const std::string a = container("a", 0.5, 50), b = container("b", 0.3, 50);
    const double ab = middle(picture(scene(a + b))), ba = middle(picture(scene(b + a)));
    EXPECT_NEAR(std::log(ab), -depthOf(0.5) - depthOf(0.3), slack(0.5, 50) + slack(0.3, 50));
    EXPECT_NEAR(ab, ba, 1e-5);
}

TEST_F(CachePicture, ThreadsAndTiles_ChangeNothing) {
    const std::string body = scene(container("a", 0.5, 50));
    const FrameBuffer one = picture(body, 1, 1), many = picture(body, 1, 8);
    EXPECT_EQ(one.channels, many.channels);
}

TEST_F(CachePicture, Field3dAndOpenVdb_ShowTheSame) {
    writeRamps("ramp_0001", ramp());
    const FrameBuffer vdb = picture(scene(container("a", 0.3, 50, "ramp_####.vdb")));
    const FrameBuffer f3d = picture(scene(container("a", 0.3, 50, "ramp_####.f3d")));
    expectSame(vdb, f3d);
    EXPECT_GT(vdb.pixel(2, 6)[0], vdb.pixel(13, 6)[0] + 0.03);
}

TEST_F(CachePicture, BetweenFrames_Field3dAndOpenVdbShowTheSame) {
    writeRamps("ramp_0001", ramp(9));
    writeRamps("ramp_0002", ramp(12));
    const auto between = [&](const char* files, int method) {
        const std::string rows = fmt::format(
            R"(, "usrchmap": "2,density;4,vel(x);5,vel(y);6,vel(z);", "blend_method": {})", method);
        return picture(scene(container("a", 0.3, 50, files, rows)),
                       FrameNumber::ofUnits(1'500'000));
    };
    FrameBuffer byMethod[2];
    for (const int method : {0, 1}) {
        byMethod[method] = between("ramp_####.vdb", method);
        const FrameBuffer f3d = between("ramp_####.f3d", method);
        expectSame(byMethod[method], f3d);
    }
    EXPECT_GT(std::fabs(byMethod[0].pixel(2, 6)[0] - byMethod[1].pixel(2, 6)[0]), 0.01);
    EXPECT_EQ(log_.count("Between two frames"), 0);
}

TEST_F(CachePicture, ValuesThatArentFinite_AreSaidOnceForASequence) {
    std::vector<float> values = ramp();
    values[0] = INFINITY;
    for (const char* name : {"ramp_0001.f3d", "ramp_0002.f3d"})
        folder_.write(name, field3dCube(values));
    for (const FrameBuffer& picture :
         render(scene(container("a", 0.3, 50, "ramp_####.f3d")), {1, 2}))
        for (const PictureChannel& channel : picture.channels)
            for (std::size_t i = 0; i < channel.size(); ++i)
                EXPECT_TRUE(std::isfinite(channel.at(i)));
    EXPECT_EQ(log_.count("ramp_####.f3d: 1 values that aren't finite were set to 0"), 1);
}

TEST_F(CachePicture, MissingFrame_RendersWithoutItAndIsSaid) {
    EXPECT_EQ(middle(picture(scene(container("a", 0.5, 50)), 7)), 1.0);
    EXPECT_EQ(log_.count("info: [NimbraSimPlugin] No simulation data for frame time 7!"), 1);
}

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
    const std::vector<FrameBuffer> pictures = render(kSea, {0, 20, 60});
    ASSERT_EQ(pictures.size(), 3u);
    float low = 9, high = 0, change = 0;
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 24; ++x) {
            for (const FrameBuffer& picture : pictures) {
                const float height = picture.pixel(x, y)[0];
                const float depth = picture.channels[4].at(picture.index(x, y));
                EXPECT_NEAR(depth, 10 - height, 2e-3f);  // triangles of 0.05 units are flat
                low = std::min(low, height);
                high = std::max(high, height);
            }
            const float first = pictures[0].pixel(x, y)[0];
            EXPECT_NEAR(pictures[2].pixel(x, y)[0], first, 1e-4f);
            change = std::max(change, std::fabs(pictures[1].pixel(x, y)[0] - first));
        }
    EXPECT_GT(high - low, 0.1f);
    EXPECT_GT(change, 0.05f);
}

}  // namespace
}  // namespace nimbra::host
