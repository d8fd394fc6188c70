// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Attached interfaces.
#include <gtest/gtest.h>

#include <memory>

#include "tessra/plugin_base.h"

namespace TessUtils {
namespace {

struct Tag : PluginInterface {
    InterfaceID id;
    int* gone;
    explicit Tag(InterfaceID number, int* counter = nullptr) : id(number), gone(counter) {}
    ~Tag() override {
        if (gone)
            ++*gone;
    }
    InterfaceID getInterfaceID() const override { return id; }
};

TEST(PluginBase, AttachedInterfaces_AreFoundNewestFirstAndRemovedOnce) {
    PluginBase base;
    Tag older(1), newer(1), other(2);
    for (Tag* tag : {&older, &other, &newer})
        EXPECT_TRUE(base.addInterface(tag, false));
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
    const auto taken = std::make_unique<Tag>(2, &gone);
    {
        PluginBase base;
        base.addInterface(&kept, false);
        base.addInterface(new Tag(3, &gone), true);
        base.addInterface(taken.get(), true);
        base.removeInterface(taken.get());  // the caller's again
    }
    EXPECT_EQ(gone, 1);
}

}  // namespace
}  // namespace TessUtils
