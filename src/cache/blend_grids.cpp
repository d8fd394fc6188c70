// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_grids.h"

#include <algorithm>

namespace nimbra {
namespace {

constexpr std::int64_t kCellsBetweenQuestions = 4096;
constexpr int kNoCells[3] = {0, 0, 0};

}  // namespace

bool deliversChannel(NimbraFrameData& frame, int channel) {
    const GridChannelProxy<float>& proxy = frame.getChannelProxy(channel);
    return proxy.loaded && proxy.storage &&
           std::equal(frame.gridSize, frame.gridSize + 3, proxy.storage->size);
}

CellRuns::CellRuns(NMBUtils::NmbParallel& job, const int size[3], std::int64_t first,
                   std::int64_t end)
    : job_(job), size_(size), end_(end), nextQuestion_(first) {
    run_.index = first;
    if (first >= end)
        return;
    run_.x = static_cast<int>(first % size[0]);
    run_.y = static_cast<int>(first / size[0] % size[1]);
    run_.z = static_cast<int>(first / size[0] / size[1]);
}

bool CellRuns::next() {
    run_.index += run_.count;
    run_.x += run_.count;
    if (run_.index >= end_)
        return false;
    if (run_.x == size_[0]) {
        run_.x = 0;
        if (++run_.y == size_[1]) {
            run_.y = 0;
            ++run_.z;
        }
    }
    run_.count = static_cast<int>(
        std::min<std::int64_t>(std::min(size_[0] - run_.x, kLongestRun), end_ - run_.index));
    if (run_.index < nextQuestion_)
        return true;
    nextQuestion_ = run_.index + kCellsBetweenQuestions;
    return !job_.IsAborted();
}

ShiftedChannel::ShiftedChannel(const GridChannelProxy<float>& channel, const int shift[3])
    : channel_(&channel), size_(channel.loaded ? channel.storage->size : kNoCells), shift_(shift) {}

ShiftedChannel::Part ShiftedChannel::partInside(const CellRun& run) const {
    const std::int64_t y = std::int64_t(run.y) + shift_[1], z = std::int64_t(run.z) + shift_[2];
    const bool isRow = y >= 0 && y < size_[1] && z >= 0 && z < size_[2];
    return isRow ? partAlongX(run) : Part{0, 0};
}

ShiftedChannel::Part ShiftedChannel::partAlongX(const CellRun& run) const {
    const std::int64_t x = std::int64_t(run.x) + shift_[0];
    const std::int64_t begin = std::clamp<std::int64_t>(-x, 0, run.count);
    const std::int64_t end = std::clamp<std::int64_t>(size_[0] - x, begin, run.count);
    return {static_cast<int>(begin), static_cast<int>(end)};
}

std::int64_t ShiftedChannel::rowAt(std::int64_t y, std::int64_t z) const {
    return (z * size_[1] + y) * size_[0];
}

const float* ShiftedChannel::values(const CellRun& run, float* scratch) const {
    const Part part = partInside(run);
    const std::int64_t y = std::int64_t(run.y) + shift_[1], z = std::int64_t(run.z) + shift_[2];
    const std::int64_t first = rowAt(y, z) + run.x + shift_[0];
    const float* const dense = channel_->denseVoxels();
    if (dense && part.end - part.begin == run.count)
        return dense + first;
    std::fill(scratch, scratch + part.begin, 0.0f);
    if (part.end > part.begin)
        channel_->readRun(first + part.begin, part.end - part.begin, scratch + part.begin);
    std::fill(scratch + part.end, scratch + run.count, 0.0f);
    return scratch;
}

const float* ShiftedChannel::limitedValues(const CellRun& run, float* scratch) const {
    if (size_[0] < 1 || size_[1] < 1 || size_[2] < 1) {
        std::fill_n(scratch, run.count, 0.0f);
        return scratch;
    }
    const std::int64_t y =
        std::clamp<std::int64_t>(std::int64_t(run.y) + shift_[1], 0, size_[1] - 1);
    const std::int64_t z =
        std::clamp<std::int64_t>(std::int64_t(run.z) + shift_[2], 0, size_[2] - 1);
    const std::int64_t row = rowAt(y, z);
    const Part part = partAlongX(run);
    if (part.end > part.begin)
        channel_->readRun(row + run.x + shift_[0] + part.begin, part.end - part.begin,
                          scratch + part.begin);
    if (part.begin > 0)
        std::fill(scratch, scratch + part.begin, channel_->read(row));
    if (part.end < run.count)
        std::fill(scratch + part.end, scratch + run.count, channel_->read(row + size_[0] - 1));
    return scratch;
}

}  // namespace nimbra
