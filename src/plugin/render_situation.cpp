// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/render_situation.h"

#include <cmath>

namespace nimbra {

using namespace TessUtils;

namespace {

int longestAxis(const Vector& v) {
    int axis = 0;
    for (int i = 1; i < 3; ++i)
        if (std::fabs(v[i]) > std::fabs(v[axis]))
            axis = i;
    return axis;
}

}  // namespace

RenderSituation::RenderSituation(TessraRenderer* renderer) {
    const TessraSequenceData& sequence = renderer->getSequenceData();
    useMotionBlur = hasMotionBlur(renderer);

    auto* engine = queryRender<InteractiveEngineInterface>(renderer, ids::kInteractiveEngine);
    isProgressive = engine && sequence.isInteractive && engine->isProgressive();
    isPlainRT = engine && engine->isRealtime();
    isRealtime = isPlainRT && sequence.isInteractive;

    if (auto* units = queryRender<SceneUnitsInterface>(renderer, ids::kSceneUnits)) {
        unitScale = units->scale();
        frameDuration = units->frameDuration();
        upAxis = longestAxis(units->upDirection());
    }
}

}  // namespace nimbra
