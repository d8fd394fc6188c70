// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Filling and reading the light cache.
#include "volume/light_cache.h"

#include <algorithm>
#include <atomic>

#include "cache/sampler_lanes.h"
#include "volume/illuminator.h"
#include "volume/opacity_lanes.h"
#include "volume/volume_shader.h"

namespace nimbra {

using TessUtils::Color;
using TessUtils::Vector;

namespace {

constexpr float kUnlit = -1.0f;
/// Light above this would swamp its neighbours.
constexpr float kMostLight = 1e20f;

std::atomic_ref<float> atomicCell(float& cell) {
    return std::atomic_ref<float>(cell);
}

/// Whether three factors make a number of voxels that three floats each can be counted for.
bool checkedVoxelCount(const int size[3], long long& count) {
    return !__builtin_mul_overflow(static_cast<long long>(size[0]), size[1], &count) &&
           !__builtin_mul_overflow(count, size[2], &count) && count <= (1LL << 60);
}

}  // namespace

std::uint32_t lightCacheSeed(std::uint32_t voxelIndex) {
    std::uint32_t x = voxelIndex * voxelIndex;
    x = (((x >> 16 ^ x) >> 7) ^ ((x * 8 ^ x) << 10) ^ x) * 0x41C64E6Du + 0xCC6C5534u;
    return (x >> 16) + ((x * 0x41C64E6Du + 0x3039u) & 0xFFFF0000u);
}

bool NmbGridLightCacheBasic::allocate(const VolumeShader& /*shader*/, const int gridSize[3]) {
    std::copy(gridSize, gridSize + 3, size);
    rgb.Clear();
    long long voxels = 0;
    const bool fits =
        checkedVoxelCount(gridSize, voxels) && rgb.SetSize(voxels * 3, &kUnlit, true) != 0;
    if (!fits)
        std::fill(size, size + 3, 0);
    return fits;
}

struct NmbGridLightCacheBasic::Corners {
    std::int64_t base = 0;
    std::int64_t stride[3] = {0, 0, 0};
    float upper[3];         // weights of the upper neighbours
    unsigned highEdge = 0;  // bit per axis: there is no upper neighbour

    bool exists(unsigned corner) const { return (corner & highEdge) == 0; }
    std::int64_t index(unsigned corner) const {
        return base + (corner & 1 ? stride[0] : 0) + (corner & 2 ? stride[1] : 0) +
               (corner & 4 ? stride[2] : 0);
    }
    void weigh(float weights[8]) const {
        const EightWeights<0> products(_mm_setr_ps(upper[0], upper[1], upper[2], 0.0f));
        _mm_store_ps(weights, products.near);
        _mm_store_ps(weights + 4, products.far);
    }
};

NmbGridLightCacheBasic::Corners NmbGridLightCacheBasic::cornersAround(const Vector& pos) const {
    Corners corners;
    std::int64_t stride = 1;
    for (int axis = 0; axis < 3; ++axis) {
        const int last = size[axis] - 1;
        // Bounded first, since a far position has no integer part.
        const float p = pos[axis] > -2.0f ? std::min(pos[axis], static_cast<float>(last) + 1) : -2;
        int i = static_cast<int>(p);
        corners.upper[axis] = p - static_cast<float>(i);
        // A single layer has no upper neighbour, wherever the position lies.
        if (i >= last || last == 0) {
            i = last;
            corners.highEdge |= 1u << axis;
            corners.upper[axis] = 0;
        } else if (i < 0) {
            i = 0;
            corners.upper[axis] = 0;
        }
        corners.stride[axis] = stride;
        corners.base += i * stride;
        stride *= size[axis];
    }
    return corners;
}

void NmbGridLightCacheBasic::lookup(Color& out, const VolumeShader& shader, const Vector& pos,
                                    Illuminator& illuminator) {
    out = {};
    if (rgb.size == 0)
        return;
    const Corners corners = cornersAround(pos);
    alignas(16) float weights[8];
    corners.weigh(weights);
    __m128 sum = _mm_setzero_ps();
#pragma GCC unroll 8
    for (unsigned corner = 0; corner < 8; ++corner) {
        if (!corners.exists(corner))
            continue;
        const std::int64_t index = corners.index(corner);
        if (!isLit(index) && !lightVoxel(index, shader, illuminator)) [[unlikely]] {
            illuminator.kind &= ~kKindCacheFill;
            illuminator.illuminate(out, pos, {1, 1, 1}, nullptr);
            return;
        }
        sum = _mm_add_ps(sum, _mm_mul_ps(lightOf(index), _mm_set1_ps(weights[corner])));
    }
    out = colorOf(sum);
}

bool NmbGridLightCacheBasic::isLit(std::int64_t voxelIndex) const {
    float& first = rgb.data[voxelIndex * 3];
    return atomicCell(first).load(std::memory_order_acquire) != kUnlit;
}

__m128 NmbGridLightCacheBasic::lightOf(std::int64_t voxelIndex) const {
    float* const cell = rgb.data + voxelIndex * 3;
    return _mm_setr_ps(atomicCell(cell[0]).load(std::memory_order_relaxed),
                       atomicCell(cell[1]).load(std::memory_order_relaxed),
                       atomicCell(cell[2]).load(std::memory_order_relaxed), 0.0f);
}

Vector NmbGridLightCacheBasic::voxelPosition(std::int64_t voxelIndex) const {
    const std::int64_t row = voxelIndex / size[0];
    const std::int64_t slice = row / size[1];
    return {static_cast<float>(voxelIndex % size[0]), static_cast<float>(row % size[1]),
            static_cast<float>(slice)};
}

bool NmbGridLightCacheBasic::lightVoxel(std::int64_t voxelIndex, const VolumeShader& shader,
                                        Illuminator& illuminator) {
    const std::uint32_t kind = illuminator.kind;
    const std::uint32_t seed = illuminator.seed;
    illuminator.kind |= kKindCacheFill | kKindCacheLights | kKindCacheShadows;
    // The voxel's own random numbers, so that it doesn't matter which ray comes first.
    illuminator.seed = lightCacheSeed(static_cast<std::uint32_t>(voxelIndex));
    const Vector position = voxelPosition(voxelIndex);
    Color light;
    const float reflectance = std::clamp(1 - shader.subred, 0.001f, 1.0f);
    // A darker surface lets the host spend less on sampling.
    illuminator.illuminate(light, position, {reflectance, reflectance, reflectance}, nullptr);
    light = light * (1 / reflectance);
    illuminator.seed = seed;
    illuminator.kind = kind;
    if (!(light.r + light.g + light.b <= kMostLight))
        return false;
    if (shader.selfShadowed)
        light += shader.sampleSelfIllum(position);
    if (!isLit(voxelIndex)) {
        float* cell = &rgb[voxelIndex * 3];
        atomicCell(cell[1]).store(light.g, std::memory_order_relaxed);
        atomicCell(cell[2]).store(light.b, std::memory_order_relaxed);
        atomicCell(cell[0]).store(light.r, std::memory_order_release);
    }
    return true;
}

}  // namespace nimbra
