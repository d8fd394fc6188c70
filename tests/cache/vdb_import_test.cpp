// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>

#include "cache/channel_mapping.h"
#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "support/temp_folder.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

class VdbImport : public testing::Test {
protected:
    std::string write(const VdbSpec& spec, const std::string& name = "f.vdb") {
        writeVdb(folder / name, spec);
        return folder / name;
    }
    int import(const VdbSpec& spec, const std::string& mapping, bool headerOnly = false,
               std::int64_t maxMemory = -1) {
        return importVdb(write(spec), frame, mapping, headerOnly, maxMemory);
    }
    /// The value of a cell of the frame.
    float at(int channel, int x, int y, int z) {
        const auto& proxy = frame.getChannelProxy(channel);
        EXPECT_TRUE(proxy.loaded);
        const std::int64_t nx = frame.gridSize[0], ny = frame.gridSize[1];
        return proxy.loaded ? proxy.read((z * ny + y) * nx + x) : 0;
    }
    void expectSize(int x, int y, int z) {
        EXPECT_EQ(std::vector<int>(frame.gridSize, frame.gridSize + 3),
                  (std::vector<int>{x, y, z}));
    }
    static GridSpec scalar(const std::string& name, std::vector<VoxelSpec> voxels) {
        return {.name = name, .voxels = std::move(voxels)};
    }
    /// A grid of one active cell.
    static GridSpec cell(const std::string& name, double value, std::array<int, 3> at = {}) {
        return scalar(name, {{at, {value, 0, 0}}});
    }

    TempFolder folder;
    NimbraFrameData frame;
};

TEST_F(VdbImport, CellsLieWhereTheFilePutsThem) {
    GridSpec g = scalar("density", ballOfVoxels({-20, 7, 130}, 4));
    g.scale = {0.5, 0.25, 2};
    g.origin = {10, -3, 5};
    ASSERT_EQ(import({.grids = {g}}, "2,density;"), kLoadOk);
    expectSize(9, 9, 9);
    EXPECT_EQ(frame.channelMask, 4u);
    EXPECT_EQ(frame.compressedInts, 1);
    const float* const tm = frame.transform;
    for (const VoxelSpec& v : g.voxels) {
        int cell[3];
        for (int a = 0; a < 3; ++a) {
            const double world = v.at[a] * g.scale[a] + g.origin[a];
            const double c = world * tm[a * 3 + a] + tm[9 + a];
            cell[a] = static_cast<int>(std::lround(c));
            ASSERT_NEAR(c, cell[a], 1e-4);
        }
        ASSERT_EQ(at(2, cell[0], cell[1], cell[2]), static_cast<float>(v.value[0]));
    }
    EXPECT_EQ(at(2, 0, 0, 0), 0.0f);
}

TEST_F(VdbImport, EveryTypeStorageAndCompression) {
    for (const char* type : {"float", "double", "int32", "int64", "vec3s", "vec3d"})
        for (const bool half : {false, true})
            for (const std::uint32_t compression : {0u, 1u, 2u, 3u, 4u, 6u}) {
                SCOPED_TRACE(testing::Message()
                             << type << " half " << half << " compression " << compression);
                const GridSpec g{.name = "g",
                                 .type = type,
                                 .voxels = ballOfVoxels({3, -5, 60}, 9),
                                 .tiles = {{{128, 0, 0}, 1, 5.0}},
                                 .background = 3,
                                 .half = half};
                ASSERT_EQ(import({.grids = {g}, .compression = compression}, "2,g;"), kLoadOk)
                    << lastImportProblem();
                const bool whole = g.type[0] == 'i';
                for (const VoxelSpec& v : g.voxels) {
                    const double expected = whole ? std::trunc(v.value[0]) : v.value[0];
                    ASSERT_EQ(at(2, v.at[0] + 6, v.at[1] + 14, v.at[2]), expected);
                }
                expectSize(142, 22, 70);
                EXPECT_EQ(at(2, 0, 0, 0), 3.0f);     // inactive: the background
                EXPECT_EQ(at(2, 136, 15, 0), 5.0f);  // the tile
                frame.freeChannel(2);
            }
}

TEST_F(VdbImport, LargeGrids_KeepTheirValuesWhileTheirBytesGo) {
    // 2 MiB of values: what was read is given back by the MiB.
    const GridSpec g = scalar("density", ballOfVoxels({50, 50, 50}, 50));
    ASSERT_EQ(import({.grids = {g}, .compression = 0}, "2,density;"), kLoadOk);
    std::size_t wrong = 0;
    for (const VoxelSpec& v : g.voxels)
        wrong += at(2, v.at[0], v.at[1], v.at[2]) != static_cast<float>(v.value[0]);
    EXPECT_EQ(wrong, 0u);
}

TEST_F(VdbImport, Mappings_ChooseGridsAndComponents) {
    struct Cell {
        int channel;
        std::array<int, 3> at;
        float value;
    };
    struct Case {
        const char* what;
        VdbSpec spec;
        const char* map;
        std::uint32_t mask;
        std::array<int, 3> size;
        std::vector<Cell> cells;
    };
    const auto ball = [](const char* name, const char* type = "float") {
        return GridSpec{.name = name, .type = type, .voxels = ballOfVoxels({4, 4, 4}, 3)};
    };
    const GridSpec vel = ball("vel", "vec3s"), density = ball("density");
    const VdbSpec parts{.grids = {density, ball("vx"), ball("vy"), ball("vz")}};
    const VdbSpec odd{.grids = {ball("mask", "bool"), density}};
    const std::vector<Cell> xyz = {{4, {3, 3, 3}, 1}, {5, {3, 3, 3}, -1}, {6, {3, 3, 3}, 2}};
    const Case cases[] = {
        {"by brackets", {{vel}}, "4,vel(x);5,vel(y);6,vel(z);", 0x70, {7, 7, 7}, xyz},
        {"by dots", {{vel}}, "4,vel.x;5,vel.y;6,vel.z;", 0x70, {7, 7, 7}, xyz},
        {"by their triple", {{vel}}, "4,vel;5,vel;6,vel;", 0x70, {7, 7, 7}, xyz},
        {"outside of a triple: what the name says, else x",
         {{vel}},
         "2,vel(z);1,vel;",
         6,
         {7, 7, 7},
         {{2, {3, 3, 3}, 2}, {1, {3, 3, 3}, 1}}},
        {"scalar grids with the names of components",
         {{cell("v.z", 3), cell("v.x", 1), cell("v.y", 2)}},
         "4,v;5,v;6,v;",
         0x70,
         {1, 1, 1},
         {{4, {}, 1}, {5, {}, 2}, {6, {}, 3}}},
        {"two of three velocities", parts, "2,density;4,vx;6,vz;", 4, {7, 7, 7}, {}},
        {"all three", parts, "2,density;4,vx;6,vz;5,vy;", 0x74, {7, 7, 7}, {}},
        {"the box of all that is mapped",
         {{cell("a", 1, {-5, 0, 0}), cell("b", 2, {4, 2, -3}), cell("far", 3, {999, 999, 999})}},
         "2,a;1,b;",
         6,
         {10, 3, 4},
         {{2, {0, 0, 3}, 1}, {1, {9, 2, 0}, 2}, {1, {0, 0, 3}, 0}}},
        {"one empty cell", {{scalar("density", {})}}, "2,density;", 4, {1, 1, 1}, {{2, {}, 0}}},
        {"an empty grid beside another",
         {{scalar("flame", {}), density}},
         "10,flame;2,density;",
         0x404,
         {7, 7, 7},
         {{10, {3, 3, 3}, 0}}},
        {"without positions in the file",
         {.grids = {density, cell("fuel", 7, {4, 5, 5}), ball("mask", "bool")},
          .compression = 6,
          .asStream = true},
         "2,density;10,fuel;",
         0x404,
         {7, 7, 7},
         {{10, {3, 4, 4}, 7}, {2, {3, 3, 3}, 1}}},
        {"other types and names",
         odd,
         "10,mask;2,density;1,nothing;40,density;0,density;-1,density;",
         4,
         {7, 7, 7},
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(import(c.spec, c.map), kLoadOk) << lastImportProblem();
        EXPECT_EQ(frame.channelMask, c.mask);
        expectSize(c.size[0], c.size[1], c.size[2]);
        for (const Cell& v : c.cells)
            EXPECT_EQ(at(v.channel, v.at[0], v.at[1], v.at[2]), v.value) << v.channel;
    }
    // With nothing left, the answer says what there is.
    EXPECT_EQ(import(odd, "2,dens;"), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("mask, density"), std::string::npos) << lastImportProblem();
    EXPECT_EQ(frame.channelMask, 0u);
}

TEST_F(VdbImport, DefaultMapping_OfASequence) {
    write({.grids = {cell("surface", 0.5)}}, "s_0001.vdb");
    const GridSpec vel{.name = "vel", .type = "vec3d", .voxels = {{{0, 0, 0}, {1, 2, 3}}}};
    const std::string second = write({.grids = {cell("density", 0.25), vel}}, "s_0002.vdb");
    folder.write("s_0003.vdb", "broken");
    const std::string map = CacheIO::findChannelMap(folder / "s_####.vdb");
    EXPECT_EQ(CacheIO::formatChannelMap(CacheIO::parseChannelMap(map)),
              "1,surface;2,density;4,vel(x);5,vel(y);6,vel(z);");
    ASSERT_EQ(importVdb(folder / "s_0001.vdb", frame, map, false), kLoadOk);
    EXPECT_FLOAT_EQ(at(1, 0, 0, 0), 0.5f * -33.3333f);
    ASSERT_EQ(importVdb(second, frame, map, false), kLoadOk);
    EXPECT_EQ(frame.channelMask, 0x74u);
    EXPECT_EQ(at(6, 0, 0, 0), 3.0f);
    // Behind a dash no name tells its number: the wanted frame speaks for all.
    for (const char* name : {"d-0007.vdb", "d-0008.vdb"})
        write({.grids = {cell("fuel", 1)}}, name);
    EXPECT_NE(CacheIO::findChannelMap(folder / "d-####.vdb", 8).find("10,fuel;"), map.npos);
    // A user who names the grid gets its values as they are.
    ASSERT_EQ(importVdb(folder / "s_0001.vdb", frame, "1,surface;", false), kLoadOk);
    EXPECT_EQ(at(1, 0, 0, 0), 0.5f);
}

TEST_F(VdbImport, Tiles_AreNotExpanded) {
    GridSpec g{.name = "density", .tiles = {{{0, 0, 0}, 3, 0.5}}};
    ASSERT_EQ(import({.grids = {g}}, "2,density;"), kLoadOk);
    expectSize(4096, 4096, 4096);
    EXPECT_EQ(at(2, 4095, 7, 4095), 0.5f);
    // More cells than anything here can number.
    g.voxels = {{{1 << 20, 0, 0}, {1, 0, 0}}};
    EXPECT_EQ(import({.grids = {g}}, "2,density;"), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("too large"), std::string::npos);
}

TEST_F(VdbImport, FarthestCoordinates_AreRefusedOrRead) {
    const VoxelSpec low{{INT32_MIN, 0, 0}, {1}}, high{{INT32_MAX, 0, 0}, {1}};
    for (const VoxelSpec& voxel : {low, high}) {
        const int status = import({.grids = {scalar("density", {voxel})}}, "2,density;");
        EXPECT_TRUE(status == kLoadOk || status == kLoadNotFound);
    }
    EXPECT_EQ(import({.grids = {scalar("density", {low, high})}}, "2,density;"), kLoadNotFound);
}

TEST_F(VdbImport, Transforms_GiveScaleAndPlace) {
    GridSpec g = scalar("density", {{{0, 0, 0}, {1, 0, 0}}, {{1, 0, 0}, {2, 0, 0}}});
    g.scale = {-0.5, 0.5, 0.5};
    g.origin = {3, 0, 0};
    // A mirror keeps its sign.
    ASSERT_EQ(import({.grids = {g}}, "2,density;"), kLoadOk);
    EXPECT_EQ(frame.transform[0], -2.0f);
    EXPECT_EQ(frame.transform[9], 6.0f);
    // Of a turn only the lengths stay.
    g.scale = {0.5, 0.25, 2};
    g.map = MapSpec::Rotated;
    ASSERT_EQ(import({.grids = {g}}, "2,density;"), kLoadOk);
    EXPECT_FLOAT_EQ(frame.transform[0], 2.0f);
    EXPECT_EQ(frame.transform[1], 0.0f);
    g.map = MapSpec::Frustum;
    ASSERT_EQ(import({.grids = {g}}, "2,density;"), kLoadOk);
    for (const float v : frame.transform)
        EXPECT_TRUE(std::isfinite(v));
}

TEST_F(VdbImport, MetadataOfTheFile) {
    const auto voxel = ballOfVoxels({5, 5, 5}, 1);
    VdbSpec spec{.grids = {scalar("density", voxel), scalar("fuel", voxel)},
                 .numbers = {{"FFXVDBVersion", 1}, {"NimbraFrameTag", 37}},
                 .triples = {{"Nmax", {20, 30, 40}}}};
    ASSERT_EQ(import(spec, "2,density;10,fuel;"), kLoadOk);
    EXPECT_EQ(frame.frameNumber, 37);
    expectSize(21, 31, 41);
    EXPECT_EQ(at(2, 5, 5, 5), 1.0f);
    // Extents that make no grid leave it to the active cells.
    spec.triples = {{"Nmax", {20, -1, 40}}};
    ASSERT_EQ(import(spec, "2,density;"), kLoadOk);
    expectSize(3, 3, 3);
    // Our own exports say which channels count.
    spec.triples.clear();
    spec.numbers = {{"NimbraVDBVer", 1}, {"NimbraChannelMask", int(0x80000004u)}};
    ASSERT_EQ(import(spec, "2,density;10,fuel;"), kLoadOk);
    EXPECT_EQ(frame.channelMask, 4u);
    EXPECT_TRUE(frame.flags & kFrameMaskBit31);
}

TEST_F(VdbImport, SharedTreesAndSharedNames) {
    const GridSpec instance{.name = "heat", .scale = {2, 2, 2}, .sharesTreeOf = 1};
    const VdbSpec spec{.grids = {cell("density", 1), cell("density", 2), instance}};
    ASSERT_EQ(import(spec, "1,heat;2,density;10,density[1];"), kLoadOk) << lastImportProblem();
    EXPECT_EQ(at(2, 0, 0, 0), 1.0f);
    EXPECT_EQ(at(10, 0, 0, 0), 2.0f);
    EXPECT_EQ(at(1, 0, 0, 0), 2.0f);
    EXPECT_EQ(frame.transform[0], 0.5f);
    EXPECT_EQ(CacheIO::findChannelMap(folder / "f.vdb"), "2,density;");
}

TEST_F(VdbImport, MemoryLimit) {
    const VdbSpec spec{.grids = {scalar("density", ballOfVoxels({0, 0, 0}, 9))}};
    EXPECT_EQ(import(spec, "2,density;", false, 100000), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("limit is 100000"), std::string::npos);
    EXPECT_EQ(import(spec, "2,density;", false, 10000000), kLoadOk);
}

TEST_F(VdbImport, FilesThatAreNone) {
    const std::string empty = folder.write("empty.vdb", ""),
                      text = folder.write("text.vdb", "this is no cache at all");
    for (const std::string& path : {std::string(folder / "missing.vdb"), empty, text})
        EXPECT_EQ(importVdb(path, frame, "2,density;", false), kLoadNotFound) << path;
    EXPECT_NE(lastImportProblem().find("text.vdb: isn't an OpenVDB file"), std::string::npos);
    EXPECT_EQ(importVdb(folder / "missing.vdb", frame, "", false), kLoadNoMapping);
    EXPECT_EQ(importF3D("a.f3d", frame, "", false), kLoadNoMapping);
    EXPECT_EQ(importF3D("a.f3d", frame, "2,density;", false), kLoadNoReader);
}

TEST_F(VdbImport, PipesFoldersDevices_AreRefusedAtOnce) {
    const std::string pipe = folder / "pipe.vdb";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, folder.path().string(), std::string("/dev/zero")}) {
        EXPECT_EQ(importVdb(path, frame, "2,density;", false), kLoadNotFound) << path;
        EXPECT_FALSE(lastImportProblem().empty());
    }
}

}  // namespace
}  // namespace nimbra
