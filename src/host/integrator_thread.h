// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What one render thread keeps between rays. Shared by the sources of the integrator alone.
#pragma once

#include <atomic>
#include <vector>

#include "host/integrator.h"

namespace nimbra::host {

struct Integrator::Thread {
    Thread(int index, int levels, const TraceScene& scene, Integrator& integrator)
        : contexts(static_cast<std::size_t>(levels)) {
        for (TraceContext& context : contexts) {
            context.threadIndex = index;
            context.camera = scene.cameras[0].get();
            context.lights = &integrator;
        }
    }
    /// One writer, this thread; others may read.
    void countRay() {
        rays.store(rays.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    std::vector<TraceContext> contexts;  // by level; 0 is the camera ray's
    std::size_t level = 0;               // of the ray at work
    std::atomic<std::uint64_t> rays{0};
};

/// Takes the next level's context for as long as it lives.
class Integrator::Nested {
public:
    explicit Nested(Thread& thread) : thread_(thread) { ++thread_.level; }
    ~Nested() { --thread_.level; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;
    /// Null when the nesting is too deep.
    TraceContext* context() {
        return thread_.level < thread_.contexts.size() ? &thread_.contexts[thread_.level] : nullptr;
    }

private:
    Thread& thread_;
};

}  // namespace nimbra::host
