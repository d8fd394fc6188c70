// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A volume shader with the textures of its container.
#pragma once

#include "tessra/texture.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {

class NimbraRenderer : public VolumeShaderTessra {
public:
    /// 0 emission, 1 diffuse, 2 opacity, 3 smoke, 4 to 6 displacement.
    static constexpr int kTextureCount = 7;

    // The evaluation context of the textures belongs to the calling thread.
    void beginTextureFrame(double time) const override;
    void setTextureThread(int thread) const override;
    void setTexturePosition(const TessUtils::Vector& pos) const override;
    void endTextures() const override;
    /// The texture's colour at the place of grid position `pos`. The texture coordinates are the
    /// grid position `uvw` as a part of the grid, 0 to 1 on each axis. Black without a texture.
    void sampleTexture(TessUtils::Color& out, int index, const TessUtils::Vector& uvw,
                       const TessUtils::Vector& pos) const override;
    bool hasTexture(int index) const override;

    /// Bound at the frame's begin; null: none.
    TessUtils::TextureInterface* textures[kTextureCount] = {};
};

}  // namespace nimbra
