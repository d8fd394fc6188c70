// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library's face: what the module exports, the memory of its plug-ins, and their kinds and
// rows. Scenes name all of these, so that they may not drift.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <regex>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "plugin/fake_host.h"
#include "plugin/parameter_tables.h"
#include "plugin/plugin_table.h"
#include "support/golden.h"
#include "support/temp_folder.h"
#include "tessra/allocator.h"

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

std::string exportsOf(const std::string& library) {
    const std::string command =
        "nm -D --defined-only --format=just-symbols '" + library + "' | sort | tr '\\n' ' '";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    char names[4096] = "";
    return pipe && std::fgets(names, sizeof names, pipe.get()) ? names : "";
}

TEST(Module, ModuleAndReader_ExportTheirEntriesAlone) {
    EXPECT_EQ(exportsOf(NIMBRA_MODULE), "getLibDesc ");
    EXPECT_EQ(exportsOf(NIMBRA_READER),
              "GetAvailableChannels ImportFrameF3D Initialize ReleaseThreadManager "
              "SetThreadManager ");
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
        PluginDesc* const kind = test::descriptor(name, *library);
        ASSERT_NE(kind, nullptr) << name;
        TessUtils::MemoryTracker& memory = *getGlobalMemoryTracker();
        const std::size_t before = memory.currentBytes();
        Plugin* plugin = kind->newPlugin();
        ASSERT_NE(plugin, nullptr) << name;
        EXPECT_GT(memory.currentBytes(), before) << name;
        EXPECT_EQ(plugin->getPluginDesc(), kind);
        kind->deletePlugin(plugin);
#ifndef NIMBRA_SANITIZED
        EXPECT_EQ(memory.currentBytes(), before) << name;
#endif
        // Without memory for the object there is none; without memory for what is in it the
        // constructor's exception passes on, and nothing stays behind.
        memory.failAllocation(1);
        EXPECT_EQ(kind->newPlugin(), nullptr) << name;
        for (std::uint64_t n = 2; n < 20; ++n) {
            memory.failAllocation(n);
            plugin = nullptr;
            try {
                plugin = kind->newPlugin();
            } catch (const std::bad_alloc&) {
            }
            kind->deletePlugin(plugin);
        }
        memory.failAllocation(0);
#ifndef NIMBRA_SANITIZED
        EXPECT_EQ(memory.currentBytes(), before) << name;
#endif
    }
}

using namespace TessUtils;

/// All that scenes and editors go by, as one line; defaults as every type that they may turn into.
std::string lineOf(const ParameterDef& row) {
    std::ostringstream line;
    line << row.name << '|' << row.type << '|' << row.count << '|' << row.isOutput << '|'
         << row.interfaceID << '|' << (row.uiHint ? row.uiHint : "");
    if (const auto& value = row.defaultValue) {
        const AColor color = value->getAColor(0, 0);
        line << '|' << value->getString(0, 0) << '|' << value->getInt(0, 0) << '|'
             << value->getFloat(0, 0) << '|' << color.color.r << ',' << color.color.g << ','
             << color.color.b << ',' << color.alpha << '|' << value->getCount(0);
    }
    return line.str() + '\n';
}

// Newest first; names and numbers are stored in scenes.
const struct {
    const char* name;
    PluginID id;
    InterfaceID kind;
    std::size_t rows;
    const char* crc;  // of all lines
} kKinds[] = {{"NmbShaderTexAlpha", 20111124021, ids::kTexture, 3, "b26833e8"},
              {"NmbShaderSimVol", 20110223041, ids::kRenderSettings, 2, "516bbd89"},
              {"NmbShaderPrtLoader", 20150611011, ids::kNimbraSim, 3, "6b868499"},
              {"NmbShaderPGroup", 20110930021, ids::kNimbraSim, 6, "2dff3c1f"},
              {"NmbShaderFoam", 20110930011, ids::kNimbraSim, 76, "9722aee4"},
              {"NmbShaderSim", 20110223031, ids::kNimbraSim, 170, "6c0c8df5"},
              {"NmbShaderCache", 20110223051, ids::kNimbraSim, 31, "8d2c6a03"},
              {"NmbShaderOceanTex", 20130613021, ids::kTexture, 17, "505de22f"},
              {"NmbShaderParticleTex", 20160811011, ids::kTexture, 29 + 26, "65d0e310"},
              {"NmbShaderTex", 20110223021, ids::kTexture, 29 + 8, "c9d23331"},
              {"NmbShaderSimMesh", 20130401011, ids::kStaticGeomSource, 2, "22320b22"},
              {"NmbShaderSimGeom", 20110223011, ids::kStaticGeomSource, 4, "bd122bd6"}};

struct Collect : EnumPluginCallback {
    std::vector<PluginDesc*> found;
    std::size_t limit = 100;
    int process(PluginDesc* desc) override {
        found.push_back(desc);
        return found.size() < limit;
    }
};

TEST(PluginTable, Enumeration_GivesAllKindsUntilZero) {
    EXPECT_STREQ(libDesc().getName(), "Nimbra");
    EXPECT_STREQ(libDesc().getDescription(), "Nimbra plugin for Tessra");
    EXPECT_EQ(libDesc().enumPlugins(nullptr), 12);
    for (const std::size_t limit : {1u, 4u, 100u}) {
        Collect all;
        all.limit = limit;
        EXPECT_EQ(libDesc().enumPlugins(&all),
                  static_cast<int>(std::min(limit, std::size(kKinds))));
        for (std::size_t i = 0; i < all.found.size(); ++i) {
            PluginDesc* const desc = all.found[i];
            SCOPED_TRACE(desc->getName());
            EXPECT_STREQ(desc->getName(), kKinds[i].name);
            EXPECT_EQ(desc->getPluginID(), kKinds[i].id);
            EXPECT_TRUE(desc->supportsInterface(ids::kTessraPlugin));
            for (InterfaceID id : {ids::kStaticGeomSource, ids::kTexture, ids::kNimbraSim,
                                   ids::kRenderSettings, ids::kSceneModifier, InterfaceID(0)})
                EXPECT_EQ(desc->supportsInterface(id), id == kKinds[i].kind) << id;
        }
    }
}

/// Writes down what is announced.
struct Listener : PluginHost {
    std::vector<std::string> heard;
    void registerPluginDesc(PluginDesc* desc) override { heard.emplace_back(desc->getName()); }
    void unregisterPluginDesc(PluginDesc*) override { heard.emplace_back("gone"); }
    void registerParameter(PluginDesc*, const ParameterDef& def) override {
        heard.push_back(def.name);
    }
};

TEST(ParameterTables, Rows_AreSoundAndDontDrift) {
    // Keys with values in brackets, which may hold brackets.
    const std::regex hint(
        "((displayName|enum|minValue|maxValue|enable|startRollout|attributes|fileAsset|"
        "fileAssetNames|fileAssetOp)=\\([^()]*(\\([^()]*\\)[^()]*)*\\)(, (?!$)|$))+");
    for (const auto& kind : kKinds) {
        auto& desc = dynamic_cast<TessraPluginDesc&>(*test::descriptor(kind.name));
        Listener host;
        desc.registerParameters(nullptr);
        desc.registerParameters(&host);
        desc.unregisterParameters(nullptr);
        desc.unregisterParameters(&host);
        std::string lines;
        std::vector<std::string> announced{kind.name};
        for (const ParameterDef& row : desc.parameters()->rows()) {
            const std::string name = std::string(kind.name) + "." + row.name;
            SCOPED_TRACE(name);
            lines += lineOf(row);
            announced.push_back(row.name);
            // Lists and connections have no default.
            const bool isValue = row.type != paramtype_plugin && row.count != kList &&
                                 !row.isOutput && name != "NmbShaderTexAlpha.ttex";
            EXPECT_EQ(row.hasDefault, isValue);
            EXPECT_EQ(row.defaultValue != nullptr, row.hasDefault);
            EXPECT_TRUE(row.type != paramtype_plugin || row.interfaceID != 0);
            EXPECT_TRUE(!row.uiHint || std::regex_match(row.uiHint, hint)) << row.uiHint;
        }
        announced.push_back("gone");
        EXPECT_EQ(host.heard, announced);
        EXPECT_EQ(std::set<std::string>(announced.begin(), announced.end()).size(), kind.rows + 2)
            << "every name once";
        EXPECT_EQ(test::crc32Of(std::as_bytes(std::span(lines))), kind.crc) << kind.name;
    }
}

}  // namespace
}  // namespace nimbra
