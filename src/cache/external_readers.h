// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The readers of foreign cache formats: OpenVDB by the library of that name, Field3D by a reader
// library that is loaded at run time and may be missing.
#pragma once

#include <string>
#include <vector>

#include "cache/channel_mapping.h"

namespace TessUtils {
class ThreadManager;
}

namespace nimbra {

class NimbraFrameData;

/// Bits of the readers.
enum ExternalReader : unsigned { kField3dReader = 1, kOpenVdbReader = 2 };

/// Makes the readers of `mask` ready; the answer has the bits of those that are. The Field3D reader
/// is searched in each of the ";"-separated directories and then by its name alone; its file is
/// "field3dio<word>_<version>.so", or "field3dio<word>.so". Null or empty `directories`: by name
/// alone. May be called any number of times, from any thread: a reader that is loaded stays.
unsigned loadExternalCacheReaders(unsigned mask, const char* directories, const char* word,
                                  int version);

/// What the Field3D reader library exports, under the names of the members. The library is built
/// with this one: frames and lists are handed over as they are.
struct Field3dReader {
    /// Not 0 when it is ready.
    int (*Initialize)();
    void (*SetThreadManager)(TessUtils::ThreadManager* manager);
    void (*ReleaseThreadManager)(TessUtils::ThreadManager* manager);
    /// As importF3D; `frame` is as resetHeader leaves it. Its `description` comes back with the
    /// reason of a failure, or with the warning after a success; the caller takes it away.
    int (*ImportFrameF3D)(const char* path, NimbraFrameData* frame, int headerOnly,
                          const CacheIO::GridMapping* mappings, int mappingCount);
    /// As availableF3dChannels, 0 for false.
    int (*GetAvailableChannels)(const char* path, std::vector<CacheIO::AvailableChannels>* list);
};

/// The reader, or null while none is loaded.
const Field3dReader* field3dReader();

/// Fills the frame from a .vdb or an .f3d file; `channelMap` is the mapping text. `headerOnly`
/// gives the size and the transform without voxels. Answers 0, or 2 (no reader), 3 (not a file that
/// can be read; the frame has no channels), 9 (no mappings).
/// `maxMemory` -1: no limit; otherwise bytes that the voxels may take, else the answer is 3.
int importVdb(const std::string& path, NimbraFrameData& frame, const std::string& channelMap,
              bool headerOnly, std::int64_t maxMemory = -1);
int importF3D(const std::string& path, NimbraFrameData& frame, const std::string& channelMap,
              bool headerOnly);

/// Names that a mapping of this file can use, in file order; false for a file that can't be read.
bool availableVdbChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list);
bool availableF3dChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list);

/// Why the last import on this thread failed, in words for the user; empty after a success.
const std::string& lastImportProblem();
/// Clears the warning too.
void setImportProblem(const std::string& problem);
/// What the last import on this thread left out or changed; empty when nothing.
const std::string& lastImportWarning();

/// What every import ends with: no stored grid, and velocities all three or none.
void finishImport(NimbraFrameData& frame);

}  // namespace nimbra
