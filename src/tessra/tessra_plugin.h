// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The base of all plug-ins with parameters, and the two lifecycle interfaces.
// One render goes: preRenderBegin (modifiers), renderBegin, and for each frame preFrameBegin
// (modifiers), frameBegin, tracing, frameEnd, postFrameEnd (modifiers); then renderEnd and
// postRenderEnd. All on the scene thread, one plug-in after the other.
#pragma once

#include "tessra/parameters.h"
#include "tessra/plugin_base.h"

namespace TessUtils {

class TessraRenderer;

/// "EXT_TESSRA_PLUGIN": what the host drives.
class TESSRA_API TessraPluginInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kTessraPlugin; }
    const char* getInterfaceName() const override { return "EXT_TESSRA_PLUGIN"; }

    virtual void renderBegin(TessraRenderer* renderer) = 0;
    virtual void renderEnd(TessraRenderer* renderer) = 0;
    virtual void frameBegin(TessraRenderer* renderer) = 0;
    virtual void frameEnd(TessraRenderer* renderer) = 0;
    /// Takes a value of the scene; false if there is no such row.
    virtual bool setParameter(TessraPluginParameter* parameter) = 0;
    /// The scene's value, or null where it is unset.
    virtual TessraPluginParameter* getParameter(const char* name) = 0;
};

/// "EXT_SCENE_MODIFIER": called before any plug-in's renderBegin or frameBegin, so that a plug-in
/// can change the scene that the others will see. Parameters are not refreshed yet: read them by
/// getParam.
class TESSRA_API TessraSceneModifierInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kSceneModifier; }
    const char* getInterfaceName() const override { return "EXT_SCENE_MODIFIER"; }

    virtual void preRenderBegin(TessraRenderer* renderer) = 0;
    virtual void postRenderEnd(TessraRenderer* renderer) = 0;
    virtual void preFrameBegin(TessraRenderer* renderer) = 0;
    virtual void postFrameEnd(TessraRenderer* renderer) = 0;
};

/// Marks a plug-in that stands on its own in the scene.
class TESSRA_API TopLevelPluginInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kTopLevelPlugin; }
    const char* getInterfaceName() const override { return "EXT_TOP_LEVEL_PLUGIN_INTERFACE"; }
};

/// A plug-in that takes part in setting up the render.
class TESSRA_API RenderSettingsInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kRenderSettings; }
    /// Called once, after all preRenderBegin and before any renderBegin.
    virtual void setupRender(TessraRenderer* renderer) = 0;
};

/// Brings changes between the frames of an interactive render.
class TESSRA_API RTDynamicUpdateInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kDynamicUpdate; }
    const char* getInterfaceName() const override { return "EXT_RT_DYNUPDATE"; }
    virtual void dynamicUpdate(TessraRenderer* renderer) = 0;
};

/// Adds a parameter table to a descriptor.
class TESSRA_API TessraPluginDesc : public PluginDesc {
public:
    void registerParameters(PluginHost* host) override;
    void unregisterParameters(PluginHost* host) override;
    /// Null until the table is built.
    const TessraParameterListDesc* parameters() const { return parameters_; }

protected:
    TessraParameterListDesc* parameters_ = nullptr;
};

/// A plug-in instance with its parameter list.
class TESSRA_API TessraPlugin : public Plugin, public TessraPluginInterface {
public:
    explicit TessraPlugin(TessraPluginDesc* desc);
    ~TessraPlugin() override;

    PluginDesc* getPluginDesc() override { return desc_; }
    PluginInterface* getInterface(InterfaceID id) override;
    Plugin* getPlugin() override { return this; }

    void renderBegin(TessraRenderer* renderer) override;
    void renderEnd(TessraRenderer* renderer) override;
    /// Reads every parameter into its cache for the frame's time: overrides call this first.
    void frameBegin(TessraRenderer* renderer) override;
    void frameEnd(TessraRenderer* renderer) override;
    bool setParameter(TessraPluginParameter* parameter) override;
    TessraPluginParameter* getParameter(const char* name) override;

    TessraParameterList* parameterList() const { return paramList; }

protected:
    TessraPluginDesc* desc_;
    TessraParameterList* paramList;
};

}  // namespace TessUtils
