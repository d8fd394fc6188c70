// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a .kol file holds, told in plain values: for listings, and for choosing what to
// show.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "cli/value_summary.h"
#include "cli/view_look.h"

namespace nimbra::cli {

/// A grid channel or a channel of particles.
struct ChannelInfo {
    int id = 0;
    std::string name;
    /// How it is stored: "sequence", "box", "packed rgb", "derived"; of particles "plain", "zip",
    /// "sequence", "planar", "bit planes"; empty where that isn't known.
    std::string form{};
    std::uint64_t packedBytes = 0, expandedBytes = 0;  // packed 0: not known
    /// Why it has no values; empty if it has or nobody asked.
    std::string problem{};
    /// Of its values, one for each component; empty without values.
    std::vector<FloatSummary> values{};
    /// The range that readers take: that of the file, or of the values.
    bool hasRange = false;
    float min = 0, max = 0;
};

struct GroupInfo {
    std::string name;
    std::int32_t count = 0, flags = 0;
    std::vector<ChannelInfo> channels;
};

struct FrameInfo {
    std::string path, format;
    std::uint64_t bytes = 0;
    /// False with a problem; a problem alone tells of damage that doesn't hinder.
    bool readable = false;
    std::string problem{};
    int status = 0;
    /// The header. Its channels hold no voxels any more.
    std::unique_ptr<NimbraFrameData> frame;
    std::vector<ChannelInfo> channels;
    std::vector<GroupInfo> groups;
};

/// Reads a file. Without `values` header values alone, at a cost that doesn't depend on the payload
/// of a .kol file.
FrameInfo readFrameInfo(const std::string& path, bool values);

std::string infoText(const FrameInfo& info);
std::string infoJson(const FrameInfo& info);

/// What the choice of a look needs to know of a frame: velocities and colours as one vector each,
/// cells that aren't 0 as the active ones.
std::vector<GridSummary> summarize(NimbraFrameData& frame);

/// Cells to object space: three axis vectors and the place of cell 0; the cells' own axes for a
/// transform that can't be inverted.
std::array<std::array<double, 3>, 4> cellsToObject(const NimbraFrameData& frame);

}  // namespace nimbra::cli
