// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Where plug-ins that want to be marched meet the collector, which may not exist yet.
#pragma once

#include "foundation/array.h"
#include "tessra/plugin_base.h"

namespace TessUtils {
class TessraRenderer;
}

namespace nimbra {

/// ID kNimbraVolumeRegister: hangs on a renderer. Scene thread only.
class NimbraVolumeRegister : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return TessUtils::ids::kNimbraVolumeRegister; }
    /// Appends the plug-in unless it is in the list.
    void add(Plugin* plugin);

    NMBUtils::NmbArray<Plugin*, int> plugins;
};

/// The register of a renderer, made when first asked for. The host doesn't own it.
NimbraVolumeRegister* getVolumeRegister(TessUtils::TessraRenderer* renderer);
/// Takes the register off the renderer and deletes it; nothing where there is none.
void releaseVolumeRegister(TessUtils::TessraRenderer* renderer);

}  // namespace nimbra
