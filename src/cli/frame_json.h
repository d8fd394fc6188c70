// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A frame as JSON: header values, and for each channel its range, sums, check sum and samples, so
// that two frames can be compared by comparing texts.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "cache/frame_data.h"

namespace nimbra::cli {

/// Voxels that a frame's channels may have together before they are left out as too large.
inline constexpr std::int64_t kMostVoxels = std::int64_t(1) << 29;

struct FrameJsonOptions {
    /// Names, counts, flags and masks of groups alone, and no channels.
    bool headerOnly = false;
    std::int64_t mostVoxels = kMostVoxels;
};

/// Expands each channel in turn and lets its voxels go again. Channels that are too large stand
/// among the failed ones, and in `tooLarge`.
nlohmann::ordered_json frameJson(NimbraFrameData& frame, const FrameJsonOptions& options,
                                 std::vector<int>& tooLarge);

}  // namespace nimbra::cli
