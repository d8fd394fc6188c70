// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the steps of one preFrameBegin hand to each other.
#pragma once

#include "plugin/sim_plugin.h"

namespace nimbra {

struct NimbraSimPlugin::FrameLoad {
    explicit FrameLoad(TessUtils::TessraRenderer* r)
        : renderer(r), situation(r), useMotionBlur(situation.useMotionBlur) {}

    TessUtils::TessraRenderer* renderer;
    RenderSituation situation;
    NimbraFrameData* frame = nullptr;   // null: none for this time
    NMBUtils::Matrix34 gridFromObject;  // of the frame or of the grid without one
    bool useMotionBlur;                 // of the container's place
    bool useVelocityBlur = false;       // of the grid's content

    const TessUtils::TessraFrameData& times() const { return renderer->getFrameData(); }
    const TessUtils::TessraSequenceData& sequence() const { return renderer->getSequenceData(); }
};

}  // namespace nimbra
