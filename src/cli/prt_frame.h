// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A PRT particle file as a frame with one group.
#pragma once

#include <string>

#include "cache/frame_data.h"

namespace nimbra::cli {

/// Name of the group.
inline constexpr const char* kPrtGroupName = "Particles";

/// Fills a frame that is as resetHeader leaves it: "Position", "Velocity", "Size", "Age", "Color"
/// and "ID" become the channels of that meaning. One of a type or a width that the reader doesn't
/// take is among the group's channels without values. Answers a FrameLoadStatus; `problem` may
/// tell of damage even where it is 0.
int loadPrtFrame(const std::string& path, NimbraFrameData& frame, std::string& problem);

}  // namespace nimbra::cli
