// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The reader as the program uses it: loaded at run time, filling frames.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "field3d/f3d_cases.h"
#include "field3d/ogawa_writer.h"
#include "support/temp_folder.h"
#include "support/threads.h"

namespace nimbra {
namespace {

using nlohmann::json;

class F3dImport : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Folders without it come first, with and without a slash at their end.
        const std::string folders = "/nowhere;/nowhere/;" NIMBRA_READER_FOLDER;
        ASSERT_EQ(loadExternalCacheReaders(kField3dReader, folders.c_str(), "tessra", 2),
                  unsigned(kField3dReader));
        // It stays, whatever is said later.
        ASSERT_EQ(loadExternalCacheReaders(kField3dReader, nullptr, "other", 9),
                  unsigned(kField3dReader));
    }
    int load(const std::string& path, const std::string& map, bool headerOnly = false) {
        const int status = frame.load(path, map, 7, -1, false, headerOnly);
        EXPECT_EQ(status == kLoadOk, lastImportProblem().empty());
        EXPECT_EQ(frame.description, "");
        return status;
    }
    std::string sample(const std::string& name) { return (test::f3dFolder() / name).string(); }
    json jsonOf(const std::string& name) {
        std::ifstream in(std::filesystem::path(sample(name)).replace_extension(".json"));
        return json::parse(in)["partitions"];
    }
    float voxel(int channel, int x, int y, int z) {
        const int cell[3] = {x, y, z};
        float v = NAN;
        frame.readChannelCells(cell, channel, 1, &v);
        return v;
    }
    /// Where the frame has a point of the world, in cells.
    std::array<double, 3> cellOf(const json& world) {
        std::array<double, 3> cell;
        for (int x = 0; x < 3; ++x) {
            cell[x] = frame.transform[9 + x];
            for (int a = 0; a < 3; ++a)
                cell[x] += world[a].get<double>() * frame.transform[a * 3 + x];
        }
        return cell;
    }
    /// The layer's samples and places are those of the channel.
    void expectLayer(const json& layer, int channel, int component = -1) {
        const json& low = layer["data_window"]["min"];
        for (const json& s : layer["samples"]) {
            const double expected = (component < 0 ? s[1] : s[1][component]).get<double>();
            EXPECT_NEAR(voxel(channel, s[0][0].get<int>() - low[0].get<int>(),
                              s[0][1].get<int>() - low[1].get<int>(),
                              s[0][2].get<int>() - low[2].get<int>()),
                        expected, 6e-8 * std::fabs(expected));
        }
        for (const json& point : layer["mapping"]["points"]) {
            if (point["time"].get<double>() != 0)
                continue;
            const auto cell = cellOf(point["world"]);
            for (int x = 0; x < 3; ++x)
                EXPECT_NEAR(cell[x], point["voxel"][x].get<double>() - 0.5 - low[x].get<double>(),
                            2e-3);
        }
    }

    test::TempFolder folder;
    NimbraFrameData frame;
};

TEST_F(F3dImport, BothContainers_ChannelsSizeAndPlace) {
    struct {
        const char* file;
        const char* map;
        int channels;
    } const cases[] = {{"campfire_og.f3d", "2,density;1,temperature;10,flame;", 3},
                       {"dense_half_h5.f3d", "2,density;", 1},
                       {"dense_double_og.f3d", "2,density;", 1},
                       {"sparse_float_order2_h5.f3d", "2,density;", 1},
                       {"window_negative_og.f3d", "2,density;", 1},
                       {"window_larger_h5.f3d", "2,density;", 1},
                       {"mapping_shear_mirror_h5.f3d", "2,density;", 1},
                       {"mapping_moving_og.f3d", "2,density;", 1},
                       {"mapping_old_h5.f3d", "2,density;", 1},
                       {"mip_h5.f3d", "2,density;", 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const json layers = jsonOf(c.file)[0]["layers"];
        ASSERT_EQ(load(sample(c.file), c.map), kLoadOk) << lastImportProblem();
        const json window = layers[0]["data_window"];
        for (int a = 0; a < 3; ++a)
            EXPECT_EQ(frame.gridSize[a],
                      window["max"][a].get<int>() - window["min"][a].get<int>() + 1);
        const int channels[] = {kSmoke, kTemperature, kFuel};
        for (int i = 0; i < c.channels; ++i)
            expectLayer(layers[i], channels[i]);
        EXPECT_EQ(frame.compressedInts, 1);
        EXPECT_EQ(frame.simInfo.simTime(), 7.0);
    }
}

TEST_F(F3dImport, Vectors_ThreeNamesOrNone) {
    std::vector<CacheIO::AvailableChannels> names;
    ASSERT_TRUE(availableF3dChannels(sample("mac_velocity_h5.f3d"), names));
    const std::vector<CacheIO::AvailableChannels> expected = {
        {"density", 0}, {"v_mac(x)", 1}, {"v_mac(y)", 1}, {"v_mac(z)", 1}};
    EXPECT_EQ(names, expected);
    const json mac = jsonOf("mac_velocity_h5.f3d")[0]["layers"][1];
    const std::uint32_t velocity =
        channelBit(kVelocityX) | channelBit(kVelocityY) | channelBit(kVelocityZ);
    for (const char* map : {"4,v_mac(x);5,v_mac(y);6,v_mac(z);", "4,v_mac.x;5,v_mac(Y);6,v_mac;"}) {
        ASSERT_EQ(load(sample("mac_velocity_h5.f3d"), map), kLoadOk) << lastImportProblem();
        EXPECT_EQ(frame.channelMask, velocity);
        for (int c = 0; c < 3; ++c)
            expectLayer(mac, kVelocityX + c, c);
    }
    // Two of three are none; the rest stays.
    ASSERT_EQ(load(sample("mac_velocity_h5.f3d"), "4,v_mac(x);5,v_mac(y);2,density;"), kLoadOk);
    EXPECT_EQ(frame.channelMask, channelBit(kSmoke));
    EXPECT_FALSE(frame.channels[kVelocityX].loaded);
}

TEST_F(F3dImport, HeaderOnly_SizeAndPlaceWithoutVoxels) {
    ASSERT_EQ(load(sample("sparse_half_og.f3d"), "2,density;"), kLoadOk);
    const std::vector<float> transform(frame.transform, frame.transform + 12);
    const std::vector<int> size(frame.gridSize, frame.gridSize + 3);
    ASSERT_EQ(load(sample("sparse_half_og.f3d"), "2,density;", true), kLoadOk);
    EXPECT_EQ(std::vector<float>(frame.transform, frame.transform + 12), transform);
    EXPECT_EQ(std::vector<int>(frame.gridSize, frame.gridSize + 3), size);
    EXPECT_TRUE(frame.flags & kFrameHeaderOnly);
    EXPECT_FALSE(frame.channels[kSmoke].loaded);
}

TEST_F(F3dImport, LayersOfTwoBoxes_ShareOneGrid) {
    // A dense layer in one corner, a sparse one in the other.
    test::LayerSpec dense = test::LayerSpec::dense(), sparse = test::LayerSpec::sparse(true);
    sparse.name = "heat";
    test::OgawaWriter w;
    const auto layerIn = [&](test::LayerSpec& layer, int shift) {
        for (int a = 0; a < 3; ++a) {
            layer.low[a] += shift;
            layer.high[a] += shift;
        }
        return layer.write(w);
    };
    const auto first = layerIn(dense, 0), second = layerIn(sparse, 3);
    // The null mapping puts the unit cube on each layer's own extents, so they lie apart.
    const auto partition = w.thing("p", 0, {w.nullMapping(), first, second});
    const std::string path = folder.write("two.f3d", w.finish({partition}));
    ASSERT_EQ(load(path, "2,density;1,heat;"), kLoadOk) << lastImportProblem();
    EXPECT_EQ(frame.channelMask, channelBit(kSmoke));
    EXPECT_NE(lastImportWarning().find("'heat' of 'p' is left out, its voxels lie otherwise"),
              std::string::npos)
        << lastImportWarning();

    // With one set of extents they share a grid, and what is outside of a window is 0, or the
    // sparse layer's value for empty blocks.
    const json mixed = jsonOf("window_mixed_og.f3d")[0]["layers"];
    ASSERT_EQ(load(sample("window_mixed_og.f3d"), "2,density;1,temperature;10,fuel;"), kLoadOk);
    int low[3];
    for (int a = 0; a < 3; ++a) {
        low[a] = INT32_MAX;
        int high = INT32_MIN;
        for (const json& l : mixed)
            if (lastImportWarning().find("layer '" + l["name"].get<std::string>() + "' of") ==
                std::string::npos) {
                low[a] = std::min(low[a], l["data_window"]["min"][a].get<int>());
                high = std::max(high, l["data_window"]["max"][a].get<int>());
            }
        EXPECT_EQ(frame.gridSize[a], high - low[a] + 1);
    }
    for (const json& s : mixed[0]["samples"])
        EXPECT_FLOAT_EQ(voxel(kSmoke, s[0][0].get<int>() - low[0], s[0][1].get<int>() - low[1],
                              s[0][2].get<int>() - low[2]),
                        s[1].get<float>());
}

TEST_F(F3dImport, FilesThatAreNone_SayWhy) {
    const auto problemOf = [&](const std::string& path, const std::string& map) {
        EXPECT_EQ(load(path, map), kLoadNotFound);
        EXPECT_EQ(frame.channelMask, 0u);
        EXPECT_EQ(frame.path, "");
        const std::string problem = lastImportProblem();
        EXPECT_EQ(problem.rfind(path + ": ", 0), 0u) << problem;
        return problem.substr(std::min(problem.size(), path.size() + 2));
    };
    EXPECT_EQ(problemOf("/nowhere/a.f3d", "2,density;"),
              "can't be opened: No such file or directory");
    EXPECT_EQ(problemOf(folder.write("text.f3d", "this is no cache"), "2,density;"),
              "isn't a Field3D file");
    EXPECT_EQ(problemOf(sample("dense_half_og.f3d"), "2,smoke;"),
              "has none of the mapped layers; it holds density");
    EXPECT_EQ(problemOf(sample("frustum_perspective_og.f3d"), "2,density;"),
              "has none of the mapped layers; it holds no layers that can be shown; layer "
              "'density' of 'smoke.0' is mapped by a camera frustum, which can't become a grid");
    EXPECT_EQ(frame.load(sample("dense_half_og.f3d"), "", 0, -1, false, false), kLoadNoMapping);
    std::vector<CacheIO::AvailableChannels> names;
    EXPECT_FALSE(availableF3dChannels(folder / "text.f3d", names));
    EXPECT_NE(lastImportProblem(), "");
}

TEST_F(F3dImport, Threads_ReadSideBySide) {
    std::atomic<int> good{0};
    test::onThreads(4, [&](int t) {
        for (int i = 0; i < 3; ++i) {
            NimbraFrameData own;
            const char* name = t % 2 ? "sparse_half_h5.f3d" : "dense_float_og.f3d";
            good += own.load(sample(name), "2,density;", 0, -1, false, false) == kLoadOk;
        }
    });
    EXPECT_EQ(good, 12);
}

}  // namespace
}  // namespace nimbra
