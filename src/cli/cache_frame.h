// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One frame out of a cache file of any format, for the commands that look into caches.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "host/host_log.h"

namespace nimbra::cli {

/// A file as a frame.
struct CacheFrame {
    std::string path;
    /// FrameLoadStatus.
    int status = kLoadNotFound;
    /// Null unless the status is 0.
    std::unique_ptr<NimbraFrameData> data{};
    /// "path: what is wrong" where the status isn't 0; damage that the reader went on behind, else.
    std::string problem{};
};

/// Reads a file. `mapping`: which grid of a foreign cache becomes which channel; empty: chosen by
/// the known names. Never throws but for memory.
CacheFrame loadCacheFrame(const std::string& path, const std::string& mapping, bool headerOnly);

/// Lets the voxels of a channel go where they can be had again. The range stays, since it may come
/// from the file.
void releaseVoxels(NimbraFrameData& frame, int channel);

/// Makes the readers ready that lie beside the plug-in library, as the library itself finds them.
/// Whether that of Field3D files is there.
bool prepareCacheReaders();

/// Extensions of cache files, lower case with the dot.
const std::vector<std::string>& cacheExtensions();

/// The files that a name on the command line means: a pattern or a folder becomes its files in the
/// order of their frames; anything else stays, so that what is wrong with it is reported.
struct CacheFile {
    std::string path;
    /// Its number in the sequence.
    std::int64_t frame = 0;
};
struct CacheFiles {
    std::vector<CacheFile> files;
    /// Frames between the first and the last without a file, as "3-4,7"; empty for none.
    std::string missing;
    /// Whether a sequence was meant, be it of one file.
    bool isSequence = false;
    /// For the user: that a folder holds more than what was taken.
    std::string others;
    /// Why there is no file, where there is none.
    std::string problem;
};
CacheFiles findCacheFiles(const std::string& input, const std::vector<std::string>& extensions);
/// Says what the user should know of them: no files, gaps, and what lies beside them.
void tellOfFiles(const CacheFiles& found, const std::string& input, host::HostLog& log);

/// "smoke", "velocity_x", ...; "channel_11" for those without a name.
std::string channelName(int channel);
/// "position", "velocity", ...; "channel_5" for those without a name.
std::string particleChannelName(int channel);
/// The channel of a name or of a number in digits; -1 for neither.
int channelNamed(const std::string& text);
int particleChannelNamed(const std::string& text);

}  // namespace nimbra::cli
