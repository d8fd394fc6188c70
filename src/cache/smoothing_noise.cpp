// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/smoothing_noise.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "foundation/parallel.h"

namespace nimbra {
namespace {

/// The multiplier and increment of the 48-bit congruential generator.
std::int64_t nextState(std::uint64_t h) {
    constexpr std::uint64_t kFactor = 25214903917u, kStep = 11;
    return static_cast<std::int64_t>(h * kFactor + kStep);
}

/// Sign, exponent and the leading bits of sin(h / 2^16), added to h.
std::uint64_t stirred(std::int64_t h) {
    const double wave = std::sin(static_cast<double>(h >> 16));
    std::uint64_t bits;
    std::memcpy(&bits, &wave, sizeof bits);
    return (bits >> 32) + static_cast<std::uint64_t>(h);
}

/// Toward zero; what has no 64-bit integer becomes the lowest one, as the processor does it.
std::int64_t truncated(float v) {
    constexpr float kEnd = 0x1p63f;
    return v >= -kEnd && v < kEnd ? static_cast<std::int64_t>(v)
                                  : std::numeric_limits<std::int64_t>::min();
}

/// Runs a function of place and value over all voxels of a channel and stores what it answers.
template <class Func>
class ParallelIter final : public NMBUtils::NmbParallel {
public:
    ParallelIter(GridChannelProxy<float>& channel, const int size[3], const Func& func, float* row)
        : channel_(channel), nx_(size[0]), ny_(size[1]), nz_(size[2]), func_(func), row_(row) {
        SplitRange(nz_);
    }
    const char* GetName() const override { return Func::kName; }

    void Run(NMBUtils::Job* job) override {
        float* const voxels = channel_.denseVoxels();
        if (!voxels) {
            // Threads can't write to a tree side by side.
            if (job->index == 0)
                walkTree();
            return;
        }
        for (int z = job->index; z < nz_; z += jobCount()) {
            float* voxel = voxels + std::int64_t(z) * ny_ * nx_;
            for (int y = 0; y < ny_; ++y)
                for (int x = 0; x < nx_; ++x, ++voxel)
                    *voxel = func_(x, y, z, *voxel);
        }
    }

private:
    /// Cells of 0 stay as they are, so that a sparse tree stays sparse.
    void walkTree() {
        std::int64_t first = 0;
        for (int z = 0; z < nz_; ++z)
            for (int y = 0; y < ny_; ++y, first += nx_) {
                channel_.readRun(first, nx_, row_);
                for (int x = 0; x < nx_; ++x)
                    if (row_[x] != 0)
                        channel_.write(first + x, func_(x, y, z, row_[x]));
            }
    }

    GridChannelProxy<float>& channel_;
    const int nx_, ny_, nz_;
    const Func& func_;
    float* const row_;
};

}  // namespace

float noiseAtPosition(const TessUtils::Vector& p) {
    const float s = p.y * 13757 + p.x * 79367 + p.z * 609221;
    std::int64_t h = nextState(static_cast<std::uint64_t>(truncated(s)));
    constexpr std::uint64_t kMask48 = 0xFFFFFFFFFFFF;
    for (int i = 0; i < 3; ++i)
        h = nextState(stirred(h) & kMask48);
    return static_cast<float>(stirred(h) >> 18 & 0x3FFFFFFF) * 0x1p-30f;
}

float SmoothingAddNoiseFunc::operator()(int x, int y, int z, float value) const {
    const TessUtils::Vector cell{static_cast<float>(x), static_cast<float>(y),
                                 static_cast<float>(z)};
    return value * ((noiseAtPosition(gridToObject.applyPoint(cell)) - 0.5f) * randomize + 1);
}

void addSmoothingNoise(GridChannelProxy<float>& channel, const int size[3],
                       const SmoothingAddNoiseFunc& noise, float* row) {
    ParallelIter<SmoothingAddNoiseFunc>(channel, size, noise, row).Start();
}

}  // namespace nimbra
