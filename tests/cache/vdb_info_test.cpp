// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/vdb_info.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

const VdbGridInfo& gridNamed(const VdbFileInfo& file, const std::string& name) {
    for (const VdbGridInfo& g : file.grids)
        if (g.name == name)
            return g;
    throw std::runtime_error("no grid " + name);
}

TEST(VdbInfo, ValuesOfActiveCells) {
    const TempFolder folder;
    const double inf = std::numeric_limits<double>::infinity();
    GridSpec scalar{.name = "t", .type = "double", .background = 100};
    scalar.voxels = {{{0, 0, 0}, {2, 0, 0}},
                     {{0, 0, 1}, {std::nan(""), 0, 0}},
                     {{5, -4, 1}, {-inf, 0, 0}},
                     {{5, 0, 1}, {-6, 0, 0}}};
    scalar.tiles = {{{64, 0, 0}, 1, 1}};
    GridSpec vector{.name = "v", .type = "vec3s"};
    vector.voxels = {{{0, 0, 0}, {1, 2, 3}}, {{9, 0, 0}, {3, -2, inf}}};
    GridSpec empty{.name = "e", .type = "int64"};
    writeVdb(folder / "a.vdb", {.grids = {scalar, vector, empty}, .compression = 1});
    const VdbFileInfo file = readVdbInfo(folder / "a.vdb");
    ASSERT_TRUE(file.readable) << file.problem;
    ASSERT_EQ(file.grids.size(), 3u);

    const VdbGridInfo& t = file.grids[0];
    EXPECT_TRUE(t.readable) << t.problem;
    EXPECT_EQ(t.valueType, "double");
    EXPECT_EQ(t.compression, "zip");
    EXPECT_EQ(t.activeVoxels, 4 + 512);
    EXPECT_EQ(t.low, (std::array<int, 3>{0, -4, 0}));
    EXPECT_EQ(t.high, (std::array<int, 3>{71, 7, 7}));
    EXPECT_EQ(t.background[0], 100);
    EXPECT_EQ(t.min[0], -6);
    EXPECT_EQ(t.max[0], 2);
    EXPECT_DOUBLE_EQ(t.mean[0], (2 - 6 + 512) / 514.0);
    EXPECT_EQ(t.nanCount, 1);
    EXPECT_EQ(t.infiniteCount, 1);

    const VdbGridInfo& v = file.grids[1];
    EXPECT_EQ(v.components, 3);
    EXPECT_EQ(v.min, (std::array<double, 3>{1, -2, 3}));
    EXPECT_EQ(v.mean, (std::array<double, 3>{2, 0, 3}));
    EXPECT_EQ(v.infiniteCount, 1);

    EXPECT_TRUE(file.grids[2].readable);
    EXPECT_TRUE(file.grids[2].empty());
    EXPECT_EQ(file.grids[2].max[0], 0);
}

TEST(VdbInfo, GeometryAndMetadata) {
    const TempFolder folder;
    GridSpec g{.name = "phi", .voxels = ballOfVoxels({0, 0, 0}, 3), .half = true};
    g.levelSet = true;
    g.scale = {0.5, 1, 2};
    g.origin = {1, 2, 3};
    g.texts = {{"creator", "a\ttest\x01"}};
    writeVdb(folder / "a.vdb", {.grids = {g}, .compression = 6, .numbers = {{"answer", 42}}});
    const VdbFileInfo file = readVdbInfo(folder / "a.vdb", false);
    EXPECT_EQ(file.metadata, (std::vector<std::pair<std::string, std::string>>{{"answer", "42"}}));
    const VdbGridInfo& phi = file.grids.at(0);
    EXPECT_EQ(phi.gridClass, "level set");
    EXPECT_TRUE(phi.halfFloats);
    EXPECT_FALSE(phi.hasValues);
    EXPECT_EQ(phi.compression, "blosc+active values");
    EXPECT_EQ(phi.voxelSize, (std::array<double, 3>{0.5, 1, 2}));
    EXPECT_EQ(phi.toWorld[3], (std::array<double, 3>{1, 2, 3}));
    EXPECT_EQ(phi.leafNodes, 8);
    bool found = false;
    for (const auto& [name, text] : phi.metadata)
        found |= name == "creator" && text == "a?test?";
    EXPECT_TRUE(found);
}

TEST(VdbInfo, GridsThatCannotBeDrawn_SayWhy) {
    const VdbFileInfo file = readVdbInfo(NIMBRA_TEST_DATA "/vdb/spray_0017.vdb");
    ASSERT_TRUE(file.readable);
    const VdbGridInfo& points = gridNamed(file, "particles_secondary");
    EXPECT_FALSE(points.readable);
    EXPECT_EQ(points.problem, "points become a particle group, not a channel");
    EXPECT_GT(points.activeVoxels, 0);
    EXPECT_GE(points.points, points.activeVoxels);
    ASSERT_EQ(points.attributes.size(), 4u);
    EXPECT_EQ(points.attributes[1], (std::pair<std::string, std::string>("U", "int32 trnc")));
    EXPECT_TRUE(gridNamed(file, "wave_crest_secondary").readable);

    // One byte of one grid is wrong: the others are told all the same.
    const TempFolder folder;
    std::string bytes = readFile(NIMBRA_TEST_DATA "/vdb/spray_0017.vdb");
    bytes[bytes.size() - 20000] ^= 0x55;
    const VdbFileInfo damaged = readVdbInfo(folder.write("d.vdb", bytes));
    ASSERT_EQ(damaged.grids.size(), file.grids.size());
    int unreadable = 0;
    for (std::size_t i = 0; i < file.grids.size(); ++i)
        unreadable += file.grids[i].readable && !damaged.grids[i].readable;
    EXPECT_LE(unreadable, 1);
    EXPECT_FALSE(readVdbInfo(folder / "none.vdb").readable);
}

}  // namespace
}  // namespace nimbra
