// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Questions to the running render.
#pragma once

#include "tessra/renderer.h"

namespace nimbra {

/// The object that answers to an ID, of the sequence or else of the renderer itself; null if there
/// is none.
PluginInterface* queryRender(TessUtils::TessraRenderer* renderer, InterfaceID id);

template <class Interface>
Interface* queryRender(TessUtils::TessraRenderer* renderer, InterfaceID id) {
    return static_cast<Interface*>(queryRender(renderer, id));
}

/// Whether the scene or its camera has motion blur.
bool hasMotionBlur(TessUtils::TessraRenderer* renderer);

}  // namespace nimbra
