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

/// The plug-in as the library makes it.
class Loader {
public:
    Loader() {
        desc_ = descriptor("NmbShaderPrtLoader");
        plugin = desc_->newPlugin();
        source = dynamic_cast<PerParticleDataSourceInterface*>(
            plugin->getInterface(ids::kPerParticleData));
        source2 = dynamic_cast<PerParticleDataSourceInterface2*>(
            plugin->getInterface(ids::kPerParticleData2));
    }
    ~Loader() { desc_->deletePlugin(plugin); }

    void set(const char* name, ParamScalar value) {
        values_.push_back(std::make_unique<DefParam>(name, std::move(value)));
        dynamic_cast<TessraPlugin*>(plugin)->setParameter(values_.back().get());
    }
    void setFile(const std::filesystem::path& path) { set("filesrc", path.string()); }

    Plugin* plugin = nullptr;
    PerParticleDataSourceInterface* source = nullptr;
    PerParticleDataSourceInterface2* source2 = nullptr;

private:
    PluginDesc* desc_ = nullptr;
    std::vector<std::unique_ptr<DefParam>> values_;
};

struct Lists {
    std::vector<Vector> positions, velocities;
    std::vector<float> sizes, ages;
    std::vector<std::int64_t> ids;

    Lists(Loader& loader, double time) {
        loader.source->getPositions(time, positions);
        loader.source->getVelocities(time, velocities);
        loader.source->getSizes(time, sizes);
        loader.source->getIds(time, ids);
        loader.source->getAges(time, ages);
    }
};

std::vector<std::string> bits(const Vector& v) {
    return {bitsOf(v.x), bitsOf(v.y), bitsOf(v.z)};
}
std::vector<std::string> bits(float v) {
    return {bitsOf(v)};
}

template <class T>
void expectList(const nlohmann::json& expected, const char* name, const std::vector<T>& got) {
    if (!expected.contains(name))
        return;
    SCOPED_TRACE(name);
    const nlohmann::json& list = expected.at(name);
    ASSERT_EQ(got.size(), list.at("length").get<std::size_t>());
    if (!list.contains("sample_index"))
        return;
    for (std::size_t k = 0; k < list["sample_index"].size(); ++k) {
        const auto i = list["sample_index"][k].get<std::size_t>();
        if constexpr (std::is_same_v<T, std::int64_t>) {
            EXPECT_EQ(got[i], list["sample_values"][k].get<std::int64_t>()) << i;
        } else {
            EXPECT_EQ(bits(got[i]), list["sample_bits"][k].get<std::vector<std::string>>()) << i;
        }
    }
    if (list.contains("crc32")) {
        EXPECT_EQ(crc32Of(std::as_bytes(std::span(got).subspan(1))), list["crc32"]);
    }
}

void expectFile(const nlohmann::json& expected, const std::filesystem::path& path) {
    PrtIO::PrtFile file;
    EXPECT_EQ(file.load(path.c_str()) != 0, expected.at("load").get<bool>());
    EXPECT_EQ(file.count, expected.at("count"));
    EXPECT_EQ(file.recordSize, expected.at("recordSize"));
    if (!expected.contains("channels"))
        return;
    ASSERT_EQ(static_cast<std::size_t>(file.channels.size), expected["channels"].size());
    for (std::int32_t i = 0; i < file.channels.size; ++i) {
        const auto& channel = expected["channels"][static_cast<std::size_t>(i)];
        EXPECT_EQ(file.channels[i].nameText(), channel.at("name"));
        EXPECT_EQ(file.channels[i].type, channel.at("type"));
        EXPECT_EQ(file.channels[i].arity, channel.at("arity"));
        EXPECT_EQ(file.channels[i].offset, channel.at("offset"));
    }
    const std::pair<const char*, std::int32_t> places[] = {{"Position", file.position},
                                                           {"Velocity", file.velocity},
                                                           {"Size", file.size},
                                                           {"Scale", file.scale},
                                                           {"Age", file.age},
                                                           {"ID", file.id},
                                                           {"Orientation", file.orientation},
                                                           {"Color", file.color}};
    for (const auto& [name, place] : places)
        EXPECT_EQ(place, expected["index"].at(name)) << name;
}

TEST(PrtLoader, GoldenFiles) {
    const auto cases = goldenInFolder("prt");
    ASSERT_FALSE(cases.empty());
    for (const GoldenCase& golden : cases) {
        SCOPED_TRACE(golden.name());
        const nlohmann::json& expected = golden.json;
        const auto path = golden.file(expected.at("file"));
        expectFile(expected, path);
        Loader loader;
        loader.setFile(path);
        loader.set("velmult", expected.value("velmult", 1.0f));
        EXPECT_EQ(loader.source->getCount(7), expected.at("getCount"));
        const Lists lists(loader, 7);
        expectList(expected, "positions", lists.positions);
        expectList(expected, "velocities", lists.velocities);
        expectList(expected, "sizes", lists.sizes);
        expectList(expected, "ids", lists.ids);
        expectList(expected, "ages", lists.ages);
    }
}

TEST(PrtLoader, Interfaces_AreThoseOfParticleSources) {
    Loader loader;
    ASSERT_NE(loader.source, nullptr);
    ASSERT_NE(loader.source2, nullptr);
    EXPECT_EQ(loader.source->getInterfaceID(), 0x77DEF48Du);
    EXPECT_EQ(loader.source2->getInterfaceID(), 0x77ED750Du);
    EXPECT_EQ(loader.source->getPlugin(), loader.plugin);
    EXPECT_EQ(loader.source->newInterface(ids::kPerParticleData2), loader.source2);
    EXPECT_NE(loader.plugin->getInterface(ids::kTessraPlugin), nullptr);
    EXPECT_EQ(loader.plugin->getInterface(ids::kNimbraSim), nullptr);
    EXPECT_FALSE(loader.source2->isInWorldSpace());
    // Without any question before that.
    loader.set("usetm", 0);
    EXPECT_TRUE(loader.source2->isInWorldSpace());
}

TEST(PrtLoader, WithoutFile_ListsHoldTheFillerAlone) {
    Loader loader;
    for (const char* path : {"", "/nowhere/at/all_####.prt"}) {
        loader.set("filesrc", std::string(path));
        EXPECT_EQ(loader.source->getCount(3), 1);
        const Lists lists(loader, 3);
        EXPECT_EQ(lists.positions, std::vector<Vector>{Vector()});
        EXPECT_EQ(lists.velocities.size(), 1u);
        EXPECT_EQ(lists.sizes, std::vector<float>{0.0f});
        EXPECT_EQ(lists.ages, std::vector<float>{0.0f});
        EXPECT_EQ(lists.ids, std::vector<std::int64_t>{0});
    }
    // A file that was held before doesn't show through an unset name.
    TempFolder folder;
    loader.setFile(folder.write("a.prt", prtBytes(simplePrt(4))));
    EXPECT_EQ(loader.source->getCount(0), 5);
    loader.set("filesrc", std::string());
    EXPECT_EQ(loader.source->getCount(0), 1);
}

TEST(PrtLoader, Times_AskForTheNearestFrameOnce) {
    TempFolder folder;
    for (int frame = 0; frame < 6; ++frame)
        folder.write("p_000" + std::to_string(frame) + ".prt", prtBytes(simplePrt(10 + frame)));
    Loader loader;
    setenv("NIMBRA_TEST_FOLDER", (folder / "").c_str(), 1);
    loader.setFile("$env(NIMBRA_TEST_FOLDER)p_####.prt");
    const std::pair<double, int> frames[] = {{4.5, 5}, {4.49, 4}, {-0.5, 0}, {0.49, 0}, {3, 3}};
    for (const auto& [time, frame] : frames)
        EXPECT_EQ(loader.source->getCount(time), 11 + frame) << time;
    // Held files and failures aren't looked for again.
    std::filesystem::remove(folder / "p_0003.prt");
    EXPECT_EQ(loader.source->getCount(3.2), 14);
    EXPECT_EQ(loader.source->getCount(9), 1);
    folder.write("p_0009.prt", prtBytes(simplePrt(2)));
    EXPECT_EQ(loader.source->getCount(9), 1);
    EXPECT_EQ(loader.source->getCount(2), 13);
    EXPECT_EQ(loader.source->getCount(9), 3);
    for (const double time : {1e300, -1e300, std::nan("")})
        EXPECT_EQ(loader.source->getCount(time), 1);
}

TEST(PrtLoader, Channels_FillTheListsOfTheMask) {
    TempFolder folder;
    PrtSpec spec = simplePrt(3);
    spec.channels[2].name = "Ids";
    Loader loader;
    loader.setFile(folder.write("a.prt", prtBytes(spec)));
    PerParticleChannels out;
    out.velocities = {Vector{1, 2, 3}};
    loader.source->getChannels(out, 0, kPerParticlePositions | kPerParticleSizes | kPerParticleIds);
    EXPECT_EQ(out.positions.size(), 4u);
    EXPECT_EQ(out.positions[3], (Vector{2, 2.25f, 2.5f}));
    EXPECT_EQ(out.sizes, (std::vector<float>{0, 0, 2, 4}));
    EXPECT_TRUE(out.ids.empty());
    EXPECT_EQ(out.velocities.size(), 1u);
    loader.set("velmult", -1.0f);
    loader.source->getChannels(out, 0, kPerParticleVelocities);
    EXPECT_EQ(out.velocities, std::vector<Vector>(4));
    EXPECT_FALSE(std::signbit(out.velocities[1].x));
    // Without sizes: none in the bulk form, ones in the list of its own.
    spec.channels[1].name = "Radius";
    loader.setFile(folder.write("b.prt", prtBytes(spec)));
    loader.source->getChannels(out, 0, kPerParticleSizes);
    EXPECT_TRUE(out.sizes.empty());
    EXPECT_EQ(Lists(loader, 0).sizes, (std::vector<float>{0, 1, 1, 1}));

    std::vector<PluginBase*> objects(2);
    std::vector<Transform> transforms(1);
    std::vector<int> which(5);
    loader.source->getInstances(0, objects, transforms, which);
    EXPECT_TRUE(objects.empty() && transforms.empty() && which.empty());
}

}  // namespace
}  // namespace nimbra
