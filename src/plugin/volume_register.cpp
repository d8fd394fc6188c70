// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/volume_register.h"

#include <memory>
#include <vector>

#include "tessra/renderer.h"

namespace nimbra {

void NimbraVolumeRegister::add(Plugin* plugin) {
    for (Plugin* known : plugins)
        if (known == plugin)
            return;
    plugins.Append(plugin);
}

namespace {

/// Of all renderers; what a render that was broken off left behind goes with the library.
std::vector<std::unique_ptr<NimbraVolumeRegister>> registers;

}  // namespace

NimbraVolumeRegister* getVolumeRegister(TessUtils::TessraRenderer* renderer) {
    if (PluginInterface* found = renderer->getInterface(TessUtils::ids::kNimbraVolumeRegister))
        return static_cast<NimbraVolumeRegister*>(found);
    registers.push_back(std::make_unique<NimbraVolumeRegister>());
    renderer->addInterface(registers.back().get(), false);
    return registers.back().get();
}

void releaseVolumeRegister(TessUtils::TessraRenderer* renderer) {
    PluginInterface* found = renderer->getInterface(TessUtils::ids::kNimbraVolumeRegister);
    if (!found)
        return;
    renderer->removeInterface(found);
    std::erase_if(registers, [found](const auto& entry) { return entry.get() == found; });
}

}  // namespace nimbra
