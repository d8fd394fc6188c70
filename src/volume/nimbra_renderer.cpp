// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/nimbra_renderer.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::TextureContext;
using TessUtils::Vector;

namespace {

/// What does not change between the look-ups of one ray.
thread_local TextureContext textureContext;

}  // namespace

void NimbraRenderer::beginTextureFrame(double time) const {
    textureContext = TextureContext();
    textureContext.time = static_cast<float>(time);
    textureContext.filterSize = -1;
}

void NimbraRenderer::setTextureThread(int thread) const {
    textureContext.threadIndex = thread;
}

void NimbraRenderer::setTexturePosition(const Vector& pos) const {
    textureContext.position = worldFromGridPoint(pos, textureContext.time);
}

void NimbraRenderer::endTextures() const {
    textureContext = TextureContext();
}

bool NimbraRenderer::hasTexture(int index) const {
    return index >= 0 && index < kTextureCount && textures[index] != nullptr;
}

void NimbraRenderer::sampleTexture(Color& out, int index, const Vector& uvw,
                                   const Vector& pos) const {
    out = {};
    if (!hasTexture(index))
        return;
    setTexturePosition(pos);
    TextureContext context = textureContext;
    context.hasUVW = true;
    for (int axis = 0; axis < 3; ++axis)
        context.uvw[axis] =
            gridSize[axis] > 0 ? uvw[axis] / static_cast<float>(gridSize[axis]) : 0.0f;
    out = textures[index]->getTexColor(context).color;
}

}  // namespace nimbra
