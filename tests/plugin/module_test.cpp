// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The module as a host loads it: its exports, its entry and the memory of its plug-ins.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "tessra/allocator.h"
#include "tessra/plugin_base.h"

namespace nimbra {
namespace {

struct Module {
    explicit Module(const char* path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (handle)
            getLibDesc = reinterpret_cast<GetLibDescFunc>(dlsym(handle, "getLibDesc"));
    }
    void* handle;  // stays loaded, as in a host
    GetLibDescFunc getLibDesc = nullptr;
};

Module& module() {
    static Module loaded(NIMBRA_MODULE);
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

std::vector<std::string> exportsOf(const std::string& library) {
    return outputOf("nm -D --defined-only --format=just-symbols '" + library + "' | sort");
}

TEST(Module, Exports_GetLibDescAlone) {
    EXPECT_EQ(exportsOf(NIMBRA_MODULE), std::vector<std::string>{"getLibDesc\n"});
}

TEST(Module, Reader_ExportsItsFiveFunctions) {
    const std::vector<std::string> five = {"GetAvailableChannels\n", "ImportFrameF3D\n",
                                           "Initialize\n", "ReleaseThreadManager\n",
                                           "SetThreadManager\n"};
    EXPECT_EQ(exportsOf(NIMBRA_READER), five);
}

TEST(Module, Entry_SaysWhichReaderIsMissingEachTime) {
    // The reader lies beside the module, but not beside a copy of it.
    const test::TempFolder folder;
    const std::string copy = folder / "alone.so";
    std::filesystem::copy_file(NIMBRA_MODULE, copy);
    const Module alone(copy.c_str());
    ASSERT_NE(module().getLibDesc, nullptr) << dlerror();
    ASSERT_NE(alone.getLibDesc, nullptr) << dlerror();
    for (const bool complete : {true, false, true, false}) {
        testing::internal::CaptureStdout();
        PluginLibDesc* library = complete ? module().getLibDesc() : alone.getLibDesc();
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  complete ? "" : "NmbShader: Cannot load 3rd party field3d library!\n");
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
}  // namespace nimbra
