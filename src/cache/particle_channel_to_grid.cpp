// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Values of particles on a grid: splatted to the nearest voxels, spread over the gaps between them,
// then carried two voxels outwards.

#include <algorithm>

#include "cache/particles_to_grid.h"

namespace ParticlesToGrid {

using NMBUtils::Job;

namespace {

template <int Components>
struct Mean {
    float sum[Components] = {};
    std::int32_t count = 0;

    void add(const float* value) {
        for (int c = 0; c < Components; ++c)
            sum[c] += value[c];
        ++count;
    }
    void store(float* out) const {
        for (int c = 0; c < Components; ++c)
            out[c] = sum[c] / static_cast<float>(count);
    }
};

}  // namespace

/// One job's share of the work, with the values that it found and the others must not see yet.
template <int Components>
class ParticleChannelToGridMT::Spreader {
public:
    Spreader(ParticleChannelToGridMT& owner, const Job& job)
        : owner_(owner),
          grid_(owner.grid_),
          job_(job),
          nx_(grid_.gridSize[0]),
          ny_(grid_.gridSize[1]),
          nz_(grid_.gridSize[2]) {}

    void run() {
        if (!allocate()) {
            owner_.aborted = 1;  // the others must not wait for this job
            return;
        }
        splat();
        if (owner_.Barrier())
            return;
        forSlice([&](std::int64_t i, int x, int y, int z) { spread(i, x, y, z); });
        if (owner_.Barrier())
            return;
        publish();
        constexpr int kRounds = 2;
        for (int round = 0; round < kRounds; ++round) {
            if (owner_.Barrier())
                return;
            forSlice([&](std::int64_t i, int x, int y, int z) {
                if (!owner_.flags_[i])
                    takeFromFaces(i, x, y, z);
            });
            if (owner_.Barrier())
                return;
            publish();
        }
    }

private:
    using Sum = Mean<Components>;

    /// A buffer for the values of the slice, and a bit for each of its voxels; false without
    /// memory.
    bool allocate() {
        return values_.SetSize(job_.rangeCount * Components, nullptr, true) &&
               found_.SetSize((job_.rangeCount + 7) / 8, nullptr, true);
    }

    void splat() {
        for (std::int64_t cell = job_.index; cell < grid_.cells.size; cell += owner_.jobCount()) {
            if (owner_.IsAborted())
                return;
            if (grid_.cells[cell].head >= 0)
                splatCell(cell);
        }
    }

    /// Each particle goes to the voxel of its half cell whose cube it lies in.
    void splatCell(std::int64_t cell) {
        const std::int64_t low[3] = {cell % grid_.size[0] * 2,
                                     cell / grid_.size[0] % grid_.size[1] * 2,
                                     cell / grid_.size[0] / grid_.size[1] * 2};
        Sum sums[8];
        for (std::int32_t i = grid_.cells[cell].head; i >= 0; i = grid_.nextParticle[i]) {
            const float* const p = owner_.particles_.position(i);
            int voxel = 0;
            for (int a = 0; a < 3; ++a)
                if (p[a] - static_cast<float>(low[a]) > 1 && low[a] + 1 < grid_.gridSize[a])
                    voxel |= 1 << a;
            sums[voxel].add(owner_.particles_.value(i));
        }
        for (int k = 0; k < 8; ++k) {
            if (sums[k].count == 0)
                continue;
            const std::int64_t i =
                ((low[2] + (k >> 2)) * ny_ + low[1] + (k >> 1 & 1)) * nx_ + low[0] + (k & 1);
            sums[k].store(owner_.values_ + i * Components);
            owner_.flags_[i] = 1;
        }
    }

    /// Calls f(index, x, y, z) for the voxels of the job's slice.
    template <class F>
    void forSlice(const F& f) const {
        std::int64_t i = job_.rangeStart;
        int x = static_cast<int>(i % nx_), y = static_cast<int>(i / nx_ % ny_);
        int z = static_cast<int>(i / nx_ / ny_);
        for (; i < job_.rangeEnd; ++i) {
            f(i, x, y, z);
            if (++x == nx_) {
                x = 0;
                if (++y == ny_) {
                    y = 0;
                    ++z;
                }
            }
        }
    }

    /// The mean of the voxel and its lower neighbours. At a low border there is no step down: the
    /// same voxel counts twice.
    void spread(std::int64_t i, int x, int y, int z) {
        const std::int64_t stepX = x > 0 ? 1 : 0, stepY = y > 0 ? nx_ : 0;
        const std::int64_t stepZ = z > 0 ? nx_ * ny_ : 0;
        Sum sum;
        for (int k = 0; k < 8; ++k)
            addVoxel(sum,
                     i - ((k & 1) ? stepX : 0) - ((k & 2) ? stepY : 0) - ((k & 4) ? stepZ : 0));
        keep(i, sum);
    }

    void takeFromFaces(std::int64_t i, int x, int y, int z) {
        Sum sum;
        if (x > 0)
            addVoxel(sum, i - 1);
        if (x + 1 < nx_)
            addVoxel(sum, i + 1);
        if (y > 0)
            addVoxel(sum, i - nx_);
        if (y + 1 < ny_)
            addVoxel(sum, i + nx_);
        if (z > 0)
            addVoxel(sum, i - nx_ * ny_);
        if (z + 1 < nz_)
            addVoxel(sum, i + nx_ * ny_);
        keep(i, sum);
    }

    void addVoxel(Sum& sum, std::int64_t i) const {
        if (owner_.flags_[i])
            sum.add(owner_.values_ + i * Components);
    }

    void keep(std::int64_t i, const Sum& sum) {
        if (sum.count == 0)
            return;
        const std::int64_t place = i - job_.rangeStart;
        sum.store(values_.data + place * Components);
        found_[place >> 3] |= static_cast<std::uint8_t>(1 << (place & 7));
    }

    /// The kept values become visible to all jobs.
    void publish() {
        for (std::int64_t place = 0; place < job_.rangeCount; ++place) {
            if (!(found_[place >> 3] >> (place & 7) & 1))
                continue;
            const std::int64_t i = job_.rangeStart + place;
            std::copy_n(values_.data + place * Components, Components,
                        owner_.values_ + i * Components);
            owner_.flags_[i] = 1;
        }
        std::fill(found_.begin(), found_.end(), std::uint8_t(0));
    }

    ParticleChannelToGridMT& owner_;
    const HalfGrid& grid_;
    const Job& job_;
    const std::int64_t nx_, ny_, nz_;
    NMBUtils::NmbArray<float, long long> values_;
    NMBUtils::NmbArray<std::uint8_t, long long, 1, 1> found_;
};

ParticleChannelToGridMT::ParticleChannelToGridMT(Mode mode, const BasePrtHolder& particles,
                                                 const HalfGrid& grid, float* values,
                                                 std::uint8_t* flags)
    : mode_(mode), particles_(particles), grid_(grid), values_(values), flags_(flags) {
    SplitRange(nimbra::voxelCount(grid.gridSize));
}

void ParticleChannelToGridMT::Run(Job* job) {
    if (mode_ == kVectors)
        Spreader<3>(*this, *job).run();
    else
        Spreader<1>(*this, *job).run();
}

VectorGridToCacheChannelMT::VectorGridToCacheChannelMT(const float* vectors,
                                                       GridChannelProxy<float>* channels,
                                                       std::int64_t voxels)
    : vectors_(vectors), channels_(channels) {
    // Threads can't write to a tree side by side.
    for (int c = 0; c < 3; ++c)
        if (!channels_[c].denseVoxels())
            InitJobs(1);
    SplitRange(voxels);
}

void VectorGridToCacheChannelMT::Run(Job* job) {
    for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i)
        for (int c = 0; c < 3; ++c)
            channels_[c].write(i, vectors_[i * 3 + c]);
}

}  // namespace ParticlesToGrid
