// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/host_query.h"

namespace nimbra {

using namespace TessUtils;

PluginInterface* queryRender(TessraRenderer* renderer, InterfaceID id) {
    // Asking an object for an interface doesn't change it.
    auto& sequence = const_cast<TessraSequenceData&>(renderer->getSequenceData());
    PluginInterface* const found = sequence.getInterface(id);
    return found ? found : renderer->getInterface(id);
}

bool hasMotionBlur(TessraRenderer* renderer) {
    constexpr int kNone = -1;
    auto* camera = queryRender<CameraSettingsInterface>(renderer, ids::kCameraSettings);
    return renderer->getSequenceData().motionBlurOn != 0 ||
           (camera && camera->getValue(kCameraMotionBlurKey) != kNone);
}

}  // namespace nimbra
