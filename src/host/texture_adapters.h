// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Stand-ins that a scene puts between a texture slot and what it was given: an output of another
// plug-in, a constant, or a texture of the other kind.
#pragma once

#include "tessra/texture.h"

namespace nimbra::host {

/// Answers as a colour texture and as a float texture by asking the one that it was given. A colour
/// read as a number is the mean of its channels; a number read as a colour is grey with alpha 1.
class TextureAdapter final : public PluginBase {
public:
    /// One of them may be null. `owner` is the plug-in that the texture belongs to, or null.
    TextureAdapter(TessUtils::TextureInterface* color, TessUtils::TextureFloatInterface* number,
                   Plugin* owner);
    PluginInterface* getInterface(InterfaceID id) override;

private:
    class ColorSide final : public TessUtils::TextureInterface {
    public:
        Plugin* getPlugin() override { return owner; }
        TessUtils::AColor getTexColor(const TessUtils::TextureContext& context) override;
        TessUtils::TextureFloatInterface* number = nullptr;
        Plugin* owner = nullptr;
    };
    class FloatSide final : public TessUtils::TextureFloatInterface {
    public:
        Plugin* getPlugin() override { return owner; }
        float getTexFloat(const TessUtils::TextureContext& context) override;
        TessUtils::TextureInterface* color = nullptr;
        Plugin* owner = nullptr;
    };
    TessUtils::TextureInterface* color_;
    TessUtils::TextureFloatInterface* number_;
    ColorSide colorSide_;
    FloatSide floatSide_;
};

/// The same colour everywhere.
class ConstantTexture final : public TessUtils::TextureInterface {
public:
    explicit ConstantTexture(const TessUtils::AColor& color) : color_(color) {}
    TessUtils::AColor getTexColor(const TessUtils::TextureContext&) override { return color_; }

private:
    TessUtils::AColor color_;
};

}  // namespace nimbra::host
