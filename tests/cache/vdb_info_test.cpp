// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/vdb_info.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

const VdbGridInfo& gridNamed(const VdbFileInfo& file, const std::string& name) {
    return *std::find_if(file.grids.begin(), file.grids.end(),
                         [&](const VdbGridInfo& g) { return g.name == name; });
}

TEST(VdbInfo, ValuesOfActiveCellsGeometryAndMetadata) {
    const TempFolder folder;
    const double inf = std::numeric_limits<double>::infinity();
    GridSpec scalar{.name = "t", .type = "double", .background = 100};
    scalar.voxels = {{{0, 0, 0}, {2, 0, 0}},
                     {{0, 0, 1}, {std::nan(""), 0, 0}},
                     {{5, -4, 1}, {-inf, 0, 0}},
                     {{5, 0, 1}, {-6, 0, 0}}};
    scalar.tiles = {{{64, 0, 0}, 1, 1}};
    GridSpec vector{.name = "v", .type = "vec3s", .half = true, .levelSet = true};
    vector.voxels = {{{0, 0, 0}, {1, 2, 3}}, {{9, 0, 0}, {3, -2, inf}}};
    vector.scale = {0.5, 1, 2};
    vector.origin = {1, 2, 3};
    vector.texts = {{"creator", "a\ttest\x01"}};
    const GridSpec empty{.name = "e", .type = "int64"};
    writeVdb(folder / "a.vdb",
             {.grids = {scalar, vector, empty}, .compression = 6, .numbers = {{"answer", 42}}});
    const VdbFileInfo file = readVdbInfo(folder / "a.vdb");
    ASSERT_TRUE(file.readable) << file.problem;
    using Texts = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(file.metadata, (Texts{{"answer", "42"}}));
    ASSERT_EQ(file.grids.size(), 3u);

    const VdbGridInfo& t = file.grids[0];
    EXPECT_TRUE(t.readable) << t.problem;
    EXPECT_EQ(t.valueType, "double");
    EXPECT_EQ(t.compression, "blosc+active values");
    EXPECT_EQ(t.activeVoxels, 4 + 512);
    EXPECT_EQ(t.leafNodes, 2);
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
    EXPECT_EQ(v.gridClass, "level set");
    EXPECT_TRUE(v.halfFloats);
    EXPECT_EQ(v.voxelSize, (std::array<double, 3>{0.5, 1, 2}));
    EXPECT_EQ(v.toWorld[3], (std::array<double, 3>{1, 2, 3}));
    EXPECT_EQ(
        std::count(v.metadata.begin(), v.metadata.end(), Texts::value_type("creator", "a?test?")),
        1);

    EXPECT_TRUE(file.grids[2].readable);
    EXPECT_TRUE(file.grids[2].empty());
    EXPECT_EQ(file.grids[2].max[0], 0);
    EXPECT_FALSE(readVdbInfo(folder / "a.vdb", false).grids[0].hasValues);
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
