// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Services of a host for files of textures and for changes to the plug-ins of a scene.
#pragma once

#include <string>

#include "tessra/plugin_base.h"

namespace TessUtils {

class TessraRenderer;

/// Finds the files that textures name. Any thread.
class TESSRA_API AssetManagerInterface {
public:
    virtual ~AssetManagerInterface();
    /// The path to open; the base puts the scene's folder before a relative path.
    virtual std::string assetPath(Plugin* plugin, const std::string& path) const;
};

/// Keeps the bitmaps that a texture has open. This host's textures keep theirs by themselves.
class TESSRA_API BitmapManagerInterface {
public:
    virtual ~BitmapManagerInterface();
    virtual int bitmapCount() const { return 0; }
};

/// Follows the plug-ins of a scene that changes while it is rendered. Scene thread. Plug-ins need
/// not know which objects of the host follow them.
class TESSRA_API PlugAnimationUpdater {
public:
    virtual ~PlugAnimationUpdater();
    virtual void frameBegin(TessraRenderer* renderer) = 0;
    virtual void frameEnd(TessraRenderer* renderer) = 0;
    virtual void renderBegin(TessraRenderer* renderer) = 0;
    virtual void renderEnd(TessraRenderer* renderer) = 0;
    virtual void newPlugin(Plugin* plugin) = 0;
    /// The plug-in lives until processDeletedPlugins.
    virtual void deletePlugin(Plugin* plugin) = 0;
    /// A parameter of the plug-in changed.
    virtual void pluginUpdate(Plugin* plugin) = 0;
    virtual void processDeletedPlugins() = 0;
    /// Brings all changes so far into the render.
    virtual void doProcessing() = 0;
    virtual void freeMem() = 0;
};

}  // namespace TessUtils
