// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/origin_velocity.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "cache/frame_data.h"
#include "foundation/parallel.h"

namespace nimbra {

namespace {

using Proxy = NimbraFrameData::Proxy;

/// In NimbraFrameData::flags: the velocities were made here.
constexpr std::uint32_t kMadeVelocities = 16;

/// What `later` is moved by, in whole cells; false if the grids are too far apart to touch.
bool cellOffset(const NimbraFrameData& frame, const NimbraFrameData& later,
                std::int64_t (&offset)[3]) {
    constexpr double kFarthest = 1e12;
    for (int a = 0; a < 3; ++a) {
        // The later grid's place, taken back through this one's transform and counted in its cells.
        const double moved = double(later.transform[9 + a]) - double(frame.transform[9 + a]);
        if (!(std::fabs(moved) < kFarthest))
            return false;
        offset[a] = static_cast<std::int64_t>(std::floor(moved + 0.5));
    }
    return true;
}

bool hasAllCells(const Proxy& channel, const int (&size)[3]) {
    return channel.loaded && std::equal(size, size + 3, channel.storage->size);
}

class MTVelocityFromOrigin : public NMBUtils::NmbParallel {
public:
    /// Of the grids, and the range of this frame's cells that the later one covers.
    struct Grids {
        int size[3], laterSize[3];
        std::int64_t offset[3];
        std::int64_t first[3], end[3];
        float timeStep;
    };
    MTVelocityFromOrigin(const Grids& grids, const Proxy* origin, Proxy* velocity)
        : g_(grids), origin_(origin), velocity_(velocity) {}

    const char* GetName() const override { return "MTVelocityFromOrigin"; }
    void Run(NMBUtils::Job* job) override {
        std::vector<float> row(static_cast<std::size_t>(g_.end[0] - g_.first[0]));
        for (std::int64_t z = g_.first[2] + job->rangeStart; z < g_.first[2] + job->rangeEnd; ++z)
            for (std::int64_t y = g_.first[1]; y < g_.end[1]; ++y)
                for (int axis = 0; axis < 3; ++axis)
                    convertRow(axis, y, z, row);
    }

private:
    void convertRow(int axis, std::int64_t y, std::int64_t z, std::vector<float>& row) const {
        // The same cell counted in the later grid.
        const std::int64_t cell[3] = {g_.first[0] + g_.offset[0], y + g_.offset[1],
                                      z + g_.offset[2]};
        const std::int64_t from = (cell[2] * g_.laterSize[1] + cell[1]) * g_.laterSize[0] + cell[0];
        const auto count = static_cast<std::int64_t>(row.size());
        origin_[axis].readRun(from, count, row.data());
        float* const out =
            velocity_[axis].denseVoxels() + (z * g_.size[1] + y) * g_.size[0] + g_.first[0];
        const auto most = static_cast<float>(g_.size[axis]);
        const auto scale = static_cast<float>(g_.laterSize[axis]);
        for (std::int64_t x = 0; x < count; ++x) {
            const std::int64_t at = axis == 0 ? cell[0] + x : cell[axis];
            const float came = std::min(most, std::max(0.0f, scale * row[std::size_t(x)]));
            out[x] = (static_cast<float>(at) - came) / g_.timeStep;
        }
    }

    const Grids& g_;
    const Proxy* origin_;
    Proxy* velocity_;
};

/// Fills `velocity` where the grids overlap.
void convertOverlap(const NimbraFrameData& frame, const NimbraFrameData& later, const Proxy* origin,
                    Proxy* velocity) {
    MTVelocityFromOrigin::Grids g;
    g.timeStep = frame.timeStep;
    std::copy_n(frame.gridSize, 3, g.size);
    std::copy_n(later.gridSize, 3, g.laterSize);
    if (!cellOffset(frame, later, g.offset))
        return;
    for (int a = 0; a < 3; ++a) {
        g.first[a] = std::max<std::int64_t>(0, -g.offset[a]);
        g.end[a] = std::min<std::int64_t>(g.size[a], g.laterSize[a] - g.offset[a]);
        if (g.first[a] >= g.end[a])
            return;
    }
    MTVelocityFromOrigin job(g, origin, velocity);
    job.SplitRange(g.end[2] - g.first[2]);
    job.Start();
}

}  // namespace

bool hasOriginVelocities(const NimbraFrameData& frame) {
    return (frame.flags & kMadeVelocities) != 0;
}

bool velocitiesFromOrigin(NimbraFrameData& frame, NimbraFrameData& later) {
    if (hasOriginVelocities(frame))
        return true;
    Proxy origin[3], velocity[3];
    for (int a = 0; a < 3; ++a) {
        origin[a] = later.getChannelProxy(kAdvectionOriginX + a);
        if (!hasAllCells(origin[a], later.gridSize))
            return false;
        if (!velocity[a].allocate(frame.gridSize))
            return false;
    }
    try {
        convertOverlap(frame, later, origin, velocity);
    } catch (const std::bad_alloc&) {
        return false;
    }
    constexpr std::uint32_t kOwnVelocity = 7u << kVelocityX;
    const int target = frame.hasChannels(kOwnVelocity) ? kAdvectionOriginX : kVelocityX;
    for (int a = 0; a < 3; ++a) {
        frame.channels[target + a] = std::move(velocity[a]);
        frame.channelMask |= channelBit(target + a);
    }
    frame.flags |= kMadeVelocities;
    return true;
}

}  // namespace nimbra
