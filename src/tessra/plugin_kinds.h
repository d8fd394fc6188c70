// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Bases of plug-ins that bring geometry or a texture.
#pragma once

#include "tessra/geometry.h"
#include "tessra/tessra_plugin.h"
#include "tessra/texture.h"

namespace TessUtils {

/// Base of plug-ins that yield static geometry.
class TESSRA_API TessraStaticGeomSource : public TessraPlugin, public StaticGeomSourceInterface {
public:
    explicit TessraStaticGeomSource(TessraPluginDesc* desc) : TessraPlugin(desc) {}
    Plugin* getPlugin() override { return this; }
    PluginInterface* getInterface(InterfaceID id) override;
};

/// Base of colour textures.
class TESSRA_API TessraTexture : public TessraPlugin, public TextureInterface {
public:
    explicit TessraTexture(TessraPluginDesc* desc) : TessraPlugin(desc) {}
    Plugin* getPlugin() override { return this; }
    PluginInterface* getInterface(InterfaceID id) override;
};

}  // namespace TessUtils
