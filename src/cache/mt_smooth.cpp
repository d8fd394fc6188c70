// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/mt_smooth.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "cache/process_memory.h"
#include "cache/smoothing_noise.h"
#include "foundation/log.h"

namespace nimbra {
namespace {

enum Phase : std::int32_t { kGradients = 0, kMeans = 1 };

// Less noise than this is none.
constexpr float kLeastNoise = 1e-5f;
constexpr float kThresholdGrowth = 1.2f;

}  // namespace

/// The planes around a plane, for one job: those of a dense channel themselves, those of a tree
/// read into the job's three.
class MTSmooth::Planes {
public:
    Planes(const MTSmooth& smooth, const NMBUtils::Job& job)
        : channel_(*smooth.channel),
          cells_(smooth.rowStart(0, 1)),
          dense_(channel_.denseVoxels()),
          own_(dense_ ? nullptr : smooth.treePlanes_.data + job.index * 3 * cells_) {}

    /// Planes z - 1, z and z + 1, until the next call.
    const float* const* around(std::int64_t z) {
        for (int i = 0; i < 3; ++i)
            planes_[i] = plane(z + i - 1);
        return planes_;
    }

private:
    const float* plane(std::int64_t z) {
        if (dense_)
            return dense_ + z * cells_;
        float* const values = own_ + z % 3 * cells_;
        if (held_[z % 3] != z)
            channel_.readRun(z * cells_, cells_, values);
        held_[z % 3] = z;
        return values;
    }

    const Proxy& channel_;
    const std::int64_t cells_;
    const float* const dense_;
    float* const own_;
    std::int64_t held_[3] = {-1, -1, -1};
    const float* planes_[3];
};

void MTSmooth::smoothChannel(int iterations, Proxy& target, const int cellCounts[3],
                             const NMBUtils::Matrix34& gridToObjectTm, float firstThreshold,
                             float similarityOfTree, float noise) {
    channel = &target;
    std::copy_n(cellCounts, 3, size);
    gridToObject = gridToObjectTm;
    threshold = firstThreshold;
    similarity = similarityOfTree;
    randomize = noise;
    const auto start = std::chrono::steady_clock::now();
    const bool fits = target.loaded && std::equal(size, size + 3, target.storage->size);
    if (fits && sizeStores()) {
        Start(kGradients, stop_);
        // The gradient is that of the channel without noise.
        if (randomize > kLeastNoise)
            addSmoothingNoise(target, size, {gridToObject, randomize}, treePlanes_.data);
        for (int i = 0; i < iterations && !IsAborted(); ++i)
            iterate();
    }
    gradient.Clear();
    results.Clear();
    treePlanes_.Clear();
    target.resetRange();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    NMBUtils::logLine("Grid Smooth: %f\n", seconds.count());
}

/// Also deals the inner planes out to the jobs.
bool MTSmooth::sizeStores() {
    SplitRange(std::max(size[2] - 2, 0));
    const std::int64_t planeCells = rowStart(0, 1);
    // A sparse tree may reach over far more cells than there is memory for.
    if (static_cast<std::uint64_t>(voxelCount(size)) > memoryOfProcess() / sizeof(float))
        return false;
    return gradient.SetSize(voxelCount(size), nullptr, true) && jobOffsets.SetSize(jobCount()) &&
           (channel->denseVoxels() ||
            treePlanes_.SetSize(3 * planeCells * jobCount(), nullptr, true));
}

/// One step: all new values are found before the first is stored.
void MTSmooth::iterate() {
    StartWithHolder(this, &MTSmooth::countRange, stop_);
    if (deriveOffsets()) {
        Start(kMeans, stop_);
        if (IsAborted())
            return;
        writeBack();
    }
    // The gradients stay: each step touches fewer voxels.
    threshold *= kThresholdGrowth;
}

/// Turns the jobs' counts into the starts of their results and makes room for all of them; false
/// without memory for them, or when they are more than the starts can tell.
bool MTSmooth::deriveOffsets() {
    std::int64_t total = 0;
    for (std::int32_t& offset : jobOffsets) {
        const std::int64_t count = offset;
        if (count < 0 || total + count > std::numeric_limits<std::int32_t>::max())
            return false;
        offset = static_cast<std::int32_t>(total);
        total += count;
    }
    return results.SetSize(total) != 0;
}

void MTSmooth::Run(NMBUtils::Job* job) {
    if (job->argument == kGradients)
        findGradients(job);
    else
        findMeans(job);
}

void MTSmooth::findGradients(NMBUtils::Job* job) {
    Planes planes(*this, *job);
    for (std::int64_t z = job->index + 1; z < size[2] - 1; z += jobCount()) {
        const float* const* const around = planes.around(z);
        for (std::int64_t y = 1; y < size[1] - 1; ++y)
            gradientOfRow(RowsAround(around, size[0], y), size[0], gradient.data + rowStart(y, z));
    }
}

/// Leaves the number of touched voxels at the job's offset, -1 for more than fit there.
void MTSmooth::countRange(NMBUtils::Job* job) {
    std::int64_t count = 0;
    for (std::int64_t z = job->rangeStart + 1; z < job->rangeEnd + 1; ++z)
        for (std::int64_t y = 1; y < size[1] - 1; ++y)
            count += countTouched(gradient.data + rowStart(y, z), size[0], threshold);
    const bool fits = count <= std::numeric_limits<std::int32_t>::max();
    jobOffsets[job->index] = fits ? static_cast<std::int32_t>(count) : -1;
}

void MTSmooth::findMeans(NMBUtils::Job* job) {
    Planes planes(*this, *job);
    float* next = results.data + jobOffsets[job->index];
    for (std::int64_t z = job->rangeStart + 1; z < job->rangeEnd + 1; ++z) {
        if (IsAborted())
            return;
        if (job->index == 0)
            progress = static_cast<std::int32_t>(z);
        const float* const* const around = planes.around(z);
        for (std::int64_t y = 1; y < size[1] - 1; ++y)
            next += meansOfRow(RowsAround(around, size[0], y), size[0],
                               gradient.data + rowStart(y, z), threshold, next);
    }
}

void MTSmooth::writeBack() {
    const float* next = results.data;
    for (std::int64_t z = 1; z < size[2] - 1; ++z)
        for (std::int64_t y = 1; y < size[1] - 1; ++y) {
            const std::int64_t row = rowStart(y, z);
            for (std::int64_t x = row + 1; x < row + size[0] - 1; ++x)
                if (!(gradient[x] < threshold))
                    channel->write(x, *next++);
        }
}

}  // namespace nimbra
