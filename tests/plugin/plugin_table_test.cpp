// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library's face: its list of descriptors and what hosts ask of each.
#include "plugin/plugin_table.h"

#include <gtest/gtest.h>

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

// Newest first; names and numbers are stored in scenes.
const struct {
    const char* name;
    PluginID id;
    InterfaceID kind;
} kKinds[] = {{"NmbShaderTexAlpha", 20111124021, ids::kTexture},
              {"NmbShaderSimVol", 20110223041, ids::kRenderSettings},
              {"NmbShaderPrtLoader", 20150611011, ids::kNimbraSim},
              {"NmbShaderPGroup", 20110930021, ids::kNimbraSim},
              {"NmbShaderFoam", 20110930011, ids::kNimbraSim},
              {"NmbShaderSim", 20110223031, ids::kNimbraSim},
              {"NmbShaderCache", 20110223051, ids::kNimbraSim},
              {"NmbShaderOceanTex", 20130613021, ids::kTexture},
              {"NmbShaderParticleTex", 20160811011, ids::kTexture},
              {"NmbShaderTex", 20110223021, ids::kTexture},
              {"NmbShaderSimMesh", 20130401011, ids::kStaticGeomSource},
              {"NmbShaderSimGeom", 20110223011, ids::kStaticGeomSource}};

TEST(PluginTable, Enumeration_GivesAllKindsUntilZero) {
    EXPECT_STREQ(libDesc().getName(), "Nimbra");
    EXPECT_STREQ(libDesc().getDescription(), "Nimbra plugin for Tessra");
    EXPECT_EQ(libDesc().enumPlugins(nullptr), 12);
    Collect all;
    EXPECT_EQ(libDesc().enumPlugins(&all), 12);
    ASSERT_EQ(all.found.size(), std::size(kKinds));
    for (std::size_t i = 0; i < all.found.size(); ++i) {
        PluginDesc* const desc = all.found[i];
        EXPECT_STREQ(desc->getName(), kKinds[i].name);
        EXPECT_EQ(desc->getPluginID(), kKinds[i].id) << desc->getName();
        EXPECT_TRUE(desc->supportsInterface(ids::kTessraPlugin));
        for (InterfaceID id : {ids::kStaticGeomSource, ids::kTexture, ids::kNimbraSim,
                               ids::kRenderSettings, ids::kSceneModifier, InterfaceID(0)})
            EXPECT_EQ(desc->supportsInterface(id), id == kKinds[i].kind)
                << desc->getName() << " " << id;
    }
    for (const std::size_t limit : {1u, 4u}) {
        Collect stopping;
        stopping.limit = limit;
        EXPECT_EQ(libDesc().enumPlugins(&stopping), static_cast<int>(limit));
    }
}

}  // namespace
}  // namespace nimbra
