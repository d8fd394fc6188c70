// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A library of test plug-ins: one kind with a row of every type that writes down what it is called
// with and can be told to fail.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/plugin_registry.h"
#include "host/scene.h"
#include "tessra/renderer.h"
#include "tessra/tessra_plugin.h"
#include "tessra/texture.h"
#include "tessra/volumetric.h"

namespace nimbra::host::test {

using namespace TessUtils;

inline constexpr InterfaceID kRecorderId = 991;

/// What all recorders of a test were called with, as "name.operation".
struct Record {
    std::vector<std::string> calls;
    std::string throwAt;  // "name.operation" that throws
    /// What recorders of these names say that they have loaded.
    std::map<std::string, double> loadedFrames;
    /// Names of what textures were told to be shaded.
    std::set<std::string> shaded;
    std::mutex mutex;  // of shaded
    /// Run inside of calls of this name.
    std::map<std::string, std::function<void(TessraRenderer&)>> hooks;

    void call(const std::string& what, TessraRenderer* renderer) {
        calls.push_back(what);
        if (const auto hook = hooks.find(what); hook != hooks.end())
            hook->second(*renderer);
        if (what == throwAt)
            throw std::runtime_error("broken on purpose");
    }
};

class Recorder final : public TessraPlugin,
                       public TessraSceneModifierInterface,
                       public RenderSettingsInterface,
                       public GeomGenInterface2,
                       public FrameSourceInterface,
                       public TextureInterface {
public:
    explicit Recorder(TessraPluginDesc* desc, Record* record)
        : TessraPlugin(desc), record_(record) {
        addInterface(static_cast<TessraSceneModifierInterface*>(this), false);
        addInterface(static_cast<RenderSettingsInterface*>(this), false);
        addInterface(static_cast<GeomGenInterface2*>(this), false);
        addInterface(static_cast<FrameSourceInterface*>(this), false);
        paramList->setOutputParamCache("out_color", static_cast<TextureInterface*>(this));
    }
    Plugin* getPlugin() override { return this; }

    void preRenderBegin(TessraRenderer* r) override { note("preRenderBegin", r); }
    void postRenderEnd(TessraRenderer* r) override { note("postRenderEnd", r); }
    void preFrameBegin(TessraRenderer* r) override { note("preFrameBegin", r); }
    void postFrameEnd(TessraRenderer* r) override { note("postFrameEnd", r); }
    void setupRender(TessraRenderer* r) override { note("setupRender", r); }
    void compileGeometry(TessraRenderer* r) override { note("compileGeometry", r); }
    void clearGeometry(TessraRenderer* r) override { note("clearGeometry", r); }
    void renderBegin(TessraRenderer* r) override { note("renderBegin", r); }
    void renderEnd(TessraRenderer* r) override { note("renderEnd", r); }
    void frameBegin(TessraRenderer* r) override {
        TessraPlugin::frameBegin(r);
        note("frameBegin", r);
    }
    void frameEnd(TessraRenderer* r) override { note("frameEnd", r); }

    bool loadedFrame(double& time) override {
        const auto found = record_->loadedFrames.find(getPluginName());
        if (found != record_->loadedFrames.end())
            time = found->second;
        return found != record_->loadedFrames.end();
    }

    AColor getTexColor(const TextureContext& context) override {
        const auto* object = dynamic_cast<Plugin*>(context.object);
        const std::lock_guard lock(record_->mutex);
        record_->shaded.insert(object ? object->getPluginName() : "nothing");
        return {{0.25f, 0.5f, 0.75f}, 1};
    }

private:
    void note(const char* operation, TessraRenderer* renderer) {
        record_->call(std::string(getPluginName()) + "." + operation, renderer);
    }
    Record* record_;
};

/// Kind "Recorder", and kind "Absent", which can't be created.
class RecorderDesc final : public TessraPluginDesc {
public:
    RecorderDesc(const char* name, Record* record) : name_(name), record_(record) {
        table_.addParamBool("flag", true);
        table_.addParamInt("count", 3, -1, nullptr, "enum=(0:Off;1:Smoke;2:Fire)");
        table_.addParamFloat("amount", 1.5f, -1, nullptr, "minValue=(0), maxValue=(10)");
        table_.addParamString("text", "");
        table_.addParamString("file", "", -1, nullptr, "fileAsset=(vdb), fileAssetOp=(load)");
        table_.addParamColor("tint", {1, 0, 0});
        table_.addParamAColor("glaze", {{0, 0, 0}, 1});
        table_.addParamTransform("place", true, {});
        table_.addParamTexture("map");
        table_.addParamTextureFloat("mask");
        table_.addParamPlugin("source", kRecorderId);
        table_.addParamFloat("numbers", 0, 0);
        table_.addParamFloat("aspect", 1, 3);
        table_.addParamColor("colors", {}, 0);
        table_.addParamColor("shade", {});
        table_.allowList("shade");
        table_.addParamFloat("weight", 0);
        table_.allowList("weight");
        table_.addParam("mixed", paramtype_list);
        table_.addOutputParamTexture("out_color");
        parameters_ = &table_;
    }
    PluginID getPluginID() const override { return 77; }
    const char* getName() const override { return name_; }
    const char* getDescription() const override { return ""; }
    bool supportsInterface(InterfaceID id) const override {
        return id == ids::kTessraPlugin || id == kRecorderId;
    }
    Plugin* newPlugin() override {
        return std::string(name_) == "Absent" ? nullptr : new Recorder(this, record_);
    }
    void deletePlugin(Plugin* plugin) override {
        if (plugin)
            record_->calls.push_back(std::string(plugin->getPluginName()) + ".delete");
        delete plugin;
    }

private:
    const char* name_;
    Record* record_;
    TessraParameterListDesc table_;
};

class RecorderLibrary final : public PluginLibDesc {
public:
    explicit RecorderLibrary(Record* record)
        : recorder_("Recorder", record), absent_("Absent", record) {}
    const char* getName() const override { return "Recorders"; }
    const char* getDescription() const override { return "Plug-ins for tests"; }
    int enumPlugins(EnumPluginCallback* callback) override {
        if (!callback)
            return 2;
        return callback->process(&recorder_) && callback->process(&absent_) ? 2 : 1;
    }

private:
    RecorderDesc recorder_, absent_;
};

/// Log lines as "level: text".
struct LogLines {
    std::vector<std::string> lines;
    HostLog log{LogLevel::Debug, [this](LogLevel level, std::string_view line) {
                    lines.push_back(std::string(toString(level)) + ": " + std::string(line));
                }};
    /// How many lines hold a text.
    int count(const std::string& text) const {
        int n = 0;
        for (const std::string& line : lines)
            n += line.find(text) != std::string::npos;
        return n;
    }
};

/// A scene of the plug-ins in `body`, which is the inside of a JSON object; null with faults.
inline std::unique_ptr<Scene> makeScene(PluginRegistry& registry, const std::string& body,
                                        std::string& faults, const std::string& path = "s.json") {
    SceneDiagnostics diagnostics;
    const SceneDocument document =
        SceneDocument::parse("{\"nimbra\": 1,\n" + body + "}", path, diagnostics);
    auto scene = Scene::create(document, registry, diagnostics);
    faults = diagnostics.str();
    EXPECT_EQ(scene == nullptr, !faults.empty());
    return scene;
}

/// A registry with the recorders and the host's own plug-ins.
struct TestRegistry {
    Record record;
    LogLines log;
    RecorderLibrary library{&record};
    PluginRegistry registry{log.log};
    TestRegistry() {
        addHostPlugins(registry);
        registry.addLibrary(&library);
    }
    /// Without faults.
    std::unique_ptr<Scene> scene(const std::string& body, const std::string& path = "s.json") {
        std::string faults;
        auto made = makeScene(registry, body, faults, path);
        EXPECT_EQ(faults, "");
        return made;
    }
};

}  // namespace nimbra::host::test
