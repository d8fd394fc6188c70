// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Render channels: pictures beside the main one that a render writes, as plug-ins of the scene.
#pragma once

#include "tessra/plugin_base.h"
#include "tessra/shading.h"

namespace TessUtils {

class TessraRenderer;

/// "EXT_RENDER_CHANNEL"
class TESSRA_API RenderChannelInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kRenderChannel; }
    const char* getInterfaceName() const override { return "EXT_RENDER_CHANNEL"; }

    /// RenderChannelAlias, or 0 for a channel that is known by its name alone.
    virtual int getAlias() const = 0;
    virtual const char* getChannelName() const = 0;
    /// The channel's ID in this render (RenderChannelRef::index); -1 until it was set up.
    virtual int getChannelID() const = 0;
};

/// "RTZDepthChannelData": how a depth channel maps distances along the view.
class TESSRA_API RTZDepthChannelData : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kZDepthChannelData; }
    const char* getInterfaceName() const override { return "RTZDepthChannelData"; }

    /// Distances in scene units that come out black and white, and whether those outside are
    /// limited to them.
    virtual void getDepthRange(double time, float& black, float& white, bool& clamp) const = 0;
};

/// A channel that a plug-in brings as a part of itself.
class TESSRA_API RenderChannelBase : public RenderChannelInterface {
public:
    explicit RenderChannelBase(const char* name) : name_(name) {}
    int getAlias() const override { return 0; }
    const char* getChannelName() const override { return name_; }
    int getChannelID() const override { return channelID; }

    int channelID = -1;
    bool shared = true;  // written beside others of the same kind, in one picture

private:
    const char* name_;  // lives as long as the program
};

}  // namespace TessUtils
