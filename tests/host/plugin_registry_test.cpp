// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/plugin_registry.h"

#include <gtest/gtest.h>

#include <set>

#include "host/fake_library.h"
#include "host/host_plugin.h"
#include "host/session.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

using test::LogLines;
using test::TestRegistry;

TEST(PluginRegistry, Module_IsLoadedAndItsOutputBecomesDebugLines) {
    LogLines log;
    PluginRegistry registry(log.log);
    std::string error;
    testing::internal::CaptureStdout();
    std::printf("before\n");
    ASSERT_TRUE(registry.loadModule(NIMBRA_FAKE_MODULE, error)) << error;
    std::printf("after\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\nafter\n");
    const std::vector<std::string> lines{"debug: Fake: no reader",
                                         "debug: Fake: second line without an end"};
    EXPECT_EQ(log.lines, lines);
    EXPECT_EQ(registry.libraryName(), "Fake");

    const PluginType* type = registry.find("FakeModulePlugin");
    ASSERT_NE(type, nullptr);
    EXPECT_FALSE(type->ofHost);
    EXPECT_EQ(type->rowNames(), (std::vector<std::string>{"first", "second"}));
    // Asking for the table again changes nothing.
    ASSERT_TRUE(registry.loadModule(NIMBRA_FAKE_MODULE, error));
    EXPECT_EQ(registry.types().size(), 1u);
    EXPECT_EQ(type->rowNames().size(), 2u);

    Plugin* plugin = registry.create(*type, error);
    ASSERT_NE(plugin, nullptr);
    registry.destroy(plugin);
    registry.destroy(nullptr);
}

TEST(PluginRegistry, BadModule_IsReportedByName) {
    LogLines log;
    PluginRegistry registry(log.log);
    const nimbra::test::TempFolder folder;
    const std::string text = folder.write("text.so", "no module").string();
    std::string error;
    EXPECT_FALSE(registry.loadModule((folder.path() / "none.so").string(), error));
    EXPECT_NE(error.find("none.so"), std::string::npos) << error;
    EXPECT_FALSE(registry.loadModule(text, error));
    EXPECT_NE(error.find("text.so"), std::string::npos) << error;
    EXPECT_FALSE(registry.loadModule("libm.so.6", error));
    EXPECT_EQ(error, "'libm.so.6' has no function getLibDesc, so it is no plug-in module");
}

TEST(PluginRegistry, HostKinds_HaveDistinctNamesAndTexts) {
    TestRegistry registry;
    std::set<std::string> names;
    std::set<PluginID> ids;
    int hostKinds = 0;
    for (const PluginType* type : registry.registry.types()) {
        if (!type->ofHost)
            continue;
        ++hostKinds;
        EXPECT_TRUE(names.insert(type->name()).second) << type->name();
        EXPECT_TRUE(ids.insert(type->desc->getPluginID()).second) << type->name();
        EXPECT_NE(std::string(type->desc->getDescription()), "");
        std::string error;
        Plugin* plugin = registry.registry.create(*type, error);
        ASSERT_NE(plugin, nullptr) << error;
        EXPECT_EQ(plugin->getPluginDesc(), type->desc);
        for (const TessUtils::ParameterDef* row : type->rows)
            EXPECT_NE(row->description, nullptr) << type->name() << "." << row->name;
        // What the descriptor promises, the plug-in keeps, save for the host's own categories.
        for (const InterfaceID id : {TessUtils::ids::kTessraPlugin, TessUtils::ids::kTexture,
                                     TessUtils::ids::kTextureFloat, TessUtils::ids::kFloatRemap,
                                     TessUtils::ids::kColorRemap})
            EXPECT_EQ(type->desc->supportsInterface(id), plugin->getInterface(id) != nullptr)
                << type->name() << " " << id;
        registry.registry.destroy(plugin);
    }
    EXPECT_GE(hostKinds, 6);
}

}  // namespace
}  // namespace nimbra::host
