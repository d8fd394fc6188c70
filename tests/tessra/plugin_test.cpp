// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Attached interfaces, plug-ins with their lists, and what descriptors tell the host.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tessra/parameter_values.h"
#include "tessra/renderer.h"
#include "tessra/volumetric.h"

namespace TessUtils {
namespace {

class Tag : public PluginInterface {
public:
    Tag(InterfaceID id, int* gone) : id_(id), gone_(gone) {}
    ~Tag() override {
        if (gone_)
            ++*gone_;
    }
    InterfaceID getInterfaceID() const override { return id_; }

private:
    InterfaceID id_;
    int* gone_;
};

TEST(PluginBase, AttachedInterfaces_AreFoundNewestFirstAndRemovedOnce) {
    PluginBase base;
    Tag older(1, nullptr), newer(1, nullptr), other(2, nullptr);
    EXPECT_TRUE(base.addInterface(&older, false));
    EXPECT_TRUE(base.addInterface(&other, false));
    EXPECT_TRUE(base.addInterface(&newer, false));
    EXPECT_FALSE(base.addInterface(nullptr, true));
    EXPECT_EQ(base.getInterface(1), &newer);
    EXPECT_EQ(base.getInterface(2), &other);
    EXPECT_EQ(base.getInterface(3), nullptr);
    EXPECT_TRUE(base.removeInterface(&newer));
    EXPECT_FALSE(base.removeInterface(&newer));
    EXPECT_EQ(base.getInterface(1), &older);
}

TEST(PluginBase, OwnedInterfaces_GoWithTheirObject) {
    int gone = 0;
    Tag kept(1, &gone);
    auto* const taken = new Tag(2, &gone);
    {
        PluginBase base;
        base.addInterface(&kept, false);
        base.addInterface(new Tag(3, &gone), true);
        base.addInterface(taken, true);
        base.removeInterface(taken);  // the caller's again
    }
    EXPECT_EQ(gone, 1);
    delete taken;
}

/// A volumetric effect with two rows.
class Effect : public TessraVolumetric {
public:
    explicit Effect(TessraPluginDesc* desc) : TessraVolumetric(desc) {
        paramList->setParamCache("size", &size);
    }
    void shade(ShadingContext&) override {}
    void shadeTransparency(ShadingContext&) override {}
    float size = 0;
};

class EffectDesc : public TessraPluginDesc {
public:
    explicit EffectDesc(bool withTable) {
        if (!withTable)
            return;
        table_.addParamFloat("size", 2.0f);
        table_.addParamInt("mode", 1);
        parameters_ = &table_;
    }
    PluginID getPluginID() const override { return 20110223999; }
    Plugin* newPlugin() override { return new Effect(this); }
    void deletePlugin(Plugin* plugin) override { delete plugin; }
    bool supportsInterface(InterfaceID id) const override { return id == ids::kVolumetric; }
    const char* getName() const override { return "Effect"; }
    const char* getDescription() const override { return ""; }

private:
    TessraParameterListDesc table_;
};

class Renderer : public TessraRenderer {
public:
    const TessraSequenceData& getSequenceData() const override { return sequence; }
    const TessraFrameData& getFrameData() const override { return frame; }
    TessraSequenceData sequence;
    TessraFrameData frame;
};

TEST(TessraPlugin, FrameBegin_ReadsTheParametersForTheFramesTime) {
    EffectDesc desc(true);
    Plugin* const plugin = desc.newPlugin();
    plugin->setPluginName("smoke");
    EXPECT_STREQ(plugin->getPluginName(), "smoke");
    plugin->setPluginName(plugin->getPluginName());
    EXPECT_STREQ(plugin->getPluginName(), "smoke");
    plugin->setPluginName(nullptr);
    EXPECT_STREQ(plugin->getPluginName(), "");
    EXPECT_EQ(plugin->getPluginDesc(), &desc);

    auto* const driven =
        static_cast<TessraPluginInterface*>(plugin->getInterface(ids::kTessraPlugin));
    ASSERT_NE(driven, nullptr);
    EXPECT_EQ(driven->getPlugin(), plugin);
    auto* const volumetric =
        static_cast<VolumetricInterface*>(driven->newInterface(ids::kVolumetric));
    auto* const effect = static_cast<Effect*>(plugin);
    ASSERT_NE(volumetric, nullptr);
    EXPECT_EQ(volumetric->getVolume(), static_cast<TessraVolume*>(effect));
    EXPECT_EQ(volumetric->getPlugin(), plugin);
    EXPECT_EQ(plugin->getInterface(12345), nullptr);

    Renderer renderer;
    renderer.frame.t = 3;
    DefParam size("size", 0.0f);
    size.setKey(0, 0.0f);
    size.setKey(6, 1.0f);
    driven->frameBegin(&renderer);
    EXPECT_EQ(effect->size, 2.0f);
    EXPECT_TRUE(driven->setParameter(&size));
    EXPECT_EQ(driven->getParameter("size"), &size);
    EXPECT_EQ(effect->size, 2.0f);
    driven->frameBegin(&renderer);
    EXPECT_EQ(effect->size, 0.5f);
    desc.deletePlugin(plugin);
}

TEST(TessraPlugin, DescriptorWithoutTable_GivesAnEmptyList) {
    EffectDesc desc(false);
    Plugin* const plugin = desc.newPlugin();
    DefParam size("size", 1.0f);
    auto* const effect = static_cast<Effect*>(plugin);
    EXPECT_FALSE(effect->setParameter(&size));
    EXPECT_EQ(effect->getParameter("size"), nullptr);
    desc.deletePlugin(plugin);
}

TEST(TessraPluginDesc, Registration_AnnouncesItselfThenItsRows) {
    struct Host : PluginHost {
        std::vector<std::string> heard;
        void registerPluginDesc(PluginDesc* desc) override { heard.emplace_back(desc->getName()); }
        void unregisterPluginDesc(PluginDesc*) override { heard.emplace_back("gone"); }
        void registerParameter(PluginDesc*, const ParameterDef& def) override {
            heard.push_back(def.name);
        }
    } host;
    EffectDesc desc(true);
    desc.registerParameters(nullptr);
    desc.registerParameters(&host);
    desc.unregisterParameters(nullptr);
    desc.unregisterParameters(&host);
    EXPECT_EQ(host.heard, (std::vector<std::string>{"Effect", "size", "mode", "gone"}));
}

}  // namespace
}  // namespace TessUtils
