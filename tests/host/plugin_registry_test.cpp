// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/plugin_registry.h"

#include <gtest/gtest.h>

#include "host/fake_library.h"
#include "host/host_plugin.h"
#include "host/session.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

using test::LogLines;

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

}  // namespace
}  // namespace nimbra::host
