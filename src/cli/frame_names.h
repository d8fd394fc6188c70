// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frame numbers in file names. Users write patterns in the forms of many programs:
//   ####  (n hashes: n digits; one alone: 4)   @@@   %d %04d   $F $F4   <frame> <frame04>
// A number wider than its padding stays whole; a negative one keeps its sign in front: "-0001".
// A frame between two others has its decimals behind: "0012.250".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/frame_number.h"

namespace nimbra::cli {

/// True if the file name part of `path` holds a frame pattern.
bool hasFramePattern(const std::string& path);

/// The name with a "_" in place of what would make it a frame pattern.
std::string plainName(std::string name);

/// `path` with the frame number in place of every pattern of its file name. The padding is that of
/// the digits in front of the point; `decimals`: at least so many behind it.
std::string fillFramePattern(const std::string& path, host::FrameNumber frame, int decimals = 0);

/// The pattern in the form that caches understand: every pattern as a run of "#".
std::string toHashPattern(const std::string& path);

/// A sequence of files: the pattern as caches understand it (n "#": n digits, 1 too), the frames
/// that exist, ascending, and their files. A single file has its own path as the pattern and no
/// frames.
struct FileSequence {
    std::string pattern;
    std::vector<std::int64_t> frames;
    std::vector<std::string> files;
    /// What else lies in a folder: names of further files, and patterns of further sequences.
    std::vector<std::string> others{};
};

/// The sequence that `path` means: a pattern; a folder (its longest sequence of cache files with
/// one of `extensions`, lower case with the dot); or one file, which is taken with its neighbours
/// of the same name and other numbers. Nothing if no such file exists.
std::optional<FileSequence> findSequence(const std::string& path,
                                         const std::vector<std::string>& extensions);

/// Why a file isn't one of these by its name; empty if it is.
std::string wrongExtension(const std::string& path, const std::vector<std::string>& extensions);

/// Why nothing was found, for a user who gave that path.
std::string whyNoSequence(const std::string& path, const std::vector<std::string>& extensions);

/// "FOLDER: A is shown; beside it are B, C", with `done` as "is shown"; empty where the folder
/// holds nothing else.
std::string othersText(const std::string& folder, const FileSequence& sequence, const char* done);

/// The output path of one frame. A pattern in `output` is filled; without one, ".####" goes before
/// the extension when `severalFrames`.
std::string outputName(const std::string& output, host::FrameNumber frame, bool severalFrames,
                       int decimals = 0);

/// The same for a file of a cache that is written, named as caches look for it: they count a minus
/// sign into the width, "-001" for "####".
std::string cacheOutputName(const std::string& output, std::int64_t frame, bool severalFrames);

/// Two of `frames` that `outputName` would write to one file, if there are any.
std::optional<std::string> clashingOutput(const std::string& output,
                                          const std::vector<host::FrameNumber>& frames,
                                          int decimals = 0);

}  // namespace nimbra::cli
