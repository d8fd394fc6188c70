// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Lazy cache of the light that arrives at the voxels of a grid.
//
// Each voxel is lit on the first ray that needs it; steps interpolate between the eight voxels
// around them. Only voxels that rays reach are paid for.
#pragma once

#include <xmmintrin.h>

#include <cstdint>

#include "foundation/array.h"
#include "tessra/math.h"

namespace nimbra {

class Illuminator;
class VolumeShader;

/// Written by all render threads at once; valid for one frame and one set of lights.
class INmbGridLightCache {
public:
    virtual ~INmbGridLightCache() = default;
    /// Makes room for every voxel, all unlit. False when there is no memory for it.
    virtual bool allocate(const VolumeShader& shader, const int gridSize[3]) = 0;
    /// The light at a grid position, lighting the voxels around it that aren't lit yet.
    virtual void lookup(TessUtils::Color& out, const VolumeShader& shader,
                        const TessUtils::Vector& pos, Illuminator& illuminator) = 0;
};

/// The random seed with which a voxel is lit, a function of its index alone.
std::uint32_t lightCacheSeed(std::uint32_t voxelIndex);

/// Holds colour only.
class NmbGridLightCacheBasic : public INmbGridLightCache {
public:
    bool allocate(const VolumeShader& shader, const int gridSize[3]) override;
    void lookup(TessUtils::Color& out, const VolumeShader& shader, const TessUtils::Vector& pos,
                Illuminator& illuminator) override;

    /// Whether the voxel was lit already.
    bool isLit(std::int64_t voxelIndex) const;

private:
    struct Corners;
    /// The eight voxels around a position and their weights.
    Corners cornersAround(const TessUtils::Vector& pos) const;
    /// Lights a voxel; false when there is too much light for the cache.
    bool lightVoxel(std::int64_t voxelIndex, const VolumeShader& shader, Illuminator& illuminator);
    /// The light of a voxel that was lit.
    __m128 lightOf(std::int64_t voxelIndex) const;
    TessUtils::Vector voxelPosition(std::int64_t voxelIndex) const;

    int size[3] = {0, 0, 0};
    /// RGB per voxel, x fastest. -1 in the first component: not lit yet. Threads may light one
    /// voxel at the same time, the first to store wins. All access is atomic; the first component
    /// is stored last.
    NMBUtils::NmbArray<float, long long, 0, 1> rgb;
};

}  // namespace nimbra
