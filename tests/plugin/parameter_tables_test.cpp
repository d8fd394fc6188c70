// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter tables: scenes name their rows, so their shape may not drift.
#include "plugin/parameter_tables.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tessra/ids.h"

namespace nimbra {
namespace {

using namespace TessUtils;
using Build = void (*)(TessraParameterListDesc&);

const struct {
    const char* name;
    Build build;
    std::size_t rows;
} kTables[] = {
    {"geom", buildGeomParameters, 4},
    {"mesh", buildMeshParameters, 2},
    {"tex", buildTexParameters, 29 + 8},
    {"particle tex", buildParticleTexParameters, 29 + 26},
    {"ocean tex", buildOceanTexParameters, 17},
    {"cache", buildCacheParameters, 31},
    {"sim", buildSimParameters, 170},
    {"particle shader", buildParticleShaderParameters, 76},
    {"pgroup", buildPGroupParameters, 6},
    {"prt loader", buildPrtLoaderParameters, 3},
    {"vol", buildVolParameters, 2},
    {"tex alpha", buildTexAlphaParameters, 3},
};

void forEachRow(const std::function<void(const std::string&, const ParameterDef&)>& check) {
    for (const auto& table : kTables) {
        TessraParameterListDesc desc;
        table.build(desc);
        for (const ParameterDef& row : desc.rows())
            check(std::string(table.name) + "." + row.name, row);
    }
}

TEST(ParameterTables, EveryTable_HasItsRows) {
    for (const auto& table : kTables) {
        TessraParameterListDesc desc;
        table.build(desc);
        EXPECT_EQ(desc.rows().size(), table.rows) << table.name;
        std::set<std::string> names;
        for (const ParameterDef& row : desc.rows())
            EXPECT_TRUE(names.insert(row.name).second) << table.name << "." << row.name;
    }
}

TEST(ParameterTables, Sim_KeepsItsOrder) {
    TessraParameterListDesc desc;
    buildSimParameters(desc);
    // The first row of each group of controls, and where it stands.
    const std::map<std::size_t, std::string> places = {
        {0, "renderAsVolumetric"},
        {10, "sarg"},
        {14, "displacement"},
        {24, "rendstep"},
        {66, "usefadeobj"},
        {70, "mesher"},
        {83, "normalized_positions"},
        {102, "mod_d"},
        {113, "mod_t"},
        {127, "varg"},
        {131, "usegizmo"},
        {135, "al_enable"},
        {151, "generate_gi"},
        {163, "channels"},
        {169, "volzdepth"},
    };
    for (const auto& [place, name] : places)
        EXPECT_EQ(desc.rows()[place].name, name) << place;
}

TEST(ParameterTables, Lists_HaveNoDefault) {
    forEachRow([](const std::string& name, const ParameterDef& row) {
        const bool value = row.type != paramtype_plugin && row.count != kList && !row.isOutput;
        const bool emptySlot = name == "tex alpha.ttex";
        EXPECT_EQ(row.hasDefault, value && !emptySlot) << name;
        EXPECT_EQ(row.defaultValue != nullptr, row.hasDefault) << name;
        EXPECT_TRUE(row.type != paramtype_plugin || row.interfaceID != 0) << name;
    });
}

// A hint is a comma-separated list of keys with bracketed values, brackets nesting.
std::vector<std::string> hintKeys(const std::string& hint) {
    std::vector<std::string> keys;
    std::size_t at = 0;
    while (at < hint.size()) {
        const std::size_t open = hint.find("=(", at);
        if (open == std::string::npos)
            return {};
        keys.push_back(hint.substr(at, open - at));
        int depth = 0;
        std::size_t close = open + 1;
        do {
            depth += hint[close] == '(' ? 1 : hint[close] == ')' ? -1 : 0;
            ++close;
        } while (depth > 0 && close < hint.size());
        if (depth != 0 || (close < hint.size() && hint.compare(close, 2, ", ") != 0))
            return {};
        at = close + 2;
    }
    return keys;
}

TEST(ParameterTables, Hints_AreWellFormed) {
    const std::set<std::string> known = {
        "displayName",  "enum",       "minValue",  "maxValue",       "enable",
        "startRollout", "attributes", "fileAsset", "fileAssetNames", "fileAssetOp"};
    int hints = 0;
    forEachRow([&](const std::string& name, const ParameterDef& row) {
        if (!row.uiHint)
            return;
        ++hints;
        const std::vector<std::string> keys = hintKeys(row.uiHint);
        EXPECT_FALSE(keys.empty()) << name << ": " << row.uiHint;
        for (const std::string& key : keys)
            EXPECT_TRUE(known.count(key)) << name << ": " << key;
    });
    EXPECT_GT(hints, 80);
}

TEST(ParameterTables, Defaults_ReadAsTheirType) {
    TessraParameterListDesc sim, cache, tex;
    buildSimParameters(sim);
    buildCacheParameters(cache);
    buildTexParameters(tex);
    EXPECT_EQ(sim.findParamDef("simple_color")->defaultValue->getAColor(0, 0),
              (AColor{{0.2f, 0.2f, 0.2f}, 1.0f}));
    EXPECT_EQ(sim.findParamDef("rendMode")->defaultValue->getInt(0, 0), -1);
    EXPECT_EQ(sim.findParamDef("stoptransp")->defaultValue->getFloat(0, 0), 0.999f);
    EXPECT_EQ(sim.findParamDef("cell_aspect")->defaultValue->getCount(0), 3);
    EXPECT_EQ(sim.findParamDef("cell_aspect")->defaultValue->getFloat(2, 0), 1.0f);
    EXPECT_EQ(sim.findParamDef("lightlinks")->interfaceID, ids::kLight);
    EXPECT_EQ(sim.findParamDef("ecolor_remap")->interfaceID, ids::kColorRemap);
    EXPECT_EQ(sim.findParamDef("transp_remap")->interfaceID, ids::kFloatRemap);
    EXPECT_EQ(cache.findParamDef("smooth_threshold")->count, 32);
    EXPECT_EQ(cache.findParamDef("TPF")->defaultValue->getInt(0, 0), 1000);
    EXPECT_EQ(tex.rows()[9].name, "color");
    EXPECT_TRUE(tex.rows()[9].isOutput);
    EXPECT_EQ(tex.rows()[29].name, "nimbra_sim");
}

}  // namespace
}  // namespace nimbra
