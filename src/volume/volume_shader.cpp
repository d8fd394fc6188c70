// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shader's frame: defaults, grid, channels, release.
#include "volume/volume_shader.h"

#include <algorithm>
#include <new>

#include "cache/frame_data.h"
#include "foundation/log.h"

namespace nimbra {

using NMBUtils::logLine;
using TessUtils::Color;
using TessUtils::Vector;

namespace {

bool haveSameShape(const GridChannelProxy<float> (&channels)[kSlotCount]) {
    const GridStorage* first = nullptr;
    for (const GridChannelProxy<float>& channel : channels) {
        const GridStorage* grid = channel.loaded ? channel.storage : nullptr;
        if (!grid)
            continue;
        first = first ? first : grid;
        if (grid->cells < 1 || !std::equal(grid->size, grid->size + 3, first->size))
            return false;
    }
    return true;
}

}  // namespace

VolumeShader::VolumeShader() {
    releaseVolumeShaderInternal();
}

VolumeShader::~VolumeShader() = default;

void VolumeShader::setDefaults() {
    static_cast<VolumeSettings&>(*this) = VolumeSettings();
}

void VolumeShader::releaseVolumeShaderInternal() {
    if (has(kHasGrid))
        logLine("VolumeShader::releaseVolumeShaderInternal\n");
    lightCache.reset();
    for (int slot = 0; slot < kSlotCount; ++slot)
        bindChannel(nullptr, slot, kNoChannel);
    emptyMapCount = 0;
    emptyMapBits.reset();
    gridMin = gridMax = {};
    std::fill(gridSize, gridSize + 3, 0);
    outOfMemory = false;

    setDefaults();
    visibility = 3;
    flags = 0x80C00;
    emissionTable = fireOpacityTable = diffuseTable = opacityTable = nullptr;
    setTransforms({}, {}, false);
    setGizmo(nullptr, {}, {});
}

void VolumeShader::release() {
    releaseVolumeShaderInternal();
}

void VolumeShader::setGridSize(const int size[3]) {
    flags |= kHasGrid;
    for (int axis = 0; axis < 3; ++axis)
        gridSize[axis] = std::max(size[axis], 0);
    logLine("VolumeShader::setGridSize: %d %d %d\n", gridSize[0], gridSize[1], gridSize[2]);

    lightCache = createLightCache();
    if (!has(kSolid) && has(kLightCache) && lightCache && !lightCache->allocate(*this, gridSize)) {
        const double voxels = double(gridSize[0]) * gridSize[1] * gridSize[2];
        logLine(
            "VolumeShader::setGridSize: Not enough memory for the Nimbra Light Cache! "
            "Requested %.0f\n",
            voxels);
        flags &= ~kLightCache;
        outOfMemory = true;
    }
    // What was made for another grid is of no use here.
    emptyMapCount = 0;
    emptyMapBits.reset();
    gridMin = {};
    gridMax = {static_cast<float>(gridSize[0]), static_cast<float>(gridSize[1]),
               static_cast<float>(gridSize[2])};
}

void VolumeShader::bindChannel(NimbraFrameData* frame, int slot, int channel) {
    GridChannelProxy<float>& proxy = channels[slot];
    proxy.free();
    proxy.resetRange();
    if (frame) {
        const GridChannelProxy<float>& source = frame->getChannelProxy(channel);
        if (source.loaded)
            proxy = source;
    }
    sameShape = haveSameShape(channels);
}

std::unique_ptr<INmbGridLightCache> VolumeShader::createLightCache() const {
    return std::unique_ptr<INmbGridLightCache>(new (std::nothrow) NmbGridLightCacheBasic);
}

Color VolumeShader::sampleSelfIllum(const Vector&) const {
    return {};
}

void VolumeShader::beginTextureFrame(double) const {}
void VolumeShader::setTextureThread(int) const {}
void VolumeShader::setTexturePosition(const Vector&) const {}
void VolumeShader::endTextures() const {}
void VolumeShader::sampleTexture(Color&, int, const Vector&, const Vector&) const {}

bool VolumeShader::hasTexture(int) const {
    return false;
}

Vector VolumeShader::getVelocity(const Vector&) const {
    return {};
}

}  // namespace nimbra
