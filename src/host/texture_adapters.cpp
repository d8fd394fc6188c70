// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/texture_adapters.h"

namespace nimbra::host {

using namespace TessUtils;

namespace {

float mean(const Color& color) {
    return (color.r + color.g + color.b) * (1.0f / 3.0f);
}

}  // namespace

TextureAdapter::TextureAdapter(TextureInterface* color, TextureFloatInterface* number,
                               Plugin* owner)
    : color_(color), number_(number) {
    colorSide_.number = number;
    colorSide_.owner = owner;
    floatSide_.color = color;
    floatSide_.owner = owner;
}

PluginInterface* TextureAdapter::getInterface(InterfaceID id) {
    if (id == ids::kTexture)
        return color_ ? color_ : &colorSide_;
    if (id == ids::kTextureFloat)
        return number_ ? number_ : &floatSide_;
    return PluginBase::getInterface(id);
}

AColor TextureAdapter::ColorSide::getTexColor(const TextureContext& context) {
    const float value = number ? number->getTexFloat(context) : 0;
    return {{value, value, value}, 1};
}

float TextureAdapter::FloatSide::getTexFloat(const TextureContext& context) {
    return color ? mean(color->getTexColor(context).color) : 0;
}

}  // namespace nimbra::host
