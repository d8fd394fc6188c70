// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library as a loaded module under the stand-in host, with pictures kept in memory.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/path_tracer.h"
#include "host/plugin_registry.h"
#include "host/session.h"

namespace nimbra::host {

/// Keeps the frames that a session gives out.
class KeptFrames final : public FrameOutput {
public:
    bool write(const FinishedFrame& frame, std::string&) override {
        frames.push_back(frame.frame);
        pictures.push_back(frame.pixels);
        return true;
    }
    std::vector<FrameNumber> frames;
    std::vector<FrameBuffer> pictures;
};

class ModuleTest : public ::testing::Test {
protected:
    ModuleTest() {
        addHostPlugins(registry_);
        std::string error;
        loaded_ = registry_.loadModule(NIMBRA_MODULE, error);
        EXPECT_TRUE(loaded_) << error;
    }

    std::unique_ptr<Scene> make(const std::string& body) {
        SceneDiagnostics diagnostics;
        auto scene = Scene::create(
            SceneDocument::parse("{\"nimbra\": 1,\n" + body + "}", "s.json", diagnostics),
            registry_, diagnostics);
        faults_ = diagnostics.str();
        return scene;
    }
    SessionResult render(Scene& scene, KeptFrames& output, std::vector<FrameNumber> frames,
                         int threads) {
        PathTracer tracer(log_);
        AbortFlag abort;
        SessionOptions options;
        options.frames = std::move(frames);
        options.threads = threads;
        return RenderSession(scene, tracer, output, log_, abort).run(options);
    }

    std::vector<std::string> lines_;
    HostLog log_{LogLevel::Debug, [this](LogLevel level, std::string_view line) {
                     lines_.push_back(std::string(toString(level)) + ": " + std::string(line));
                 }};
    PluginRegistry registry_{log_};
    bool loaded_ = false;
    std::string faults_;
};

}  // namespace nimbra::host
