// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a choice of channels and groups to the files that hold them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "cache/prt_group.h"
#include "cli/array_files.h"
#include "cli/cache_frame.h"
#include "cli/console.h"
#include "cli/frame_json.h"
#include "host/abort_flag.h"

namespace nimbra::cli {

/// What the user wants written.
struct DumpArrays {
    std::string output;                     // "FILE.npy" or "FILE.ply"; empty: nothing
    std::vector<std::string> channels;      // names or numbers; empty: all
    std::string group;                      // empty: voxels in .npy, all groups in .ply
    std::int64_t mostVoxels = kMostVoxels;  // cells of all channels of a frame together
};

/// The grid channels of a frame that are asked for, all that it has if none are named. Throws
/// std::invalid_argument for a name that isn't known.
std::vector<int> chosenChannels(const NimbraFrameData& frame, const DumpArrays& arrays);

/// Whether so many channels of the frame stay within the limit.
bool withinLimit(const NimbraFrameData& frame, std::size_t channels, std::int64_t mostVoxels);
/// The line that tells the user that they don't.
std::string beyondLimitText(const CacheFrame& frame, std::size_t channels, std::int64_t mostVoxels);

/// Writes the arrays of one frame after the other. Stops for signals while it lives.
class ArrayWriter {
public:
    ArrayWriter(const DumpArrays& arrays, Console& console);

    /// Looks at the output's name and folder before anything is read. Answers an exit code; throws
    /// std::invalid_argument for a name that can't be meant.
    int prepare(const std::vector<CacheFile>& files, bool isSequence);
    /// Writes what is chosen of a frame. Answers an exit code.
    int write(const CacheFrame& frame, std::int64_t number);

private:
    int writeGrids(const CacheFrame& frame, std::int64_t number);
    int writeChannels(const CacheFrame& frame, NimbraFrameData::PGroup& group, std::int64_t number);
    int writePoints(const CacheFrame& frame, std::int64_t number);
    std::string pathOf(const std::string& part, bool severalParts, std::int64_t number);
    int report(const std::string& path, FileResult result, const std::string& error);

    const DumpArrays& arrays_;
    Console& console_;
    host::AbortFlag abort_;
    host::SignalAbort signals_;
    bool severalFrames_ = false;
    std::set<std::string> written_;
};

}  // namespace nimbra::cli
