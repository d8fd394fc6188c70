// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Attached interfaces, and what descriptors tell the host.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tessra/tessra_plugin.h"

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

/// A kind with two rows.
class EffectDesc : public TessraPluginDesc {
public:
    EffectDesc() {
        table_.addParamFloat("size", 2.0f);
        table_.addParamInt("mode", 1);
        parameters_ = &table_;
    }
    PluginID getPluginID() const override { return 20110223999; }
    Plugin* newPlugin() override { return nullptr; }
    void deletePlugin(Plugin*) override {}
    bool supportsInterface(InterfaceID) const override { return false; }
    const char* getName() const override { return "Effect"; }
    const char* getDescription() const override { return ""; }

private:
    TessraParameterListDesc table_;
};

TEST(TessraPluginDesc, Registration_AnnouncesItselfThenItsRows) {
    struct Host : PluginHost {
        std::vector<std::string> heard;
        void registerPluginDesc(PluginDesc* desc) override { heard.emplace_back(desc->getName()); }
        void unregisterPluginDesc(PluginDesc*) override { heard.emplace_back("gone"); }
        void registerParameter(PluginDesc*, const ParameterDef& def) override {
            heard.push_back(def.name);
        }
    } host;
    EffectDesc desc;
    desc.registerParameters(nullptr);
    desc.registerParameters(&host);
    desc.unregisterParameters(nullptr);
    desc.unregisterParameters(&host);
    EXPECT_EQ(host.heard, (std::vector<std::string>{"Effect", "size", "mode", "gone"}));
}

}  // namespace
}  // namespace TessUtils
