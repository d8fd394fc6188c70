// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a frame to the bytes of another cache format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "host/abort_flag.h"

namespace nimbra::cli {

/// How channels of .kol files are packed.
struct KolPacking {
    int bits = 16;   // 1 to 19: 2^bits steps over the range; 20 and more: floats as they are
    float step = 0;  // where it is positive, steps of this size in place of `bits`
};

/// What became of one channel.
struct PackedChannelReport {
    std::string name;
    std::uint64_t bytes = 0;
    /// Largest distance of a value that is read back from the one that was there.
    double largestError = 0;
    /// Of the values that were there.
    double range = 0;
    /// Values that weren't finite: 0 is in their place.
    std::int64_t notFinite = 0;
};

struct ConvertReport {
    std::vector<PackedChannelReport> channels;
    /// Things that the format or the file keep from being taken over, in words.
    std::vector<std::string> leftOut;
};

/// Why a conversion didn't get to its end.
enum class ConvertResult { Done, Aborted, NoMemory, Failed };

/// A frame as a .kol file. Channels are expanded one after the other; what doesn't expand is left
/// out.
ConvertResult packKol(NimbraFrameData& frame, const KolPacking& packing,
                      const host::AbortFlag& abort, std::string& bytes, ConvertReport& report);

/// A frame as an OpenVDB file, one grid of floats for each channel under the channel's own name.
/// Cells of exactly 0 are left out of the trees. On Failed `error` says why.
ConvertResult packVdb(NimbraFrameData& frame, const host::AbortFlag& abort, std::string& bytes,
                      ConvertReport& report, std::string& error);

/// The ids of the channels that were stored in a frame, those hidden in the packed colour among
/// them; derived ones not.
std::vector<int> storedChannels(const NimbraFrameData& frame);

/// The values of a channel in one piece, x fastest; empty when it doesn't expand. The frame's own
/// copy goes where it can be had again. Throws std::bad_alloc.
std::vector<float> takeVoxels(NimbraFrameData& frame, int channel);

}  // namespace nimbra::cli
