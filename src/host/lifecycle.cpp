// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/lifecycle.h"

#include <exception>
#include <new>

namespace nimbra::host {

using namespace TessUtils;

StepFailure guarded(const std::string& what, const std::function<void()>& body) {
    try {
        body();
        return {};
    } catch (const std::bad_alloc&) {
        return {what + ": out of memory", true};
    } catch (const std::exception& error) {
        return {what + ": " + error.what(), false};
    } catch (...) {
        return {what + ": failed for an unknown reason", false};
    }
}

namespace {

template <class Interface>
Interface* ask(Plugin* plugin, InterfaceID id) {
    return dynamic_cast<Interface*>(plugin->getInterface(id));
}

}  // namespace

Lifecycle::Lifecycle(const Scene& scene, HostLog& log) : log_(log) {
    for (Plugin* plugin : scene.dependencyOrder()) {
        Entry entry{plugin};
        entry.driven = ask<TessraPluginInterface>(plugin, ids::kTessraPlugin);
        entry.modifier = ask<TessraSceneModifierInterface>(plugin, ids::kSceneModifier);
        entry.settings = ask<RenderSettingsInterface>(plugin, ids::kRenderSettings);
        entry.generator = ask<GeomGenInterface>(plugin, ids::kGeomGen2);
        if (!entry.generator)
            entry.generator = ask<GeomGenInterface>(plugin, ids::kGeomGen);
        entries_.push_back(entry);
    }
}

StepFailure Lifecycle::begin(const char* operation, std::size_t& begun, const Step& step) {
    for (begun = 0; begun < entries_.size();) {
        Entry& entry = entries_[begun++];
        const std::string what = std::string(entry.plugin->getPluginName()) + ": " + operation;
        StepFailure failure = guarded(what, [&] { step(entry); });
        if (failure.failed())
            return failure;
    }
    return {};
}

StepFailure Lifecycle::end(const char* operation, std::size_t& begun, const Step& step) {
    StepFailure first;
    while (begun > 0) {
        Entry& entry = entries_[--begun];
        const std::string what = std::string(entry.plugin->getPluginName()) + ": " + operation;
        const StepFailure failure = guarded(what, [&] { step(entry); });
        if (failure.failed())
            log_.error(failure.text);
        first.take(failure);
    }
    return first;
}

StepFailure Lifecycle::beginRender(TessraRenderer& renderer) {
    StepFailure failure = begin("preRenderBegin", preRender_, [&](Entry& entry) {
        if (entry.modifier)
            entry.modifier->preRenderBegin(&renderer);
    });
    std::size_t unpaired = 0;
    if (!failure.failed())
        failure = begin("setupRender", unpaired, [&](Entry& entry) {
            if (entry.settings)
                entry.settings->setupRender(&renderer);
        });
    if (!failure.failed())
        failure = begin("renderBegin", render_, [&](Entry& entry) {
            if (entry.driven)
                entry.driven->renderBegin(&renderer);
        });
    // What setupRender enters into the render is taken back in renderEnd.
    if (unpaired > render_)
        render_ = unpaired;
    return failure;
}

StepFailure Lifecycle::beginFrame(TessraRenderer& renderer) {
    StepFailure failure = begin("preFrameBegin", preFrame_, [&](Entry& entry) {
        if (entry.modifier)
            entry.modifier->preFrameBegin(&renderer);
    });
    if (!failure.failed())
        failure = begin("frameBegin", frame_, [&](Entry& entry) {
            if (entry.driven)
                entry.driven->frameBegin(&renderer);
        });
    return failure;
}

StepFailure Lifecycle::compileGeometry(TessraRenderer& renderer) {
    return begin("compileGeometry", geometry_, [&](Entry& entry) {
        if (entry.generator)
            entry.generator->compileGeometry(&renderer);
    });
}

StepFailure Lifecycle::clearGeometry(TessraRenderer& renderer) {
    return end("clearGeometry", geometry_, [&](Entry& entry) {
        if (entry.generator)
            entry.generator->clearGeometry(&renderer);
    });
}

StepFailure Lifecycle::endFrame(TessraRenderer& renderer) {
    StepFailure failure = end("frameEnd", frame_, [&](Entry& entry) {
        if (entry.driven)
            entry.driven->frameEnd(&renderer);
    });
    failure.take(end("postFrameEnd", preFrame_, [&](Entry& entry) {
        if (entry.modifier)
            entry.modifier->postFrameEnd(&renderer);
    }));
    return failure;
}

StepFailure Lifecycle::endRender(TessraRenderer& renderer) {
    StepFailure failure = end("renderEnd", render_, [&](Entry& entry) {
        if (entry.driven)
            entry.driven->renderEnd(&renderer);
    });
    failure.take(end("postRenderEnd", preRender_, [&](Entry& entry) {
        if (entry.modifier)
            entry.modifier->postRenderEnd(&renderer);
    }));
    return failure;
}

}  // namespace nimbra::host
