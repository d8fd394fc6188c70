// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The grammar of frame lists, the same wherever the command takes frames:
//   N        one frame                     A-B      each frame from A to B, B may lie below A
//   A-BxS    every S-th frame              A-ByS    all frames that A-BxS leaves out
//   A-B:S    interleaved: every S-th frame first, then every S/2-th of the rest, and so on to 1
// joined by commas; numbers may be negative. Renders take decimals as well: 12.25, 0-2x0.25; with
// "y" and ":" the step is whole.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/frame_number.h"

namespace nimbra::cli {

/// A frame list that breaks the grammar; what() says where and what is allowed.
struct FrameRangeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Most frames that one list may name.
inline constexpr std::int64_t kMaxFrames = 10'000'000;

/// The frames of a render.
struct FrameList {
    /// In render order, each once.
    std::vector<host::FrameNumber> frames;
    /// How many decimals the names of all its pictures have, so that they sort and fit together:
    /// none, or at least three when any number was written with a point.
    int decimals = 0;
};

/// Throws FrameRangeError.
FrameList parseFrameList(const std::string& text);

/// The same where frames are files, which have whole numbers. Throws FrameRangeError.
std::vector<std::int64_t> parseFrameRange(const std::string& text);

/// A short text for a list of frames: runs become "A-B" ("1-5,7").
std::string describeFrames(std::vector<host::FrameNumber> frames);

/// The share of array task `index` of `count` tasks (index counts from 0): consecutive frames,
/// shares differ by at most one frame. Throws std::invalid_argument for an index outside the tasks.
std::vector<std::int64_t> frameShare(const std::vector<std::int64_t>& frames, std::int64_t index,
                                     std::int64_t count);

}  // namespace nimbra::cli
