// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A module for the registry's tests: prints to standard output while it loads, offers one kind.
#include <cstdio>

#include "tessra/tessra_plugin.h"

namespace {

class FakeDesc final : public TessUtils::TessraPluginDesc {
public:
    FakeDesc() {
        table_.addParamInt("first", 1);
        table_.addParamFloat("second", 2);
        parameters_ = &table_;
    }
    PluginID getPluginID() const override { return 5; }
    Plugin* newPlugin() override { return new TessUtils::TessraPlugin(this); }
    void deletePlugin(Plugin* plugin) override { delete plugin; }
    bool supportsInterface(InterfaceID id) const override {
        return id == TessUtils::ids::kTessraPlugin;
    }
    const char* getName() const override { return "FakeModulePlugin"; }
    const char* getDescription() const override { return "of a module"; }

private:
    TessUtils::TessraParameterListDesc table_;
};

class FakeLibrary final : public PluginLibDesc {
public:
    const char* getName() const override { return "Fake"; }
    const char* getDescription() const override { return "Fake module"; }
    int enumPlugins(EnumPluginCallback* callback) override {
        if (callback)
            callback->process(&desc_);
        return 1;
    }

private:
    FakeDesc desc_;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) PluginLibDesc* getLibDesc() {
    static FakeLibrary library;
    std::printf("Fake: no reader\n");
    std::fflush(stdout);
    std::printf("Fake: second line without an end");
    return &library;
}
