// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The module as a host loads it: its exports, its entry and the memory of its plug-ins.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "tessra/allocator.h"
#include "tessra/plugin_base.h"

namespace {

struct Module {
    Module() : handle(dlopen(NIMBRA_MODULE, RTLD_NOW | RTLD_LOCAL)) {
        if (handle)
            getLibDesc = reinterpret_cast<GetLibDescFunc>(dlsym(handle, "getLibDesc"));
    }
    void* handle;  // stays loaded, as in a host
    GetLibDescFunc getLibDesc = nullptr;
};

Module& module() {
    static Module loaded;
    return loaded;
}

std::vector<std::string> outputOf(const std::string& command) {
    std::vector<std::string> lines;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    char line[4096];
    while (pipe && std::fgets(line, sizeof line, pipe.get()))
        lines.push_back(line);
    return lines;
}

struct Find : EnumPluginCallback {
    explicit Find(const char* n) : name(n) {}
    int process(PluginDesc* desc) override {
        if (name == desc->getName())
            found = desc;
        return found == nullptr;
    }
    std::string name;
    PluginDesc* found = nullptr;
};

TEST(Module, Exports_GetLibDescAlone) {
    const std::vector<std::string> symbols =
        outputOf("nm -D --defined-only --format=just-symbols '" NIMBRA_MODULE "'");
    EXPECT_EQ(symbols, std::vector<std::string>{"getLibDesc\n"});
}

TEST(Module, Entry_SaysWhichReaderIsMissingEachTime) {
    ASSERT_NE(module().getLibDesc, nullptr) << dlerror();
    for (int call = 0; call < 2; ++call) {
        testing::internal::CaptureStdout();
        PluginLibDesc* library = module().getLibDesc();
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "NmbShader: Cannot load 3rd party field3d library!\n");
        ASSERT_NE(library, nullptr);
        EXPECT_STREQ(library->getName(), "Nimbra");
        EXPECT_EQ(library->enumPlugins(nullptr), 12);
    }
}

TEST(Module, Plugins_LiveInTheHostsMemory) {
    ASSERT_NE(module().getLibDesc, nullptr) << dlerror();
    testing::internal::CaptureStdout();
    PluginLibDesc* library = module().getLibDesc();
    testing::internal::GetCapturedStdout();
    for (const char* name : {"NmbShaderSim", "NmbShaderSimVol", "NmbShaderCache"}) {
        Find find(name);
        library->enumPlugins(&find);
        ASSERT_NE(find.found, nullptr) << name;
        TessUtils::MemoryTracker& memory = *getGlobalMemoryTracker();
        const std::size_t before = memory.currentBytes();
        Plugin* plugin = find.found->newPlugin();
        ASSERT_NE(plugin, nullptr) << name;
        EXPECT_GT(memory.currentBytes(), before) << name;
        EXPECT_EQ(plugin->getPluginDesc(), find.found);
        find.found->deletePlugin(plugin);
#ifndef NIMBRA_SANITIZED
        EXPECT_EQ(memory.currentBytes(), before) << name;
#endif
        // Without memory for the object there is none; without memory for what is in it the
        // constructor's exception passes on, and nothing stays behind.
        memory.failAllocation(1);
        EXPECT_EQ(find.found->newPlugin(), nullptr) << name;
        for (std::uint64_t n = 2; n < 20; ++n) {
            memory.failAllocation(n);
            plugin = nullptr;
            try {
                plugin = find.found->newPlugin();
            } catch (const std::bad_alloc&) {
            }
            find.found->deletePlugin(plugin);
        }
        memory.failAllocation(0);
#ifndef NIMBRA_SANITIZED
        EXPECT_EQ(memory.currentBytes(), before) << name;
#endif
    }
}

}  // namespace
