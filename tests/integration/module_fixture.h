// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library as a loaded module under the stand-in host, with pictures kept in memory.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/fake_library.h"
#include "host/path_tracer.h"
#include "host/session.h"

namespace nimbra::host {

class ModuleTest : public ::testing::Test, protected FrameOutput {
protected:
    ModuleTest() {
        addHostPlugins(registry_);
        std::string error;
        EXPECT_TRUE(registry_.loadModule(NIMBRA_MODULE, error)) << error;
    }
    bool write(const FinishedFrame& frame, std::string&) override {
        pictures_.push_back(frame.pixels);
        return true;
    }
    /// The pictures of some frames of a scene, which is the inside of a JSON object.
    const std::vector<FrameBuffer>& render(const std::string& body,
                                           std::vector<FrameNumber> frames = {1}, int threads = 2) {
        pictures_.clear();
        std::string faults;
        const auto scene = test::makeScene(registry_, body, faults);
        EXPECT_EQ(faults, "");
        if (scene) {
            PathTracer tracer(log_.log);
            AbortFlag abort;
            SessionOptions options;
            options.frames = std::move(frames);
            options.threads = threads;
            const auto result = RenderSession(*scene, tracer, *this, log_.log, abort).run(options);
            EXPECT_EQ(result.status, RenderStatus::Complete) << result.error;
        }
        return pictures_;
    }

    test::LogLines log_;
    PluginRegistry registry_{log_.log};
    std::vector<FrameBuffer> pictures_;
};

}  // namespace nimbra::host
