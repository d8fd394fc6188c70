// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Textures: a colour or a number at a shaded point.
#pragma once

#include "tessra/math.h"
#include "tessra/plugin_base.h"

namespace TessUtils {

/// Where and when a texture is asked. Used on render threads; `threadIndex` is below the thread
/// count.
struct TextureContext {
    TracePoint position;  // world, scene offset subtracted
    Vector normal{0, 0, 1};
    Vector uvw;  // of the surface, 0 to 1 over the mapped area
    bool hasUVW = false;
    float time = 0;        // within the frame's motion interval
    float filterSize = 0;  // width of the looked-up area in scene units; -1: no filtering
    int threadIndex = 0;
    std::uint32_t rayFlags = 0;
    /// What is shaded: of a surface its plug-in, of a volume its container. It can be asked for
    /// interfaces like MappedPointInterface. Null where no object is known.
    PluginBase* object = nullptr;
};

class TESSRA_API TextureInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kTexture; }
    const char* getInterfaceName() const override { return "EXT_TEXTURE"; }
    virtual AColor getTexColor(const TextureContext& context) = 0;
};

class TESSRA_API TextureFloatInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kTextureFloat; }
    virtual float getTexFloat(const TextureContext& context) = 0;
};

/// ID kUvwGen: where a texture lies.
class TESSRA_API UvwGenInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kUvwGen; }
    /// From the world (no scene offset subtracted) to the texture's space.
    virtual Transform getUVWTransform(double time) const = 0;
};

/// ID kFloatRemap: a curve that a scene draws.
class TESSRA_API FloatRemapInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kFloatRemap; }
    virtual float evalFloat(float x, double time) const = 0;
};

/// ID kColorRemap: a gradient that a scene draws.
class TESSRA_API ColorRemapInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kColorRemap; }
    virtual Color evalColor(float x, double time) const = 0;
};

}  // namespace TessUtils
