// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library's face: its list of descriptors and what hosts ask of each.
#include "plugin/plugin_table.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tessra/ids.h"
#include "tessra/tessra_plugin.h"

namespace nimbra {
namespace {

using namespace TessUtils;

struct Collect : EnumPluginCallback {
    std::vector<PluginDesc*> found;
    std::size_t limit = 100;
    int process(PluginDesc* desc) override {
        found.push_back(desc);
        return found.size() < limit;
    }
};

std::vector<PluginDesc*> descriptors() {
    Collect collect;
    libDesc().enumPlugins(&collect);
    return collect.found;
}

TEST(PluginTable, Enumeration_NewestFirstUntilZero) {
    EXPECT_STREQ(libDesc().getName(), "Nimbra");
    EXPECT_STREQ(libDesc().getDescription(), "Nimbra plugin for Tessra");
    EXPECT_EQ(libDesc().enumPlugins(nullptr), 12);

    std::vector<std::string> names;
    for (PluginDesc* desc : descriptors())
        names.push_back(desc->getName());
    const std::vector<std::string> expected = {
        "NmbShaderTexAlpha",    "NmbShaderSimVol", "NmbShaderPrtLoader", "NmbShaderPGroup",
        "NmbShaderFoam",        "NmbShaderSim",    "NmbShaderCache",     "NmbShaderOceanTex",
        "NmbShaderParticleTex", "NmbShaderTex",    "NmbShaderSimMesh",   "NmbShaderSimGeom"};
    EXPECT_EQ(names, expected);

    Collect stopping;
    stopping.limit = 1;
    EXPECT_EQ(libDesc().enumPlugins(&stopping), 1);
    stopping.limit = 4;
    stopping.found.clear();
    EXPECT_EQ(libDesc().enumPlugins(&stopping), 4);
}

TEST(PluginTable, Identity_IsPersistent) {
    const std::map<std::string, PluginID> ids = {
        {"NmbShaderSimGeom", 20110223011},  {"NmbShaderSimMesh", 20130401011},
        {"NmbShaderTex", 20110223021},      {"NmbShaderParticleTex", 20160811011},
        {"NmbShaderOceanTex", 20130613021}, {"NmbShaderCache", 20110223051},
        {"NmbShaderSim", 20110223031},      {"NmbShaderFoam", 20110930011},
        {"NmbShaderPGroup", 20110930021},   {"NmbShaderPrtLoader", 20150611011},
        {"NmbShaderSimVol", 20110223041},   {"NmbShaderTexAlpha", 20111124021},
    };
    for (PluginDesc* desc : descriptors())
        EXPECT_EQ(desc->getPluginID(), ids.at(desc->getName())) << desc->getName();
}

TEST(PluginTable, SupportsInterface_OnePairEach) {
    const std::vector<InterfaceID> kinds = {ids::kStaticGeomSource, ids::kTexture, ids::kNimbraSim,
                                            ids::kRenderSettings};
    const std::map<std::string, InterfaceID> expected = {
        {"NmbShaderSimGeom", ids::kStaticGeomSource},
        {"NmbShaderSimMesh", ids::kStaticGeomSource},
        {"NmbShaderTex", ids::kTexture},
        {"NmbShaderParticleTex", ids::kTexture},
        {"NmbShaderOceanTex", ids::kTexture},
        {"NmbShaderTexAlpha", ids::kTexture},
        {"NmbShaderCache", ids::kNimbraSim},
        {"NmbShaderSim", ids::kNimbraSim},
        {"NmbShaderFoam", ids::kNimbraSim},
        {"NmbShaderPGroup", ids::kNimbraSim},
        {"NmbShaderPrtLoader", ids::kNimbraSim},
        {"NmbShaderSimVol", ids::kRenderSettings},
    };
    for (PluginDesc* desc : descriptors()) {
        EXPECT_TRUE(desc->supportsInterface(ids::kTessraPlugin));
        EXPECT_FALSE(desc->supportsInterface(0));
        EXPECT_FALSE(desc->supportsInterface(ids::kSceneModifier));
        for (InterfaceID kind : kinds)
            EXPECT_EQ(desc->supportsInterface(kind), kind == expected.at(desc->getName()))
                << desc->getName() << " " << kind;
    }
}

}  // namespace
}  // namespace nimbra
