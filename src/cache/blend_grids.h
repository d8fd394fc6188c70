// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the methods that blend grids share: the union of two grids, and reading both by runs of its
// cells.
#pragma once

#include <cstdint>

#include "cache/frame_data.h"
#include "foundation/parallel.h"

namespace nimbra {

/// Two frames and the one that they are blended into.
struct GridBlend {
    NimbraFrameData& dst;
    NimbraFrameData& a;
    NimbraFrameData& b;
    /// That of b.
    float weight = 0;
    /// Cell of dst + shift = cell of a, and of b.
    int shiftA[3] = {0, 0, 0};
    int shiftB[3] = {0, 0, 0};
    /// Bits of the channels to blend: all three frames have them.
    std::uint32_t channels = 0;
    /// Asked by the jobs whether to stop; may be null.
    TessUtils::ProgressCallback* stop = nullptr;

    bool has(int channel) const { return (channels & channelBit(channel)) != 0; }
};

/// Whether the frame can deliver a channel on its grid; expands it.
bool deliversChannel(NimbraFrameData& frame, int channel);

/// Cells of the union that follow each other along x.
struct CellRun {
    std::int64_t index = 0;  // of the first cell
    int x = 0, y = 0, z = 0;
    int count = 0;
};
inline constexpr int kLongestRun = 1024;

/// Goes through a range of cells run by run, asking now and then whether to stop:
///
///     for (CellRuns runs(*this, size, first, end); runs.next();)
///         ...*runs...
class CellRuns {
public:
    CellRuns(NMBUtils::NmbParallel& job, const int size[3], std::int64_t first, std::int64_t end);
    /// False at the end of the range, and when the job was told to stop.
    bool next();
    const CellRun& operator*() const { return run_; }

private:
    NMBUtils::NmbParallel& job_;
    const int* const size_;
    const std::int64_t end_;
    std::int64_t nextQuestion_;
    CellRun run_;
};

/// A channel of one of the two frames as seen from the union.
class ShiftedChannel {
public:
    /// A channel that isn't loaded reads 0 everywhere.
    ShiftedChannel(const GridChannelProxy<float>& channel, const int shift[3]);

    /// The values of a run, 0 outside of the channel's grid: in place where they lie there side by
    /// side, else in `scratch`, which has room for them.
    const float* values(const CellRun& run, float* scratch) const;
    /// The same with each cell limited to the channel's grid.
    const float* limitedValues(const CellRun& run, float* scratch) const;

    /// The part of a run that lies in the channel's grid, from its first cell on; begin = end for
    /// none.
    struct Part {
        int begin, end;
    };
    Part partInside(const CellRun& run) const;

private:
    Part partAlongX(const CellRun& run) const;
    std::int64_t rowAt(std::int64_t y, std::int64_t z) const;

    const GridChannelProxy<float>* channel_;
    const int* size_;
    const int* shift_;
};

}  // namespace nimbra
