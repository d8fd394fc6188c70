// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/parameters.h"

#include <gtest/gtest.h>

#include <string>

#include "tessra/parameter_values.h"
#include "tessra/texture.h"

namespace TessUtils {
namespace {

/// An object with a colour and a float texture behind it.
class TextureObject : public PluginBase {
public:
    struct ColorTexture : TextureInterface {
        AColor getTexColor(const TextureContext&) override { return {}; }
    } color;
    struct FloatTexture : TextureFloatInterface {
        float getTexFloat(const TextureContext&) override { return 0; }
    } number;
    PluginInterface* getInterface(InterfaceID id) override {
        if (id == ids::kTexture)
            return &color;
        if (id == ids::kTextureFloat)
            return &number;
        return PluginBase::getInterface(id);
    }
};

/// A table with a row of every kind.
class ParametersTest : public testing::Test {
protected:
    ParametersTest() {
        table.addParamBool("on", true, -1, "a switch", "displayName(On)");
        table.addParamInt("steps", 90);
        table.addParamFloat("scale", 0.5f);
        table.addParamString("path", "a.vdb");
        table.addParamColor("tint", {1, 0.5f, 0.25f});
        table.addParamAColor("fill", {{1, 2, 3}, 0.5f});
        const AColor black{{0, 0, 0}, 1};
        table.addParamTexture("tex", &black);
        table.addParamTextureFloat("ftex");
        Transform moved;
        moved.offs = {1, 2, 3};
        table.addParamTransform("tm", true, moved);
        table.addParamPlugin("cache", 77);
        table.addParamPlugin("caches", 77, 0);
        table.addParam("any", paramtype_list, 0);
        table.addParamFloat("four", 3.0f, 4);
        table.addParamInt("several", 1, 0);
        table.addOutputParamTexture("out");
        table.addOutputParamTextureFloat("fout");
    }
    TessraParameterListDesc table;
    TextureObject object;
};

TEST_F(ParametersTest, ConnectedObjects_ComeAsTheirInterfaces) {
    TessraParameterList list(&table);
    TextureInterface* tex = nullptr;
    TextureFloatInterface* ftex = nullptr;
    PluginBase* cache = nullptr;
    TessraPluginList caches;
    list.setParamCache("tex", &tex);
    list.setParamCache("ftex", &ftex);
    list.setParamCache("cache", &cache);
    list.setParamCache("caches", &caches);
    PluginBase bare;
    DefParam texValue("tex", static_cast<PluginBase*>(&object));
    DefParam ftexValue("ftex", static_cast<PluginBase*>(&object));
    DefParam cacheValue("cache", static_cast<PluginBase*>(&bare));
    DefParam cachesValue("caches", paramtype_plugin,
                         {static_cast<PluginBase*>(&bare), static_cast<PluginBase*>(nullptr)});
    for (DefParam* value : {&texValue, &ftexValue, &cacheValue, &cachesValue})
        EXPECT_TRUE(list.setParameter(value));
    list.cacheParams(0);
    EXPECT_EQ(tex, &object.color);
    EXPECT_EQ(ftex, &object.number);
    EXPECT_EQ(cache, &bare);
    EXPECT_EQ(caches, (TessraPluginList{&bare, nullptr}));

    DefParam noTexture("tex", static_cast<PluginBase*>(&bare));
    DefParam single("caches", static_cast<PluginBase*>(&bare));
    list.setParameter(&noTexture);
    list.setParameter(&single);
    list.cacheParams(0);
    EXPECT_EQ(tex, nullptr);
    EXPECT_EQ(caches, TessraPluginList{&bare});
}

TEST_F(ParametersTest, Enumeration_GivesSetRowsInTableOrderUntilToldToStop) {
    struct Collect : EnumParameterCallback {
        std::string names;
        std::string last;
        int process(TessraPluginParameter* parameter) override {
            names += parameter->getName() + std::string(" ");
            return parameter->getName() != last;
        }
    };
    TessraParameterList* const list = table.newParameterList();
    DefParam scale("scale", 1.0f), on("on", false), tint("tint", Color());
    for (DefParam* value : {&tint, &scale, &on})
        list->setParameter(value);
    Collect all;
    EXPECT_EQ(list->enumParams(&all), 3);
    EXPECT_EQ(all.names, "on scale tint ");
    Collect two;
    two.last = "scale";
    EXPECT_EQ(list->enumParams(&two), 2);
    table.deleteParameterList(list);
}

}  // namespace
}  // namespace TessUtils
