// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Host plug-ins "TessraTexConstant", "TessraTexChecker" and "TessraTexNoise".
#pragma once

#include "host/host_plugin.h"
#include "host/noise.h"
#include "tessra/texture.h"

namespace nimbra::host {

/// Base of the host's textures. Each serves colour slots and float slots (there with the mean of
/// its channels) and has the outputs "out_color", "out_intensity" and "out_alpha".
class HostTexture : public TessUtils::TessraPlugin, public TessUtils::TextureInterface {
public:
    explicit HostTexture(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    InterfaceID getInterfaceID() const override { return TessUtils::ids::kTexture; }
    const char* getInterfaceName() const override { return TextureInterface::getInterfaceName(); }
    PluginInterface* getInterface(InterfaceID id) override;

    static void addOutputs(TessUtils::TessraParameterListDesc& table);

private:
    class Side final : public TessUtils::TextureFloatInterface {
    public:
        Side(HostTexture& texture, bool alpha) : texture_(texture), alpha_(alpha) {}
        Plugin* getPlugin() override { return &texture_; }
        float getTexFloat(const TessUtils::TextureContext& context) override;

    private:
        HostTexture& texture_;
        bool alpha_;
    };
    Side intensity_{*this, false}, alpha_{*this, true};
};

class ConstantTexturePlugin final : public HostTexture {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit ConstantTexturePlugin(TessUtils::TessraPluginDesc* desc);
    TessUtils::AColor getTexColor(const TessUtils::TextureContext&) override { return color_; }

private:
    TessUtils::AColor color_;
};

/// A slot that takes a texture or keeps the colour of its row's default.
struct ColorSlot {
    TessUtils::TextureInterface* texture = nullptr;
    TessUtils::AColor fallback;
    TessUtils::AColor at(const TessUtils::TextureContext& context) const {
        return texture ? texture->getTexColor(context) : fallback;
    }
};

/// Base of textures in space: two colours, a placement, a size.
class SpaceTexture : public HostTexture {
public:
    explicit SpaceTexture(TessUtils::TessraPluginDesc* desc);
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

protected:
    static void addSpaceRows(TessUtils::TessraParameterListDesc& table, float size);
    /// The place in units of the size: of the surface's uvw if that is asked for and there, else of
    /// the world through the inverse of the placement.
    TessUtils::TracePoint place(const TessUtils::TextureContext& context) const;
    ColorSlot first_, second_;

private:
    TessUtils::TraceTransform transform_;
    float size_ = 1;
    int useUvw_ = 0;
    double inverse_[3][3] = {};  // rows of the inverse placement divided by the size
    TessUtils::TracePoint origin_;
};

class CheckerTexturePlugin final : public SpaceTexture {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit CheckerTexturePlugin(TessUtils::TessraPluginDesc* desc) : SpaceTexture(desc) {}
    TessUtils::AColor getTexColor(const TessUtils::TextureContext& context) override;
};

class NoiseTexturePlugin final : public SpaceTexture {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit NoiseTexturePlugin(TessUtils::TessraPluginDesc* desc);
    TessUtils::AColor getTexColor(const TessUtils::TextureContext& context) override;

private:
    FractalNoise noise_;
    float contrast_ = 1;
};

}  // namespace nimbra::host
