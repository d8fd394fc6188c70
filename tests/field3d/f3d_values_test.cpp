// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Real files against what the library that wrote them reads back: structure, boxes, mappings,
// metadata, statistics, check sums of all values, and single voxels.
#include <Imath/half.h>
#include <gtest/gtest.h>

#include <cmath>

#include "field3d/f3d_cases.h"
#include "field3d/f3d_file.h"
#include "field3d/f3d_info.h"
#include "field3d/f3d_voxels.h"
#include "support/golden.h"

namespace nimbra {
namespace {

using nlohmann::json;
using test::F3dCase;

// Numbers that aren't finite stand as texts.
double numberOf(const json& value) {
    if (!value.is_string())
        return value.get<double>();
    const std::string text = value;
    return text == "NaN" ? NAN : text == "Inf" ? INFINITY : -INFINITY;
}

const F3dLayer* findLayer(const F3dFile& file, const std::string& partition,
                          const std::string& name, const F3dPartition*& owner) {
    for (const F3dPartition& p : file.partitions())
        for (const F3dLayer& layer : p.layers)
            if (p.diskName == partition && layer.name == name) {
                owner = &p;
                return &layer;
            }
    return nullptr;
}

void expectBox(const F3dBox& box, const json& expected) {
    for (int a = 0; a < 3; ++a) {
        EXPECT_EQ(box.low[a], expected["min"][a].get<std::int64_t>());
        EXPECT_EQ(box.high[a], expected["max"][a].get<std::int64_t>());
    }
}

// A list for vectors, a number for scalars.
double componentOf(const json& value, int component) {
    return numberOf(value.is_array() ? value[component] : value);
}

void expectMapping(const F3dPartition& partition, const F3dLayer& layer, const json& expected) {
    EXPECT_EQ(partition.mapping.type, expected["type"].get<std::string>());
    const bool frustum = expected["type"] == "FrustumFieldMapping";
    EXPECT_EQ(partition.mapping.problem.empty(), !frustum) << partition.mapping.problem;
    if (!expected.contains("voxel_to_world"))
        return;
    const F3dAffine m = partition.mapping.voxelToWorld(layer.extents);
    for (int row = 0; row < 4; ++row)
        for (int x = 0; x < 3; ++x)
            EXPECT_NEAR(m[row][x], numberOf(expected["voxel_to_world"][row * 4 + x]), 1e-9);
    F3dAffine back;
    ASSERT_TRUE(inverted(m, back));
    for (const json& point : expected["points"]) {
        if (numberOf(point["time"]) != 0)
            continue;
        std::array<double, 3> voxel, world;
        for (int x = 0; x < 3; ++x) {
            voxel[x] = numberOf(point["voxel"][x]);
            world[x] = numberOf(point["world"][x]);
        }
        const auto there = transformed(m, voxel), here = transformed(back, world);
        for (int x = 0; x < 3; ++x) {
            EXPECT_NEAR(there[x], world[x], 1e-9);
            EXPECT_NEAR(here[x], voxel[x], 1e-7);
        }
    }
}

using Voxels = std::vector<std::vector<float>>;

template <class Stored>
std::string crcOf(const Voxels& voxels) {
    std::vector<Stored> all;
    for (std::size_t i = 0; i < voxels[0].size(); ++i)
        for (const auto& component : voxels)
            all.push_back(Stored(component[i]));
    return test::crc32Of(std::as_bytes(std::span(all)));
}

void expectVoxels(const F3dLayer& layer, const Voxels& voxels, const json& expected) {
    const json& stats = expected["stats"];
    // Doubles were made smaller, so their check sums are not ours.
    if (layer.element == F3dElement::Float16) {
        EXPECT_EQ(crcOf<Imath::half>(voxels), stats["crc32"].get<std::string>());
    } else if (layer.element == F3dElement::Float32) {
        EXPECT_EQ(crcOf<float>(voxels), stats["crc32"].get<std::string>());
    }
    for (const json& sample : expected["samples"]) {
        std::int64_t index = 0;
        for (int a = 2; a >= 0; --a)
            index = index * layer.window.size(a) + sample[0][a].get<std::int64_t>() -
                    layer.window.low[a];
        for (int c = 0; c < layer.components; ++c) {
            const double value = componentOf(sample[1], c), got = voxels[c][index];
            if (std::isfinite(value))
                EXPECT_NEAR(got, value, 6e-8 * std::fabs(value)) << sample.dump();
            else
                EXPECT_TRUE(std::isnan(value) ? std::isnan(got) : got == value) << sample.dump();
        }
    }
}

void expectLayer(F3dFile& file, const std::string& partitionName, const json& expected) {
    const std::string name = expected["name"];
    SCOPED_TRACE(partitionName + " / " + name.substr(0, 60));
    const F3dPartition* partition = nullptr;
    const F3dLayer* const layer = findLayer(file, partitionName, name, partition);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->className, expected["class"].get<std::string>());
    if (expected.contains("readable") && !expected["readable"].get<bool>()) {
        EXPECT_FALSE(layer->readable());
        return;
    }
    ASSERT_EQ(layer->problem, "");
    EXPECT_STREQ(elementName(layer->element), expected["type"].get<std::string>().c_str());
    ASSERT_EQ(layer->components, expected["components"].get<int>());
    expectBox(layer->extents, expected["extents"]);
    expectBox(layer->window, expected["data_window"]);
    expectMapping(*partition, *layer, expected["mapping"]);
    EXPECT_EQ(layer->metadata.size(), expected["metadata"].size());
    for (const auto& [key, text] : layer->metadata) {
        ASSERT_TRUE(expected["metadata"].contains(key)) << key;
        const json& value = expected["metadata"][key]["value"];
        if (value.is_string() && expected["metadata"][key]["type"] == "string")
            EXPECT_EQ(text, value.get<std::string>()) << key;
        else
            EXPECT_NEAR(std::atof(text.c_str()), componentOf(value, 0),
                        1e-6 * std::fabs(componentOf(value, 0)))
                << key;
    }

    Voxels voxels(layer->components, std::vector<float>(layer->voxels()));
    std::vector<F3dTarget> targets;
    for (int c = 0; c < layer->components; ++c)
        targets.push_back({voxels[c].data(), layer->window, c, 1});
    std::string problem;
    ASSERT_TRUE(readVoxels(file, *layer, targets, problem)) << problem;
    expectVoxels(*layer, voxels, expected);
}

void expectStatistics(const F3dLayerInfo& info, const json& stats) {
    EXPECT_TRUE(info.hasValues);
    EXPECT_EQ(info.voxels, stats["voxels"].get<std::uint64_t>());
    EXPECT_EQ(info.nonzeroVoxels, stats["nonzero_voxels"].get<std::int64_t>());
    EXPECT_EQ(info.nanCount + info.infiniteCount, stats["nonfinite_values"].get<std::int64_t>());
    for (int c = 0; c < info.components; ++c) {
        const double least = componentOf(stats["min"], c), most = componentOf(stats["max"], c);
        const double slack = 1e-7 * std::max(std::fabs(least), std::fabs(most));
        EXPECT_NEAR(info.min[c], least, slack);
        EXPECT_NEAR(info.max[c], most, slack);
        EXPECT_NEAR(info.mean[c], componentOf(stats["mean"], c), slack);
    }
}

TEST(F3dValues, AllFilesAndTheirListings_HoldWhatTheirWriterReadsBack) {
    const std::vector<F3dCase> cases = test::f3dCases();
    ASSERT_GT(cases.size(), 60u);
    for (const F3dCase& c : cases) {
        SCOPED_TRACE(c.path);
        F3dFile file;
        ASSERT_TRUE(file.open(c.path)) << file.problem();
        EXPECT_EQ(file.isHdf5(), c.json["container"] == "hdf5");
        EXPECT_EQ(file.version(), c.json["version"].get<std::vector<int>>());
        EXPECT_EQ(file.metadata().size(), c.json["global_metadata"].size());
        std::size_t layers = 0, expectedLayers = 0;
        for (const F3dPartition& p : file.partitions())
            layers += p.layers.size();
        for (const json& p : c.json["partitions"])
            for (const json& layer : p["layers"]) {
                ++expectedLayers;
                expectLayer(file, p["disk_name"], layer);
            }
        EXPECT_EQ(layers, expectedLayers);
        const F3dFileInfo info = readF3dInfo(c.path);
        ASSERT_TRUE(info.readable) << info.problem;
        for (const json& p : c.json["partitions"])
            for (const json& layer : p["layers"])
                for (const F3dLayerInfo& l : info.layers)
                    if (l.partition == p["disk_name"] && l.name == layer["name"] &&
                        layer.contains("stats"))
                        expectStatistics(l, layer["stats"]);
    }
}

}  // namespace
}  // namespace nimbra
