// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/grid_channel.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "cache/process_memory.h"

namespace nimbra {

std::int64_t voxelCount(const int size[3]) {
    constexpr std::int64_t kMostVoxels = std::int64_t(1) << 40;
    std::int64_t count = 1;
    for (int a = 0; a < 3; ++a)
        if (size[a] < 0)
            return -1;
    for (int a = 0; a < 3; ++a) {
        if (size[a] != 0 && count > kMostVoxels / size[a])
            return -1;
        count *= size[a];
    }
    return count;
}

namespace {

/// The greatest float that isn't above i.
float floatNotAbove(std::int32_t i) {
    const float f = static_cast<float>(i);
    return static_cast<double>(f) > i ? std::nextafter(f, 0.0f) : f;
}

}  // namespace

GridStorage::~GridStorage() {
    deleteTreeHolder(grid);
}

bool GridStorage::setSize(const int newSize[3]) {
    const std::int64_t count = voxelCount(newSize);
    const bool sound = count >= 0;
    for (int a = 0; a < 3; ++a) {
        size[a] = sound ? newSize[a] : 0;
        lastCell[a] = size[a] > 0 ? size[a] - 1 : 0;
        lastCellFloat[a] = floatNotAbove(lastCell[a]);
    }
    cells = sound ? count : 0;
    strideY = size[0];
    strideZ = static_cast<std::int64_t>(size[0]) * size[1];
    return sound;
}

GridChannelProxy<float>::GridChannelProxy(GridChannelProxy&& other) noexcept {
    *this = std::move(other);
}

GridChannelProxy<float>& GridChannelProxy<float>::operator=(const GridChannelProxy& other) {
    if (this != &other) {
        share(other);
        minValue = other.minValue;
        maxValue = other.maxValue;
    }
    return *this;
}

GridChannelProxy<float>& GridChannelProxy<float>::operator=(GridChannelProxy&& other) noexcept {
    if (this != &other) {
        free();
        storage = std::exchange(other.storage, nullptr);
        loaded = std::exchange(other.loaded, std::uint8_t(0));
        minValue = other.minValue;
        maxValue = other.maxValue;
        other.resetRange();
    }
    return *this;
}

bool GridChannelProxy<float>::allocate(const int size[3], int spare) {
    free();
    GridStorage* made = new (std::nothrow) GridStorage;
    if (!made)
        return false;
    const auto fits = [&] {
        const std::uint64_t most = memoryOfProcess() / sizeof(float);
        return static_cast<std::uint64_t>(made->cells) + static_cast<std::uint64_t>(spare) <= most;
    };
    if (!made->setSize(size) || !fits() ||
        !made->voxels.SetSize(made->cells + spare, nullptr, true)) {
        delete made;
        return false;
    }
    storage = made;
    loaded = 1;
    return true;
}

bool GridChannelProxy<float>::attach(VdbGridHolder* holder, const int size[3]) {
    free();
    if (!holder)
        return false;
    GridStorage* made = new (std::nothrow) GridStorage;
    if (!made || !made->setSize(size)) {
        delete made;
        deleteTreeHolder(holder);
        return false;
    }
    made->grid = holder;
    made->kind = made->treeKind = treeKindOf(holder);
    storage = made;
    loaded = 1;
    return true;
}

void GridChannelProxy<float>::free() {
    loaded = 0;
    GridStorage* const old = std::exchange(storage, nullptr);
    if (old && old->useCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete old;
}

void GridChannelProxy<float>::share(const GridChannelProxy& other) {
    GridStorage* const taken = other.storage;
    if (taken)
        taken->useCount.fetch_add(1, std::memory_order_relaxed);
    const std::uint8_t wasLoaded = other.loaded;
    free();
    storage = taken;
    loaded = wasLoaded;
}

void GridChannelProxy<float>::readRun(std::int64_t first, std::int64_t count, float* out) const {
    if (count < 1)
        return;
    if (storage->kind == 0)
        std::copy_n(storage->voxels.data + first, count, out);
    else
        readTreeRun(storage->grid, first, count, out);
}

bool GridChannelProxy<float>::scanRange(float& min, float& max) const {
    if (!loaded || !storage || storage->cells < 1)
        return false;
    if (storage->kind != 0) {
        treeRange(storage->grid, min, max);
        return true;
    }
    const float* const v = storage->voxels.data;
    float low = v[0], high = v[0];
    for (std::int64_t i = 1; i < storage->cells; ++i) {
        low = v[i] < low ? v[i] : low;
        high = v[i] > high ? v[i] : high;
    }
    min = low;
    max = high;
    return true;
}

}  // namespace nimbra
