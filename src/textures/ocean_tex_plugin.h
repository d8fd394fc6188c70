// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The scene texture "NmbShaderOceanTex": the sea as a colour, mostly for slots that displace.
#pragma once

#include "tessra/tessra_plugin.h"
#include "tessra/texture.h"
#include "textures/ocean.h"

namespace nimbra {

class NimbraOceanTexPlugin : public TessUtils::TessraPlugin, public TessUtils::TextureInterface {
public:
    explicit NimbraOceanTexPlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    InterfaceID getInterfaceID() const override { return TessUtils::ids::kTexture; }
    const char* getInterfaceName() const override { return TextureInterface::getInterfaceName(); }
    PluginInterface* getInterface(InterfaceID id) override;

    /// Sets up the sea for the frame. An attached UvwGenInterface places it.
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

    /// Colour of the sea at a point; any number of threads. See Ocean::getValue.
    TessUtils::AColor getTexColor(const TessUtils::TextureContext& context) override;

    const Ocean& ocean() const { return ocean_; }

private:
    void placeSea(TessUtils::TessraRenderer* renderer);

    /// Members that follow the scene's rows.
    struct Rows {
        int vector = 1, useWind = 1, lod = 10, upVector = 1, seed = 345344, animMode = 0;
        float wind = 3, sharpness = 0.9f, velmult = 1, velcoh = 0.2f, rgbmult = 1, rgboffset = 0;
        float meterScale = 1, bell = 0.2f, loopLength = 0, directTime = 1;
        TessUtils::TextureInterface* scale = nullptr;
    } rows_;

    Ocean ocean_;
    TessUtils::Transform fromShaded_;       // shaded positions to the texture's space
    NMBUtils::Matrix34 toVector_;           // its inverse
    double frameStart_ = 0, frameEnd_ = 0;  // in frames
    float frameDuration_ = 0;               // in seconds
};

}  // namespace nimbra
