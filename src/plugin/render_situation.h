// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a plug-in asks of the running render before it prepares a frame.
#pragma once

#include "cache/host_query.h"

namespace nimbra {

/// Answers of one frame.
struct RenderSituation {
    explicit RenderSituation(TessUtils::TessraRenderer* renderer);

    bool useMotionBlur = false;  // of the scene or of its camera
    // Of interactive sequences.
    bool isProgressive = false, isRealtime = false;
    bool isPlainRT = false;  // the engine draws in real time, whatever the sequence says
    bool isInteractiveAny() const { return isProgressive || isRealtime; }

    float unitScale = 1;      // metres in one scene unit
    float frameDuration = 0;  // seconds; 0: unknown
    int upAxis = 1;           // the axis nearest to up, the lower one of two
};

}  // namespace nimbra
