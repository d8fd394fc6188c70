// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host's tracer: gathers what a scene holds for one frame and answers camera samples.
#pragma once

#include <memory>

#include "host/session.h"

namespace nimbra::host {

/// beginFrame throws std::runtime_error with what the scene lacks, or std::bad_alloc.
class PathTracer final : public FrameTracer {
public:
    explicit PathTracer(HostLog& log);
    ~PathTracer() override;

    /// "Z": distance along the view of the first surface.
    std::vector<std::string> layerNames() const override;
    void beginFrame(TessUtils::TessraRenderer& renderer, Scene& scene,
                    const RenderSettings& settings) override;
    void endFrame() override;
    void radiance(const CameraSample& sample, SampleValue& out) override;
    std::uint64_t rayCount() const override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace nimbra::host
