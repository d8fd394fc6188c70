// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_velocity.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "cache/blend_source_lanes.h"
#include "cache/grid_samplers.h"
#include "cache/process_memory.h"
#include "foundation/memory.h"
#include "tessra/math.h"

namespace nimbra {
namespace {

using TessUtils::Vector;
using Proxy = GridChannelProxy<float>;

constexpr int kLinear = kLinearSampler * 8;

float squareOf(const Vector& v) {
    return v.x * v.x + v.y * v.y + v.z * v.z;
}

/// Gives back the sources of the channels that are left in it.
class UnfinishedSources {
public:
    explicit UnfinishedSources(float* (&sources)[kChannelSlots]) : sources_(sources) {}
    ~UnfinishedSources() {
        for (int c = 0; c < kChannelSlots; ++c)
            if (channels_ & channelBit(c))
                NMBUtils::freeMem(std::exchange(sources_[c], nullptr));
    }
    UnfinishedSources(const UnfinishedSources&) = delete;
    UnfinishedSources& operator=(const UnfinishedSources&) = delete;

    /// Room for the channels without sources, or for all; false without memory.
    bool allocate(const GridBlend& blend, bool all) {
        const auto bytes = static_cast<std::uint64_t>(voxelCount(blend.dst.gridSize)) * kCellBytes;
        std::uint64_t left = memoryOfProcess();
        for (int c = 0; c < kChannelSlots; ++c) {
            if (all)
                NMBUtils::freeMem(std::exchange(sources_[c], nullptr));
            if (!blend.has(c) || sources_[c])
                continue;
            if (bytes > left)
                return false;
            left -= bytes;
            sources_[c] = static_cast<float*>(NMBUtils::allocArrayStore(bytes));
            if (!sources_[c])
                return false;
            channels_ |= channelBit(c);
        }
        return true;
    }
    bool has(int channel) const { return (channels_ & channelBit(channel)) != 0; }
    void finish(int channel) { channels_ &= ~channelBit(channel); }

private:
    static constexpr std::uint64_t kCellBytes = 3 * sizeof(float);

    float* (&sources_)[kChannelSlots];
    std::uint32_t channels_ = 0;
};

}  // namespace

/// What is searched: a channel of the earlier frame, for the values of the later one.
struct MTCalcBlendSource::Field {
    const Proxy& channel;
    const GridStorage& grid;
    const ShiftedChannel target;
    const float timeStep;

    Field(const GridBlend& blend, int id)
        : channel(blend.a.channels[id]),
          grid(*channel.storage),
          target(blend.b.channels[id], blend.shiftB),
          timeStep(blend.a.timeStep) {}

    float sample(const Vector& p) const {
        const float position[3] = {p.x, p.y, p.z};
        float value = 0;
        kSampleKernels[kLinear](&channel, position, &value, 1, 1, 0);
        return value;
    }
    float at(int x, int y, int z) const {
        return grid.kind == 0 ? grid.voxels[x + y * grid.strideY + z * grid.strideZ]
                              : readTreeCell(grid.grid, x, y, z);
    }
    /// The differences to the next cells around the cell nearest to p; false outside.
    bool slopeAt(const Vector& p, Vector& slope) const {
        int c[3];
        for (int i = 0; i < 3; ++i) {
            const float cell = p[i] + 0.5f;
            if (!(cell >= 0 && cell < static_cast<float>(grid.size[i])))
                return false;
            // Rounds down, as it isn't negative.
            c[i] = std::min(static_cast<int>(cell), grid.lastCell[i]);
        }
        const float here = at(c[0], c[1], c[2]);
        slope.x = c[0] < grid.lastCell[0] ? at(c[0] + 1, c[1], c[2]) - here : 0;
        slope.y = c[1] < grid.lastCell[1] ? at(c[0], c[1] + 1, c[2]) - here : 0;
        slope.z = c[2] < grid.lastCell[2] ? at(c[0], c[1], c[2] + 1) - here : 0;
        return true;
    }

    /// Where near `cell` the channel has that value. Steps go down the difference by the slope
    /// there, and over flat places against the motion; `back` is the way that the cell's matter
    /// came.
    Vector source(const Vector& cell, const Vector& back, float value) const {
        const float farthest = squareOf(back);
        const Vector start = cell + back * 0.5f;
        const Vector direction = back * (1.0f / std::sqrt(farthest));
        Vector p = start, best = start;
        float least = std::numeric_limits<float>::infinity();
        for (int round = 0; round < kSearchRounds; ++round) {
            const float error = sample(p) - value;
            if (std::fabs(error) < least) {
                least = std::fabs(error);
                best = p;
            }
            Vector slope;
            if (!slopeAt(p, slope))
                break;
            const float steepness = squareOf(slope);
            Vector next = p;
            if (steepness >= kFlatSteepness) {
                Vector step = slope * (error / steepness * kStepShare);
                const float length = squareOf(step);
                if (length > 1)
                    step = step * (1.0f / std::sqrt(length));
                next = p - step;
            } else if (squareOf(p - start) >= farthest) {
                break;
            } else {
                next = p + direction;
            }
            // Whoever stands still does so for ever.
            if (next == p)
                break;
            p = next;
        }
        return best;
    }
};

MTCalcBlendSource::MTCalcBlendSource(const GridBlend& blend)
    : blend_(blend),
      velocity_{{blend.a.channels[kVelocityX], blend.shiftA},
                {blend.a.channels[kVelocityY], blend.shiftA},
                {blend.a.channels[kVelocityZ], blend.shiftA}} {}

bool MTCalcBlendSource::search(int channel, float* sources) {
    channel_ = channel;
    sources_ = sources;
    nextCell_ = 0;
    SplitRange(voxelCount(blend_.dst.gridSize));
    Start(0, blend_.stop);
    return !IsAborted();
}

/// Jobs take cells in turn: the search is long where something moves, and short elsewhere.
void MTCalcBlendSource::Run(NMBUtils::Job*) {
    constexpr std::int64_t kTogether = 4096;
    const Field field(blend_, channel_);
    const std::int64_t cells = voxelCount(blend_.dst.gridSize);
    while (!IsAborted()) {
        const std::int64_t first = nextCell_.fetch_add(kTogether, std::memory_order_relaxed);
        if (first >= cells)
            return;
        for (CellRuns runs(*this, blend_.dst.gridSize, first, std::min(first + kTogether, cells));
             runs.next();)
            searchRun(field, *runs);
    }
}

void MTCalcBlendSource::searchRun(const Field& field, const CellRun& run) const {
    float scratch[4][kLongestRun];
    const float* velocity[3];
    for (int i = 0; i < 3; ++i)
        velocity[i] = velocity_[i].values(run, scratch[i]);
    const float* const target = field.target.values(run, scratch[3]);
    float* out = sources_ + run.index * 3;
    const int x = run.x + blend_.shiftA[0], cellY = run.y + blend_.shiftA[1],
              cellZ = run.z + blend_.shiftA[2];
    if (suitsLanes(field.grid))
        return findSources(field.grid,
                           {.x = x,
                            .y = cellY,
                            .z = cellZ,
                            .count = run.count,
                            .velocity = {velocity[0], velocity[1], velocity[2]},
                            .timeStep = field.timeStep,
                            .target = target},
                           out);
    const float y = static_cast<float>(cellY), z = static_cast<float>(cellZ);
    for (int i = 0; i < run.count; ++i) {
        const Vector cell{static_cast<float>(x + i), y, z};
        const Vector back =
            Vector{velocity[0][i], velocity[1][i], velocity[2][i]} * -field.timeStep;
        const Vector source = field.source(cell, back, target[i]);
        *out++ = source.x;
        *out++ = source.y;
        *out++ = source.z;
    }
}

void MTInterpUsingVelocity::interpolate() {
    SplitRange(voxelCount(blend_.dst.gridSize));
    Start(0, blend_.stop);
}

void MTInterpUsingVelocity::Run(NMBUtils::Job* job) {
    for (CellRuns runs(*this, blend_.dst.gridSize, job->rangeStart, job->rangeEnd); runs.next();)
        for (int c = 0; c < kChannelSlots; ++c)
            if (blend_.has(c) && sources_[c])
                sampleRun(c, *runs);
}

void MTInterpUsingVelocity::sampleRun(int channel, const CellRun& run) const {
    const Proxy& from = blend_.a.channels[channel];
    const SourcedCells cells = {.x = run.x + blend_.shiftA[0],
                                .y = run.y + blend_.shiftA[1],
                                .z = run.z + blend_.shiftA[2],
                                .count = run.count,
                                .sources = sources_[channel] + run.index * 3,
                                .weight = blend_.weight};
    float* const values = blend_.dst.channels[channel].denseVoxels() + run.index;
    if (suitsLanes(*from.storage))
        return sampleWays(*from.storage, cells, values);
    const float rest = 1.0f - cells.weight;
    float positions[kLongestRun][4];
    const float* source = cells.sources;
    for (int i = 0; i < run.count; ++i, source += 3) {
        positions[i][0] = source[0] * cells.weight + static_cast<float>(cells.x + i) * rest;
        positions[i][1] = source[1] * cells.weight + static_cast<float>(cells.y) * rest;
        positions[i][2] = source[2] * cells.weight + static_cast<float>(cells.z) * rest;
    }
    kRunKernels[kLinear](from, positions, run.count, values);
}

bool blendAlongVelocity(const GridBlend& blend, bool recompute, float* (&sources)[kChannelSlots]) {
    {
        UnfinishedSources unfinished(sources);
        if (!unfinished.allocate(blend, recompute))
            return false;
        MTCalcBlendSource search(blend);
        for (int c = 0; c < kChannelSlots; ++c) {
            if (!unfinished.has(c))
                continue;
            if (!search.search(c, sources[c]))
                return true;
            unfinished.finish(c);
        }
    }
    MTInterpUsingVelocity(blend, sources).interpolate();
    return true;
}

}  // namespace nimbra
