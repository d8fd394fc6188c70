// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A host without a tracer: a renderer whose data tests set by hand, a log that keeps all messages,
// and a cache that hands out one frame.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "plugin/plugin_table.h"
#include "plugin/sim_plugin.h"
#include "support/kept_log.h"
#include "tessra/light.h"
#include "tessra/parameter_values.h"
#include "tessra/renderer.h"

namespace nimbra::test {

using namespace TessUtils;

/// The descriptor of this name; null if there is none.
inline PluginDesc* descriptor(const std::string& name, PluginLibDesc& library = libDesc()) {
    struct Find : EnumPluginCallback {
        std::string name;
        PluginDesc* found = nullptr;
        int process(PluginDesc* desc) override {
            if (name == desc->getName())
                found = desc;
            return found == nullptr;
        }
    } find;
    find.name = name;
    library.enumPlugins(&find);
    return find.found;
}

/// A plug-in of the library, made by its descriptor, and the scene's values for its rows.
template <class T>
class Made {
public:
    explicit Made(const char* kind)
        : desc_(descriptor(kind)), plugin_(dynamic_cast<T*>(desc_->newPlugin())) {}
    /// Another one with the same values.
    Made(const Made& other)
        : desc_(other.desc_),
          plugin_(dynamic_cast<T*>(desc_->newPlugin())),
          values_(other.values_) {
        for (DefParam& value : values_)
            plugin_->setParameter(&value);
    }
    ~Made() { desc_->deletePlugin(plugin_); }
    Made& operator=(const Made&) = delete;

    void set(const char* name, ParamScalar value) {
        give(values_.emplace_back(name, std::move(value)));
    }
    void set(std::initializer_list<std::pair<const char*, ParamScalar>> rows) {
        for (const auto& [name, value] : rows)
            set(name, value);
    }
    void setList(const char* name, TessraParameterType type, ParamList values) {
        give(values_.emplace_back(name, type, std::move(values)));
    }
    DefParam& last() { return values_.back(); }
    T* operator->() const { return plugin_; }
    T* get() const { return plugin_; }

private:
    void give(DefParam& value) { EXPECT_TRUE(plugin_->setParameter(&value)) << value.getName(); }
    PluginDesc* desc_;
    T* plugin_;
    std::deque<DefParam> values_;
};

/// A plug-in without rows that is nothing but its interfaces.
template <class... Interfaces>
struct PluginOf : Plugin, Interfaces... {
    PluginOf() { (addInterface(static_cast<Interfaces*>(this), false), ...); }
    PluginDesc* getPluginDesc() override { return nullptr; }
    Plugin* getPlugin() override { return this; }
};

struct FakeRenderer : TessraRenderer {
    FakeRenderer() { sequence.progress = &log; }
    const TessraSequenceData& getSequenceData() const override { return sequence; }
    const TessraFrameData& getFrameData() const override { return frame; }
    KeptLog log;
    TessraSequenceData sequence;
    TessraFrameData frame;
};

struct FakeUnits : SceneUnitsInterface {
    Vector up{0, 0, 1};
    float metres = 1, seconds = 1.0f / 24;
    Vector upDirection() const override { return up; }
    float scale() const override { return metres; }
    float frameDuration() const override { return seconds; }
};

struct FakeEngine : InteractiveEngineInterface {
    bool progressive = false, realtime = false;
    bool isProgressive() const override { return progressive; }
    bool isRealtime() const override { return realtime; }
};

struct FakeCamera : CameraSettingsInterface {
    int motionBlur = -1;  // 0 and more: on
    int getValue(int key) override { return key == kCameraMotionBlurKey ? motionBlur : 12345; }
};

struct FakeSamples : ProbabilisticSettingsInterface {
    int count, countGI;
    FakeSamples(int n, int nGI) : count(n), countGI(nGI) {}
    int samples() const override { return count; }
    int samplesGI() const override { return countGI; }
};

struct DarkLight : LightInterface {
    LightSampler* newLightSampler(ShadingContext&, const ShadeData&) override { return nullptr; }
    void deleteLightSampler(LightSampler*, int) override {}
};

/// Answers nothing to any question.
class SilentSim : public NimbraSimInterface {
public:
    const GridTransforms* getGridTransforms() override { return nullptr; }
    void setInstanceTransform(const Transform&, int) override {}
    NimbraFrameData* getFrameByContentTime(int) override { return nullptr; }
    NimbraFrameData* getFrameByTime(double) override { return nullptr; }
    NimbraRenderer* getRenderer(int) override { return nullptr; }
    void prepareDisplacement(std::uint32_t) override {}
    int isValid() override { return 1; }
    int isRenderable() override { return 0; }
    int getChannelBase(int) override { return 0; }
    bool isVisibleFor(const ShadingContext&) override { return false; }
    int getFrameIndices(double, bool, float*, int*) override { return 0; }
    int getNimbraMesh(NimbraMesh&) override { return 0; }
};

/// Holds one frame; `asked` keeps what it was asked for, in order.
struct FakeCache : PluginOf<SilentSim> {
    std::unique_ptr<NimbraFrameData> frame;
    std::vector<std::string> asked;

    NimbraFrameData* getFrameByContentTime(int contentTime) override {
        asked.push_back("content " + std::to_string(contentTime));
        return frame.get();
    }
    NimbraFrameData* getFrameByTime(double time) override {
        asked.push_back("time " + std::to_string(time));
        return frame.get();
    }
};

/// Gives a frame a channel of zeros.
inline GridChannelProxy<float>& addChannel(NimbraFrameData& frame, int channel) {
    frame.channels[channel].allocate(frame.gridSize);
    frame.channelMask |= channelBit(channel);
    return frame.channels[channel];
}

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
    addChannel(*frame, kSmoke);
    for (int i = 0; i < nx * ny * nz; ++i)
        frame->channels[kSmoke].write(i, density);
    return frame;
}

/// A container of the library with a cache.
struct SimFixture : testing::Test {
    FakeRenderer renderer;
    FakeCache cache;
    Made<NimbraSimPlugin> sim{"NmbShaderSim"};
    KeptLog& log = renderer.log;

    FakeEngine engine;

    SimFixture() { set("cache", &cache); }
    /// From now on this is an interactive render.
    void interact(bool progressive, bool realtime) {
        engine.progressive = progressive;
        engine.realtime = realtime;
        renderer.sequence.addInterface(&engine, false);
        renderer.sequence.isInteractive = 1;
    }
    void set(const char* name, ParamScalar value) { sim.set(name, std::move(value)); }
    void set(std::initializer_list<std::pair<const char*, ParamScalar>> rows) { sim.set(rows); }
    void setList(const char* name, TessraParameterType type, ParamList values) {
        sim.setList(name, type, std::move(values));
    }
    /// Loads a frame; null if there is none.
    NimbraRenderer* load() {
        sim->preFrameBegin(&renderer);
        return sim->getRenderer(0);
    }
};

}  // namespace nimbra::test
