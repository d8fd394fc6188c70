// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Calls the lifecycle operations of all plug-ins in their order, and lets nothing that a plug-in
// throws get past.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/host_log.h"
#include "host/scene.h"
#include "tessra/renderer.h"
#include "tessra/volumetric.h"

namespace nimbra::host {

/// The first thing that went wrong in a step.
struct StepFailure {
    std::string text;  // names plug-in and operation
    bool outOfMemory = false;
    bool failed() const { return !text.empty(); }
    /// Keeps the first of two.
    void take(const StepFailure& other) {
        if (!failed())
            *this = other;
    }
};

/// Runs `body` and turns what it throws into a failure that begins with `what`.
StepFailure guarded(const std::string& what, const std::function<void()>& body);

/// The lifecycle of one render. A "begin" step stops at the first plug-in that throws; the "end"
/// step then runs for those alone whose begin was called, in reverse order, and goes on after a
/// failure.
class Lifecycle {
public:
    Lifecycle(const Scene& scene, HostLog& log);

    StepFailure beginRender(TessUtils::TessraRenderer& renderer);
    StepFailure beginFrame(TessUtils::TessraRenderer& renderer);
    StepFailure compileGeometry(TessUtils::TessraRenderer& renderer);
    StepFailure clearGeometry(TessUtils::TessraRenderer& renderer);
    StepFailure endFrame(TessUtils::TessraRenderer& renderer);
    StepFailure endRender(TessUtils::TessraRenderer& renderer);

private:
    struct Entry {
        Plugin* plugin;
        TessUtils::TessraPluginInterface* driven = nullptr;
        TessUtils::TessraSceneModifierInterface* modifier = nullptr;
        TessUtils::RenderSettingsInterface* settings = nullptr;
        TessUtils::GeomGenInterface* generator = nullptr;
    };
    using Step = std::function<void(Entry&)>;

    StepFailure begin(const char* operation, std::size_t& begun, const Step& step);
    StepFailure end(const char* operation, std::size_t& begun, const Step& step);

    HostLog& log_;
    std::vector<Entry> entries_;
    // How many entries, from the first, are within each pair of steps.
    std::size_t preRender_ = 0, render_ = 0, preFrame_ = 0, frame_ = 0, geometry_ = 0;
};

}  // namespace nimbra::host
