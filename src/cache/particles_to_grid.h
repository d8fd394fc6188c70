// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The surface of a liquid out of its particles: each voxel gets a value from 1, deep inside, over
// 0.5 near the surface, to 0 and below outside. Colours of the particles are spread to the grid.
//
// All positions are cell coordinates of the frame, voxel i lying at coordinate i. A half cell is a
// cube of 2 x 2 x 2 voxels; the half grid has (n + 1) / 2 of them on each axis.
#pragma once

#include <atomic>
#include <cstdint>

#include "cache/frame_data.h"
#include "foundation/array.h"
#include "foundation/parallel.h"

namespace nimbra {

/// Rebuilds channel 1 of a frame from its particle group "Liquid", and channels 7 to 9 from the
/// colours of that group if there are any. Answers the bits of the channels it has filled: none
/// without such a group, particles, the channel, or memory. `stop` may be null: asked for an abort,
/// which leaves the grid half done.
std::uint32_t liquidParticlesToGrid(NimbraFrameData& dst,
                                    TessUtils::ProgressCallback* stop = nullptr);

}  // namespace nimbra

namespace ParticlesToGrid {

using nimbra::GridChannelProxy;

/// Particles by index. The arrays are the group's own.
class BasePrtHolder {
public:
    /// `values`: `components` floats a particle; may be null.
    BasePrtHolder(const float* positions, const float* values, int components)
        : positions_(positions), values_(values), components_(components) {}
    virtual ~BasePrtHolder() = default;
    /// Three floats.
    virtual const float* position(int particle) const {
        return positions_ + std::int64_t(particle) * 3;
    }
    /// The particle's entry in the second array.
    virtual const float* value(int particle) const {
        return values_ + std::int64_t(particle) * components_;
    }

private:
    const float* positions_;
    const float* values_;
    std::int64_t components_;
};

struct HalfCell {
    std::int32_t head = -1;  // first particle of the list, -1 when it is empty
    std::int32_t count = 0;
    std::int32_t lock = 0;  // 0 free, 1 held
};

/// The particles of each half cell, as lists of falling index.
struct HalfGrid {
    std::int32_t gridSize[3] = {0, 0, 0};
    std::int32_t size[3] = {0, 0, 0};
    NMBUtils::NmbArray<HalfCell, long long> cells;
    /// The particle behind a particle in its list, -1 at the end.
    NMBUtils::NmbArray<std::int32_t> nextParticle;

    /// Empty cells for a grid, and room for that many particles; false without memory.
    bool allocate(const int gridCells[3], int particles);
    std::int64_t indexOf(std::int64_t hx, std::int64_t hy, std::int64_t hz) const {
        return (hz * size[1] + hy) * size[0] + hx;
    }
};

/// Puts particles into the lists of their half cells; those outside are dropped.
class ParticlesToHalfGridMT final : public NMBUtils::NmbParallel {
public:
    ParticlesToHalfGridMT(const BasePrtHolder& particles, HalfGrid& grid)
        : particles_(particles), grid_(grid) {}
    const char* GetName() const override { return "ParticlesToHalfGridMT"; }
    void Run(NMBUtils::Job* job) override;
    void start(TessUtils::ProgressCallback* stop);

private:
    void insert(std::int32_t particle);

    const BasePrtHolder& particles_;
    HalfGrid& grid_;
    std::atomic<std::int64_t> nextBatch_{0};
};

/// The positions of all listed particles, cell by cell in the order of the lists.
struct ListedPositions {
    /// Where the particles of a cell begin; one entry more than there are cells.
    NMBUtils::NmbArray<std::int32_t, long long> first;
    /// One coordinate each, with some spare places at the end.
    NMBUtils::NmbArray<float, long long> axis[3];

    /// Room for the particles of a grid; false without memory.
    bool allocate(const HalfGrid& grid);
};

/// Turns the lists into the values of a channel.
class ParticlesAndHalfGridToFullGridMT final : public NMBUtils::NmbParallel {
public:
    ParticlesAndHalfGridToFullGridMT(const BasePrtHolder& particles, const HalfGrid& grid,
                                     GridChannelProxy<float>& target);
    const char* GetName() const override { return "ParticlesAndHalfGridToFullGridMT"; }
    void Run(NMBUtils::Job* job) override;
    /// False, and nothing is written, without memory.
    bool start(TessUtils::ProgressCallback* stop);

private:
    /// Copies the positions, some cells at a time.
    void listPositions(NMBUtils::Job* job);

    const BasePrtHolder& particles_;
    const HalfGrid& grid_;
    GridChannelProxy<float>& target_;
    ListedPositions positions_;
    std::atomic<std::int64_t> nextCell_{0};
};

/// Spreads a channel of the particles to the voxels around them.
class ParticleChannelToGridMT final : public NMBUtils::NmbParallel {
public:
    enum Mode : std::int32_t { kVectors = 0, kFloats = 1 };

    /// `values`: three floats, or one, for each voxel; `flags`: whether a voxel has a value. All
    /// must be 0 at first.
    ParticleChannelToGridMT(Mode mode, const BasePrtHolder& particles, const HalfGrid& grid,
                            float* values, std::uint8_t* flags);
    const char* GetName() const override { return "ParticleChannelToGridMT"; }
    void Run(NMBUtils::Job* job) override;

private:
    template <int Components>
    class Spreader;

    const Mode mode_;
    const BasePrtHolder& particles_;
    const HalfGrid& grid_;
    float* const values_;
    std::uint8_t* const flags_;
};

/// Copies the components of vectors into three channels.
class VectorGridToCacheChannelMT final : public NMBUtils::NmbParallel {
public:
    /// `channels`: three that follow each other.
    VectorGridToCacheChannelMT(const float* vectors, GridChannelProxy<float>* channels,
                               std::int64_t voxels);
    const char* GetName() const override { return "VectorGridToCacheChannelMT"; }
    void Run(NMBUtils::Job* job) override;

private:
    const float* const vectors_;
    GridChannelProxy<float>* const channels_;
};

}  // namespace ParticlesToGrid
