// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/particles_to_grid.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "cache/liquid_fit.h"
#include "cache/prt_group.h"

namespace ParticlesToGrid {

using NMBUtils::Job;
using TessUtils::ProgressCallback;

namespace {

/// A half cell with this many particles counts as full.
constexpr std::int32_t kFullCell = 6;

/// A half cell and what lies around it.
struct Neighbourhood {
    std::int64_t particles = 0;
    int existing = 0, full = 0;
};

/// A cell that a neighbour's place stands for, and where its particles are taken to lie.
struct Neighbour {
    int cell;
    float shift;
};

/// Outside of the grid the edge cell stands in, as if it lay one half cell further out.
Neighbour neighbourOnAxis(int h, int size) {
    const int limited = std::clamp(h, 0, size - 1);
    return {limited, static_cast<float>(h - limited)};
}

class CellLock {
public:
    explicit CellLock(HalfCell& cell) : lock_(cell.lock) {
        while (lock_.exchange(1, std::memory_order_acquire) != 0) {
        }
    }
    ~CellLock() { lock_.store(0, std::memory_order_release); }
    CellLock(const CellLock&) = delete;
    CellLock& operator=(const CellLock&) = delete;

private:
    std::atomic_ref<std::int32_t> lock_;
};

}  // namespace

bool HalfGrid::allocate(const int gridCells[3], int particles) {
    for (int a = 0; a < 3; ++a) {
        gridSize[a] = gridCells[a];
        size[a] = static_cast<std::int32_t>((std::int64_t(gridCells[a]) + 1) / 2);
    }
    const HalfCell empty;
    const std::int32_t none = -1;
    const std::int64_t count = nimbra::voxelCount(size);
    return count >= 0 && cells.SetSize(count, &empty, true) &&
           nextParticle.SetSize(particles, &none, true);
}

// --- Particles to lists --------------------------------------------------------------------------

void ParticlesToHalfGridMT::start(ProgressCallback* stop) {
    SplitRange(grid_.nextParticle.size);
    nextBatch_ = 0;
    Start(0, stop);
}

/// Jobs take small batches in turn. They stay close to each other that way: a job far behind would
/// walk over all that the others have put into a list.
void ParticlesToHalfGridMT::Run(Job*) {
    constexpr std::int64_t kBatch = 256;
    const std::int64_t count = grid_.nextParticle.size;
    for (;;) {
        const std::int64_t first = nextBatch_.fetch_add(kBatch, std::memory_order_relaxed);
        if (first >= count)
            return;
        for (std::int64_t i = first; i < std::min(first + kBatch, count); ++i) {
            if (IsAborted())
                return;
            insert(static_cast<std::int32_t>(i));
        }
    }
}

void ParticlesToHalfGridMT::insert(std::int32_t particle) {
    const float* const p = particles_.position(particle);
    std::int64_t h[3];
    for (int a = 0; a < 3; ++a) {
        const float cell = std::floor(p[a] / 2);
        if (!(cell >= 0 && cell < static_cast<float>(grid_.size[a])))
            return;
        h[a] = static_cast<std::int64_t>(cell);
        if (h[a] >= grid_.size[a])
            return;
    }
    HalfCell& cell = grid_.cells[grid_.indexOf(h[0], h[1], h[2])];
    const CellLock guard(cell);
    std::int32_t* link = &cell.head;
    while (particle < *link)
        link = &grid_.nextParticle[*link];
    grid_.nextParticle[particle] = *link;
    *link = particle;
    ++cell.count;
}

// --- Lists to voxels -----------------------------------------------------------------------------

bool ListedPositions::allocate(const HalfGrid& grid) {
    if (!first.SetSize(grid.cells.size + 1, nullptr, true))
        return false;
    std::int32_t count = 0;
    for (std::int64_t i = 0; i < grid.cells.size; ++i) {
        first[i] = count;
        count += grid.cells[i].count;
    }
    first[grid.cells.size] = count;
    constexpr float kZero = 0;
    for (auto& coordinates : axis)
        if (!coordinates.SetSize(std::int64_t(count) + kGroup, &kZero, true))
            return false;
    return true;
}

/// Walks some lists in turn: each step waits for memory, and that way they wait together.
void ParticlesAndHalfGridToFullGridMT::listPositions(Job*) {
    constexpr std::int64_t kTogether = 16;
    const std::int64_t cells = grid_.cells.size;
    for (;;) {
        const std::int64_t cell = nextCell_.fetch_add(kTogether, std::memory_order_relaxed);
        if (cell >= cells)
            return;
        std::int32_t particle[kTogether], place[kTogether];
        std::int64_t lists = 0;
        for (std::int64_t c = cell; c < std::min(cell + kTogether, cells); ++c) {
            if (grid_.cells[c].head < 0)
                continue;
            particle[lists] = grid_.cells[c].head;
            place[lists++] = positions_.first[c];
        }
        while (lists > 0)
            for (std::int64_t l = 0; l < lists; ++l) {
                const float* const p = particles_.position(particle[l]);
                for (int a = 0; a < 3; ++a)
                    positions_.axis[a][place[l]] = p[a];
                ++place[l];
                particle[l] = grid_.nextParticle[particle[l]];
                if (particle[l] >= 0)
                    continue;
                --lists;
                particle[l] = particle[lists];
                place[l] = place[lists];
            }
    }
}

bool ParticlesAndHalfGridToFullGridMT::start(ProgressCallback* stop) {
    if (!positions_.allocate(grid_))
        return false;
    nextCell_ = 0;
    StartWithHolder(this, &ParticlesAndHalfGridToFullGridMT::listPositions, stop);
    nextCell_ = 0;
    Start(0, stop);
    return true;
}

namespace {

/// Works on one half cell after the other.
class SurfaceBuilder {
public:
    SurfaceBuilder(const ListedPositions& positions, const HalfGrid& grid)
        : positions_(positions), grid_(grid) {}

    /// The values of the eight voxels of a half cell.
    void valuesOf(const int h[3], float values[kVoxels]) {
        const Neighbourhood around = lookAround(h);
        if (around.full == around.existing || around.particles == 0) {
            std::fill_n(values, kVoxels, around.particles == 0 ? 0.0f : 1.0f);
            return;
        }
        lists_.clear();
        for (int z = h[2] - 1; z <= h[2] + 1; ++z)
            for (int y = h[1] - 1; y <= h[1] + 1; ++y)
                addNeighbours(h, neighbourOnAxis(y, grid_.size[1]),
                              neighbourOnAxis(z, grid_.size[2]));
        surfaceValues(lists_, values);
    }

private:
    Neighbourhood lookAround(const int h[3]) const {
        int low[3], high[3];
        for (int a = 0; a < 3; ++a) {
            low[a] = std::max(h[a] - 1, 0);
            high[a] = std::min(h[a] + 1, grid_.size[a] - 1);
        }
        Neighbourhood around;
        for (int z = low[2]; z <= high[2]; ++z)
            for (int y = low[1]; y <= high[1]; ++y)
                for (int x = low[0]; x <= high[0]; ++x) {
                    const std::int32_t count = grid_.cells[grid_.indexOf(x, y, z)].count;
                    around.particles += count;
                    around.full += count >= kFullCell;
                    ++around.existing;
                }
        return around;
    }

    /// The three neighbours of a row: inside the grid their particles follow each other.
    void addNeighbours(const int h[3], const Neighbour& y, const Neighbour& z) {
        const std::int64_t row = grid_.indexOf(0, y.cell, z.cell);
        if (h[0] > 0 && h[0] + 1 < grid_.size[0]) {
            addCells(h, row + h[0] - 1, row + h[0] + 2, {0, y.shift, z.shift});
            return;
        }
        for (int i = h[0] - 1; i <= h[0] + 1; ++i) {
            const Neighbour x = neighbourOnAxis(i, grid_.size[0]);
            addCells(h, row + x.cell, row + x.cell + 1, {x.shift, y.shift, z.shift});
        }
    }

    void addCells(const int h[3], std::int64_t cell, std::int64_t end,
                  const std::array<float, 3>& shift) {
        const float corner[3] = {static_cast<float>(h[0]), static_cast<float>(h[1]),
                                 static_cast<float>(h[2])};
        const std::int64_t first = positions_.first[cell];
        const float* const from[3] = {positions_.axis[0].data + first,
                                      positions_.axis[1].data + first,
                                      positions_.axis[2].data + first};
        lists_.add(from, positions_.first[end] - first, corner, shift.data());
    }

    const ListedPositions& positions_;
    const HalfGrid& grid_;
    OffsetLists lists_;
};

}  // namespace

ParticlesAndHalfGridToFullGridMT::ParticlesAndHalfGridToFullGridMT(const BasePrtHolder& particles,
                                                                   const HalfGrid& grid,
                                                                   GridChannelProxy<float>& target)
    : particles_(particles), grid_(grid), target_(target) {
    // Threads can't write to a tree side by side.
    if (!target_.denseVoxels())
        InitJobs(1);
    SplitRange(grid_.cells.size);
}

/// Jobs take a few cells in turn, since all the work may lie in one layer of the grid.
void ParticlesAndHalfGridToFullGridMT::Run(Job*) {
    constexpr std::int64_t kBatch = 32;
    const std::int64_t cells = grid_.cells.size;
    const std::int32_t* const size = grid_.gridSize;
    SurfaceBuilder builder(positions_, grid_);
    for (std::int64_t cell = 0, end = 0;; ++cell) {
        if (cell >= end) {
            cell = nextCell_.fetch_add(kBatch, std::memory_order_relaxed);
            end = std::min(cell + kBatch, cells);
        }
        if (cell >= cells || IsAborted())
            return;
        const int h[3] = {static_cast<int>(cell % grid_.size[0]),
                          static_cast<int>(cell / grid_.size[0] % grid_.size[1]),
                          static_cast<int>(cell / grid_.size[0] / grid_.size[1])};
        float values[kVoxels];
        builder.valuesOf(h, values);
        for (int k = 0; k < kVoxels; ++k) {
            const std::int64_t x = 2 * h[0] + (k & 1), y = 2 * h[1] + (k >> 1 & 1);
            const std::int64_t z = 2 * h[2] + (k >> 2);
            if (x < size[0] && y < size[1] && z < size[2])
                target_.write((z * size[1] + y) * size[0] + x, values[k]);
        }
    }
}

}  // namespace ParticlesToGrid

namespace nimbra {
namespace {

using namespace ParticlesToGrid;
using TessUtils::ProgressCallback;

NimbraFrameData::PGroup* findLiquid(NimbraFrameData& frame) {
    for (NimbraFrameData::PGroup* const group : frame.groups)
        if (group->name == "Liquid")
            return group;
    return nullptr;
}

const float* floatsOf(NimbraFrameData::PGroup& group, int channel) {
    return reinterpret_cast<const float*>(group.channelData(channel));
}

/// Whether a channel is there, with as many voxels as the frame.
bool isLoaded(NimbraFrameData& frame, int channel) {
    const NimbraFrameData::Proxy& proxy = frame.getChannelProxy(channel);
    return proxy.loaded && std::equal(frame.gridSize, frame.gridSize + 3, proxy.storage->size);
}

/// Channels 7 to 9 from the particles' colours; false where there are none, or without memory.
bool colorsToGrid(NimbraFrameData& dst, NimbraFrameData::PGroup& liquid, const HalfGrid& grid,
                  ProgressCallback* stop) {
    const float* const colors = floatsOf(liquid, kPrtColor);
    if (!colors)
        return false;
    const BasePrtHolder particles(floatsOf(liquid, kPrtPosition), colors, 3);
    const std::int64_t voxels = voxelCount(dst.gridSize);
    NMBUtils::NmbArray<float, long long, 1, 1> vectors;
    NMBUtils::NmbArray<std::uint8_t, long long, 1, 1> flags;
    if (!vectors.SetSize(voxels * 3, nullptr, true) || !flags.SetSize(voxels, nullptr, true))
        return false;
    ParticleChannelToGridMT spread(ParticleChannelToGridMT::kVectors, particles, grid, vectors.data,
                                   flags.data);
    spread.Start(0, stop);
    if (spread.IsAborted())
        return false;
    VectorGridToCacheChannelMT(vectors.data, &dst.channels[kColorR], voxels).Start();
    for (int c = kColorR; c <= kColorB; ++c)
        dst.channels[c].resetRange();
    return true;
}

}  // namespace

std::uint32_t liquidParticlesToGrid(NimbraFrameData& dst, ProgressCallback* stop) {
    NimbraFrameData::PGroup* const liquid = findLiquid(dst);
    if (!liquid || liquid->getCount() < 1 || !isLoaded(dst, kTemperature))
        return 0;
    const float* const positions = floatsOf(*liquid, kPrtPosition);
    HalfGrid grid;
    if (!positions || !grid.allocate(dst.gridSize, liquid->getCount()))
        return 0;
    const BasePrtHolder particles(positions, nullptr, 0);
    ParticlesToHalfGridMT(particles, grid).start(stop);
    NimbraFrameData::Proxy& surface = dst.channels[kTemperature];
    if (!ParticlesAndHalfGridToFullGridMT(particles, grid, surface).start(stop))
        return 0;
    surface.resetRange();

    std::uint32_t filled = channelBit(kTemperature);
    if (isLoaded(dst, kColorR) && isLoaded(dst, kColorG) && isLoaded(dst, kColorB) &&
        liquid->hasChannel(kPrtColor) && colorsToGrid(dst, *liquid, grid, stop))
        filled |= channelBit(kColorR) | channelBit(kColorG) | channelBit(kColorB);
    return filled;
}

}  // namespace nimbra
