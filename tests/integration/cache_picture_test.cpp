// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From files on disk to pixels: what is known of homogeneous smoke must come out of the picture.
#include <fmt/format.h>

#include <cmath>
#include <fstream>

#include "field3d/ogawa_writer.h"
#include "module_fixture.h"
#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra::host {
namespace {

constexpr int kCells = 20;
constexpr float kDensity = 0.05f;

/// A cube of even density with voxels of one unit; cell (0, 0, 0) lies in the world's origin.
void writeCube(const std::filesystem::path& path) {
    test::GridSpec grid;
    for (int z = 0; z < kCells; ++z)
        for (int y = 0; y < kCells; ++y)
            for (int x = 0; x < kCells; ++x)
                grid.voxels.push_back({{x, y, z}, {kDensity, 0, 0}});
    test::VdbSpec spec;
    spec.grids.push_back(std::move(grid));
    test::writeVdb(path, spec);
}

float rampAt(int x, int y) {
    return kDensity * (1 + 0.1f * static_cast<float>(x) + 0.03f * static_cast<float>(y));
}

/// Smoke that is denser to the right and to the top, in the cube's place, as an OpenVDB file and as
/// a Field3D file, of which one voxel is multiplied by `spoiled`. `wall`: where it is far denser;
/// all of it moves to the right.
void writeRamps(const std::filesystem::path& vdb, const std::filesystem::path& f3d,
                float spoiled = 1, int wall = -1) {
    constexpr float kSpeed = 90;
    test::GridSpec grid, speed;
    speed.name = "vel";
    speed.type = "vec3s";
    std::vector<float> values, speeds;
    for (int z = 0; z < kCells; ++z)
        for (int y = 0; y < kCells; ++y)
            for (int x = 0; x < kCells; ++x) {
                const float value = rampAt(x, y) * (x == wall ? 30 : 1);
                grid.voxels.push_back({{x, y, z}, {value, 0, 0}});
                speed.voxels.push_back({{x, y, z}, {kSpeed, 0, 0}});
                values.push_back(value);
                speeds.insert(speeds.end(), {kSpeed, 0, 0});
            }
    test::VdbSpec spec;
    spec.grids = {std::move(grid), std::move(speed)};
    test::writeVdb(vdb, spec);

    values[0] *= spoiled;
    test::LayerSpec layer;
    layer.high = {kCells - 1, kCells - 1, kCells - 1};
    layer.rows = {test::bytesOf(values)};
    test::LayerSpec speedLayer = layer;
    speedLayer.name = "vel";
    speedLayer.components = 3;
    speedLayer.element = F3dElement::Vec32;
    speedLayer.rows = {test::bytesOf(speeds)};
    test::OgawaWriter w;
    // The box reaches half a cell beyond the centres of its cells.
    const std::vector<double> matrix = {kCells, 0, 0,      0, 0,    kCells, 0,    0,
                                        0,      0, kCells, 0, -0.5, -0.5,   -0.5, 1};
    const auto type = w.text("mapping_type", "MatrixFieldMapping");
    const auto count = w.integer("num_time_samples", 1);
    const auto time = w.attribute("time_0", F3dElement::Float32, std::string(4, '\0'));
    const auto sample = w.attribute("matrix_0", F3dElement::Matrix64, test::bytesOf(matrix));
    const auto mapping = w.thing("mapping", 0, {type, count, time, sample});
    const std::string bytes =
        w.finish({w.thing("smoke.0", 0, {mapping, layer.write(w), speedLayer.write(w)})});
    std::ofstream(f3d, std::ios::binary) << bytes;
}

class CachePicture : public ModuleTest {
protected:
    void SetUp() override { writeCube(folder_.path() / "cube_0001.vdb"); }

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
        const auto made = make(body);
        EXPECT_NE(made, nullptr) << faults_;
        KeptFrames output;
        if (made) {
            EXPECT_EQ(render(*made, output, {frame}, threads).status, RenderStatus::Complete);
        }
        return output.pictures.empty() ? FrameBuffer() : output.pictures.front();
    }
    static void expectSame(const FrameBuffer& a, const FrameBuffer& b) {
        ASSERT_FALSE(a.channels.empty());
        ASSERT_EQ(a.channels.size(), b.channels.size());
        for (std::size_t c = 0; c < a.channels.size(); ++c)
            for (std::size_t i = 0; i < a.channels[c].size(); ++i)
                EXPECT_NEAR(a.channels[c].at(i), b.channels[c].at(i), 1e-5) << i;
    }
    double middle(const FrameBuffer& picture) { return picture.pixel(8, 6)[0]; }

    test::TempFolder folder_;
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
    writeRamps(folder_ / "ramp_0001.vdb", folder_ / "ramp_0001.f3d");
    const FrameBuffer vdb = picture(scene(container("a", 0.3, 50, "ramp_####.vdb")));
    const FrameBuffer f3d = picture(scene(container("a", 0.3, 50, "ramp_####.f3d")));
    expectSame(vdb, f3d);
    EXPECT_GT(vdb.pixel(2, 6)[0], vdb.pixel(13, 6)[0] + 0.03);
}

TEST_F(CachePicture, BetweenFrames_Field3dAndOpenVdbShowTheSame) {
    writeRamps(folder_ / "ramp_0001.vdb", folder_ / "ramp_0001.f3d", 1, 9);
    writeRamps(folder_ / "ramp_0002.vdb", folder_ / "ramp_0002.f3d", 1, 12);
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
    for (const std::string& line : lines_)
        EXPECT_EQ(line.find("Between two frames"), std::string::npos) << line;
}

TEST_F(CachePicture, ValuesThatArentFinite_AreSaidOnceForASequence) {
    for (const char* name : {"ramp_0001", "ramp_0002"})
        writeRamps(folder_ / "unused.vdb", folder_ / (std::string(name) + ".f3d"), INFINITY);
    const auto made = make(scene(container("a", 0.3, 50, "ramp_####.f3d")));
    ASSERT_NE(made, nullptr) << faults_;
    KeptFrames output;
    EXPECT_EQ(render(*made, output, {1, 2}, 2).status, RenderStatus::Complete);
    int said = 0;
    for (const std::string& line : lines_)
        said += line.find("ramp_####.f3d: 1 values that aren't finite were set to 0") !=
                std::string::npos;
    EXPECT_EQ(said, 1);
    for (const FrameBuffer& picture : output.pictures)
        for (const PictureChannel& channel : picture.channels)
            for (std::size_t i = 0; i < channel.size(); ++i)
                EXPECT_TRUE(std::isfinite(channel.at(i)));
}

TEST_F(CachePicture, MissingFrame_RendersWithoutItAndIsSaid) {
    EXPECT_EQ(middle(picture(scene(container("a", 0.5, 50)), 7)), 1.0);
    int said = 0;
    for (const std::string& line : lines_)
        said += line == "info: [NimbraSimPlugin] No simulation data for frame time 7!";
    EXPECT_EQ(said, 1);
}

}  // namespace
}  // namespace nimbra::host
