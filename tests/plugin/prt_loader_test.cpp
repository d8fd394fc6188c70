// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The loader of PRT files as hosts see it.
#include "cache/prt_loader_plugin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

#include "plugin/fake_host.h"
#include "support/golden.h"
#include "support/prt_writer.h"
#include "support/temp_folder.h"

namespace nimbra {
namespace {

using namespace test;
using namespace TessUtils;

using nlohmann::json;

class PrtLoader : public testing::Test {
protected:
    void set(const char* name, ParamScalar value) { loader.set(name, std::move(value)); }
    void setFile(const std::filesystem::path& path) { set("filesrc", path.string()); }

    TempFolder folder;
    Made<NimbraPrtLoaderPlugin> loader{"NmbShaderPrtLoader"};
};

struct Lists {
    std::vector<Vector> positions, velocities;
    std::vector<float> sizes, ages;
    std::vector<std::int64_t> ids;

    Lists(PerParticleDataSourceInterface& source, double time) {
        source.getPositions(time, positions);
        source.getVelocities(time, velocities);
        source.getSizes(time, sizes);
        source.getIds(time, ids);
        source.getAges(time, ages);
    }
};

json sampleOf(const Vector& v) {
    return json::array({bitsOf(v.x), bitsOf(v.y), bitsOf(v.z)});
}
json sampleOf(float v) {
    return json::array({bitsOf(v)});
}
json sampleOf(std::int64_t v) {
    return v;
}

template <class T>
void expectList(const json& expected, const char* name, const std::vector<T>& got) {
    SCOPED_TRACE(name);
    const json list = expected.value(name, json{{"length", got.size()}});
    ASSERT_EQ(got.size(), list.at("length").get<std::size_t>());
    const json index = list.value("sample_index", json::array());
    for (std::size_t k = 0; k < index.size(); ++k)
        EXPECT_EQ(sampleOf(got[index[k].get<std::size_t>()]),
                  list.at(list.contains("sample_bits") ? "sample_bits" : "sample_values")[k])
            << index[k];
    if (list.contains("crc32")) {
        EXPECT_EQ(crc32Of(std::as_bytes(std::span(got).subspan(1))), list["crc32"]);
    }
}

/// What a file holds, with the names of golden files.
json described(const PrtIO::PrtFile& file) {
    json channels = json::array();
    for (std::int32_t i = 0; i < file.channels.size; ++i) {
        const PrtIO::PRTChannelDefinition& c = file.channels[i];
        channels.push_back(
            {{"name", c.nameText()}, {"type", c.type}, {"arity", c.arity}, {"offset", c.offset}});
    }
    return {{"count", file.count},
            {"recordSize", file.recordSize},
            {"channels", channels},
            {"index",
             {{"Position", file.position},
              {"Velocity", file.velocity},
              {"Size", file.size},
              {"Scale", file.scale},
              {"Age", file.age},
              {"ID", file.id},
              {"Orientation", file.orientation},
              {"Color", file.color}}}};
}

TEST_F(PrtLoader, GoldenFiles) {
    const auto cases = goldenInFolder("prt");
    ASSERT_FALSE(cases.empty());
    for (const GoldenCase& golden : cases) {
        SCOPED_TRACE(golden.name());
        const json& expected = golden.json;
        const auto path = golden.file(expected.at("file"));
        PrtIO::PrtFile file;
        EXPECT_EQ(file.load(path.c_str()) != 0, expected.at("load").get<bool>());
        const json found = described(file);
        for (const auto& [key, value] : found.items())
            EXPECT_EQ(value, expected.value(key, value)) << key;
        setFile(path);
        set("velmult", expected.value("velmult", 1.0f));
        EXPECT_EQ(loader->getCount(7), expected.at("getCount"));
        const Lists lists(*loader.get(), 7);
        expectList(expected, "positions", lists.positions);
        expectList(expected, "velocities", lists.velocities);
        expectList(expected, "sizes", lists.sizes);
        expectList(expected, "ids", lists.ids);
        expectList(expected, "ages", lists.ages);
    }
}

TEST_F(PrtLoader, Interfaces_AreThoseOfParticleSources) {
    auto* const source = loader->getInterface(0x77DEF48Du);
    auto* const source2 =
        dynamic_cast<PerParticleDataSourceInterface2*>(loader->getInterface(0x77ED750Du));
    ASSERT_TRUE(source && source2);
    EXPECT_EQ(source->getInterfaceID(), 0x77DEF48Du);
    EXPECT_EQ(source->getPlugin(), loader.get());
    EXPECT_EQ(source->newInterface(0x77ED750Du), source2);
    EXPECT_NE(loader->getInterface(ids::kTessraPlugin), nullptr);
    EXPECT_EQ(loader->getInterface(ids::kNimbraSim), nullptr);
    EXPECT_FALSE(source2->isInWorldSpace());
    // Without any question before that.
    set("usetm", 0);
    EXPECT_TRUE(source2->isInWorldSpace());
}

TEST_F(PrtLoader, WithoutFile_ListsHoldTheFillerAlone) {
    for (const char* path : {"", "/nowhere/at/all_####.prt"}) {
        set("filesrc", std::string(path));
        EXPECT_EQ(loader->getCount(3), 1);
        const Lists lists(*loader.get(), 3);
        EXPECT_EQ(lists.positions, std::vector<Vector>{Vector()});
        EXPECT_EQ(lists.velocities.size(), 1u);
        EXPECT_EQ(lists.sizes, std::vector<float>{0.0f});
        EXPECT_EQ(lists.ages, std::vector<float>{0.0f});
        EXPECT_EQ(lists.ids, std::vector<std::int64_t>{0});
    }
    // A file that was held before doesn't show through an unset name.
    setFile(folder.write("a.prt", prtBytes(simplePrt(4))));
    EXPECT_EQ(loader->getCount(0), 5);
    set("filesrc", std::string());
    EXPECT_EQ(loader->getCount(0), 1);
}

TEST_F(PrtLoader, Times_AskForTheNearestFrameOnce) {
    for (int frame = 0; frame < 6; ++frame)
        folder.write("p_000" + std::to_string(frame) + ".prt", prtBytes(simplePrt(10 + frame)));
    setenv("NIMBRA_TEST_FOLDER", (folder / "").c_str(), 1);
    setFile("$env(NIMBRA_TEST_FOLDER)p_####.prt");
    const std::pair<double, int> frames[] = {{4.5, 5}, {4.49, 4}, {-0.5, 0}, {0.49, 0}, {3, 3}};
    for (const auto& [time, frame] : frames)
        EXPECT_EQ(loader->getCount(time), 11 + frame) << time;
    // Held files and failures aren't looked for again.
    std::filesystem::remove(folder / "p_0003.prt");
    EXPECT_EQ(loader->getCount(3.2), 14);
    EXPECT_EQ(loader->getCount(9), 1);
    folder.write("p_0009.prt", prtBytes(simplePrt(2)));
    EXPECT_EQ(loader->getCount(9), 1);
    EXPECT_EQ(loader->getCount(2), 13);
    EXPECT_EQ(loader->getCount(9), 3);
    for (const double time : {1e300, -1e300, std::nan("")})
        EXPECT_EQ(loader->getCount(time), 1);
}

TEST_F(PrtLoader, Channels_FillTheListsOfTheMask) {
    PrtSpec spec = simplePrt(3);
    spec.channels[2].name = "Ids";
    setFile(folder.write("a.prt", prtBytes(spec)));
    PerParticleChannels out;
    out.velocities = {Vector{1, 2, 3}};
    loader->getChannels(out, 0, kPerParticlePositions | kPerParticleSizes | kPerParticleIds);
    EXPECT_EQ(out.positions.size(), 4u);
    EXPECT_EQ(out.positions[3], (Vector{2, 2.25f, 2.5f}));
    EXPECT_EQ(out.sizes, (std::vector<float>{0, 0, 2, 4}));
    EXPECT_TRUE(out.ids.empty());
    EXPECT_EQ(out.velocities.size(), 1u);
    set("velmult", -1.0f);
    loader->getChannels(out, 0, kPerParticleVelocities);
    EXPECT_EQ(out.velocities, std::vector<Vector>(4));
    EXPECT_FALSE(std::signbit(out.velocities[1].x));
    // Without sizes: none in the bulk form, ones in the list of its own.
    spec.channels[1].name = "Radius";
    setFile(folder.write("b.prt", prtBytes(spec)));
    loader->getChannels(out, 0, kPerParticleSizes);
    EXPECT_TRUE(out.sizes.empty());
    EXPECT_EQ(Lists(*loader.get(), 0).sizes, (std::vector<float>{0, 1, 1, 1}));

    std::vector<PluginBase*> objects(2);
    std::vector<Transform> transforms(1);
    std::vector<int> which(5);
    loader->getInstances(0, objects, transforms, which);
    EXPECT_TRUE(objects.empty() && transforms.empty() && which.empty());
}

}  // namespace
}  // namespace nimbra
