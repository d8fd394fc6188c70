// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A host without a tracer: a renderer whose data tests set by hand, a log that keeps all messages,
// and a cache that hands out one frame.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "plugin/plugin_table.h"
#include "plugin/sim_plugin.h"
#include "tessra/parameter_values.h"
#include "tessra/renderer.h"

namespace nimbra::test {

/// The library's descriptor of this name; null if there is none.
inline PluginDesc* descriptor(const std::string& name) {
    struct Find : EnumPluginCallback {
        const std::string& name;
        PluginDesc* found = nullptr;
        explicit Find(const std::string& wanted) : name(wanted) {}
        int process(PluginDesc* desc) override {
            if (name == desc->getName())
                found = desc;
            return found == nullptr;
        }
    } find(name);
    libDesc().enumPlugins(&find);
    return find.found;
}

struct KeptLog : TessUtils::ProgressCallback {
    void setProgressTitle(const char*) override {}
    bool getAbort() override { return false; }
    void setAbort(int) override {}
    void setProgress(int) override {}
    void processEvents() override {}
    void message(Level level, const char* text) override {
        const char* names[] = {"statistic: ", "warning: ", "info: "};
        lines.push_back(std::string(names[static_cast<int>(level)]) + text);
    }
    /// Messages that contain a text.
    int count(const std::string& text) const {
        int n = 0;
        for (const std::string& line : lines)
            n += line.find(text) != std::string::npos;
        return n;
    }
    std::vector<std::string> lines;
};

struct FakeRenderer : TessUtils::TessraRenderer {
    FakeRenderer() { sequence.progress = &log; }
    const TessUtils::TessraSequenceData& getSequenceData() const override { return sequence; }
    const TessUtils::TessraFrameData& getFrameData() const override { return frame; }
    KeptLog log;
    TessUtils::TessraSequenceData sequence;
    TessUtils::TessraFrameData frame;
};

struct FakeUnits : TessUtils::SceneUnitsInterface {
    TessUtils::Vector up{0, 0, 1};
    float metres = 1, seconds = 1.0f / 24;
    TessUtils::Vector upDirection() const override { return up; }
    float scale() const override { return metres; }
    float frameDuration() const override { return seconds; }
};

struct FakeEngine : TessUtils::InteractiveEngineInterface {
    bool progressive = false, realtime = false;
    bool isProgressive() const override { return progressive; }
    bool isRealtime() const override { return realtime; }
};

/// Answers nothing to any question.
class SilentSim : public NimbraSimInterface {
public:
    const GridTransforms* getGridTransforms() override { return nullptr; }
    void setInstanceTransform(const TessUtils::Transform&, int) override {}
    NimbraFrameData* getFrameByContentTime(int) override { return nullptr; }
    NimbraFrameData* getFrameByTime(double) override { return nullptr; }
    NimbraRenderer* getRenderer(int) override { return nullptr; }
    void prepareDisplacement(std::uint32_t) override {}
    int isValid() override { return 1; }
    int isRenderable() override { return 0; }
    int getChannelBase(int) override { return 0; }
    bool isVisibleFor(const TessUtils::ShadingContext&) override { return false; }
    int getFrameIndices(double, bool, float*, int*) override { return 0; }
    int getNimbraMesh(NimbraMesh&) override { return 0; }
};

/// Holds one frame; `asked` keeps what it was asked for, in order.
class FakeCache : public Plugin, public SilentSim {
public:
    PluginDesc* getPluginDesc() override { return nullptr; }
    PluginInterface* getInterface(InterfaceID id) override {
        if (id == TessUtils::ids::kNimbraSim && hasInterface)
            return static_cast<NimbraSimInterface*>(this);
        return Plugin::getInterface(id);
    }
    Plugin* getPlugin() override { return this; }
    NimbraFrameData* getFrameByContentTime(int contentTime) override {
        asked.push_back("content " + std::to_string(contentTime));
        return frame.get();
    }
    NimbraFrameData* getFrameByTime(double time) override {
        asked.push_back("time " + std::to_string(time));
        return frame.get();
    }

    bool hasInterface = true;
    std::unique_ptr<NimbraFrameData> frame;
    std::vector<std::string> asked;
};

/// A frame of nx * ny * nz cells with the given edge, its corner at the object's origin, and smoke
/// of a constant density.
inline std::unique_ptr<NimbraFrameData> makeFrame(int nx, int ny, int nz, float cell = 1,
                                                  float density = 1) {
    auto frame = std::make_unique<NimbraFrameData>();
    frame->gridSize[0] = nx;
    frame->gridSize[1] = ny;
    frame->gridSize[2] = nz;
    for (int axis = 0; axis < 3; ++axis)
        frame->transform[axis * 4] = 1 / cell;
    frame->path = "/caches/fake_0001.vdb";
    frame->frameNumber = 1;
    frame->channels[kSmoke].allocate(frame->gridSize);
    frame->channelMask |= channelBit(kSmoke);
    for (int i = 0; i < nx * ny * nz; ++i)
        frame->channels[kSmoke].write(i, density);
    return frame;
}

/// A container of the library with a cache, and the scene's values for its rows.
class SimFixture {
public:
    SimFixture() {
        desc_ = descriptor("NmbShaderSim");
        sim = dynamic_cast<NimbraSimPlugin*>(desc_->newPlugin());
        set("cache", static_cast<PluginBase*>(static_cast<Plugin*>(&cache)));
    }
    ~SimFixture() { desc_->deletePlugin(sim); }

    void set(const char* name, TessUtils::ParamScalar value) {
        values_.emplace_back(name, std::move(value));
        sim->setParameter(&values_.back());
    }
    void setList(const char* name, TessUtils::TessraParameterType type,
                 TessUtils::ParamList values) {
        values_.emplace_back(name, type, std::move(values));
        sim->setParameter(&values_.back());
    }
    TessUtils::DefParam& last() { return values_.back(); }

    FakeRenderer renderer;
    FakeCache cache;
    NimbraSimPlugin* sim = nullptr;
    KeptLog& log = renderer.log;

private:
    PluginDesc* desc_ = nullptr;
    std::deque<TessUtils::DefParam> values_;
};

}  // namespace nimbra::test
