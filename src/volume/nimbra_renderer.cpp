// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/nimbra_renderer.h"

#include "cache/grid_samplers.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::TextureContext;
using TessUtils::Vector;

namespace {

/// What the textures of this thread are told.
struct TextureState {
    float time = 0;
    int thread = 0;
};
thread_local TextureState textureState;

/// A coordinate over an axis of so many cells.
float overAxis(float cells, int size) {
    return size > 0 ? cells / static_cast<float>(size) : 0;
}

}  // namespace

void NimbraRenderer::beginTextureFrame(double time) const {
    textureState.time = static_cast<float>(time);
}

void NimbraRenderer::setTextureThread(int thread) const {
    textureState.thread = thread;
}

// Each look-up brings its own position.
void NimbraRenderer::setTexturePosition(const Vector&) const {}

void NimbraRenderer::endTextures() const {
    textureState = {};
}

bool NimbraRenderer::hasTexture(int index) const {
    return index >= 0 && index < kTextureSlots && textures[index] != nullptr;
}

void NimbraRenderer::sampleTexture(Color& out, int index, const Vector& uvw,
                                   const Vector& pos) const {
    if (!hasTexture(index))
        return;
    TextureContext context;
    context.position = worldFromGridPoint(pos, textureState.time);
    for (int axis = 0; axis < 3; ++axis)
        context.uvw[axis] = overAxis(uvw[axis], gridSize[axis]);
    context.hasUVW = true;
    context.time = textureState.time;
    context.filterSize = cellScale > 0 ? 1 / cellScale : -1;
    context.threadIndex = textureState.thread;
    context.object = container;
    out = textures[index]->getTexColor(context).color;
}

Vector NimbraRenderer::getVelocity(const Vector& pos) const {
    if (!useVelocityChannels || !velocity[0].loaded || !velocity[1].loaded || !velocity[2].loaded)
        return {};
    constexpr std::uint32_t kAllThree = 7;
    const float position[3] = {pos.x, pos.y, pos.z};
    float v[3] = {0, 0, 0};
    kSampleKernels[kLinearSampler * 8](velocity, position, v, 3, kAllThree, 0);
    Vector result{v[0], v[1], v[2]};
    if (moveGridWithVelocity)
        result = result - instanceMotion.applyPoint(pos);
    return result * velocityMult;
}

void NimbraRenderer::release() {
    VolumeShaderTessra::release();
    for (GridChannelProxy<float>& channel : velocity) {
        channel.free();
        channel.resetRange();
    }
    useVelocityChannels = true;
    velocityMult = 1;
    moveGridWithVelocity = false;
}

}  // namespace nimbra
