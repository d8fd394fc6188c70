// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A volume shader with the textures and the velocities of its container.
#pragma once

#include "cache/grid_channel.h"
#include "tessra/texture.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {

class NimbraRenderer : public VolumeShaderTessra {
public:
    // What the textures of the calling thread are told beside a position. Textures of one ray are
    // asked by one thread, so that each thread keeps its own.
    void beginTextureFrame(double time) const override;
    void setTextureThread(int thread) const override;
    void setTexturePosition(const TessUtils::Vector& pos) const override;
    void endTextures() const override;
    /// `uvw` in cells, like `pos`; the texture gets it as 0 to 1 over the grid. An empty slot
    /// leaves `out` as it is.
    void sampleTexture(TessUtils::Color& out, int index, const TessUtils::Vector& uvw,
                       const TessUtils::Vector& pos) const override;
    bool hasTexture(int index) const override;

    /// Cells per second of the grid's content within its container. Zero without all three
    /// velocity channels, and where they aren't to be used.
    TessUtils::Vector getVelocity(const TessUtils::Vector& pos) const override;

    void release() override;

    /// What its textures are told to be shaded.
    PluginBase* container = nullptr;
    /// Of the scene, for the current frame; null where nothing is connected.
    TessUtils::TextureInterface* textures[kTextureSlots] = {};

    /// Channels of the stored velocity in cells per second; empty without motion blur.
    GridChannelProxy<float> velocity[3];
    /// False where the origin of each voxel's content was to tell its motion and isn't known.
    bool useVelocityChannels = true;
    float velocityMult = 1;
    /// Whether the movement of the container is to be taken out of the stored velocity.
    bool moveGridWithVelocity = false;
    /// A position in the grid to the cells per second that the container itself moves there.
    NMBUtils::Matrix34 instanceMotion;
};

}  // namespace nimbra
