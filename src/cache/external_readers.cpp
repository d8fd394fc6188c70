// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/external_readers.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

#include "cache/frame_data.h"
#include "cache/vdb_tree.h"
#include "foundation/log.h"

namespace nimbra {

namespace {

constexpr const char* kReaderName = "field3dio";
constexpr const char* kLibrarySuffix = ".so";

Field3dReader loadedReader;
/// Points to loadedReader once that is filled.
std::atomic<const Field3dReader*> readyReader{nullptr};
std::mutex loadMutex;

template <class Function>
bool resolve(void* library, const char* name, Function& out) {
    out = reinterpret_cast<Function>(dlsym(library, name));
    return out != nullptr;
}

/// All five exports or none: a library that lacks one isn't the reader.
bool tryLibrary(const char* fileName) {
    void* const library = dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    if (!library)
        return false;
    Field3dReader& r = loadedReader;
    const bool complete = resolve(library, "Initialize", r.Initialize) &&
                          resolve(library, "SetThreadManager", r.SetThreadManager) &&
                          resolve(library, "ReleaseThreadManager", r.ReleaseThreadManager) &&
                          resolve(library, "ImportFrameF3D", r.ImportFrameF3D) &&
                          resolve(library, "GetAvailableChannels", r.GetAvailableChannels);
    if (!complete || !r.Initialize()) {
        dlclose(library);
        return false;
    }
    readyReader.store(&loadedReader, std::memory_order_release);
    return true;
}

/// Tries the file name that printf-like arguments give; names that don't fit are passed over.
template <class... Parts>
bool tryName(const char* format, Parts... parts) {
    char name[1024];
    const int length = std::snprintf(name, sizeof name, format, parts...);
    return length > 0 && length < static_cast<int>(sizeof name) && tryLibrary(name);
}

bool searchReader(const std::string& directories, const char* word, const std::string& version) {
    const char* const v = version.c_str();
    for (std::size_t at = 0; at <= directories.size();) {
        const std::size_t end = std::min(directories.find(';', at), directories.size());
        const std::string directory = directories.substr(at, end - at);
        at = end + 1;
        if (directory.empty())
            continue;
        const bool closed = directory.back() == '/' || directory.back() == '\\';
        if (tryName(closed ? "%s%s%s_%s%s" : "%s/%s%s_%s%s", directory.c_str(), kReaderName, word,
                    v, kLibrarySuffix))
            return true;
    }
    return tryName("%s%s_%s%s", kReaderName, word, v, kLibrarySuffix) ||
           tryName("%s%s%s", kReaderName, word, kLibrarySuffix);
}

}  // namespace

unsigned loadExternalCacheReaders(unsigned mask, const char* directories, const char* word,
                                  int version) {
    unsigned ready = 0;
    if (mask & kField3dReader) {
        const std::lock_guard lock(loadMutex);
        if (field3dReader() ||
            searchReader(directories ? directories : "", word ? word : "", std::to_string(version)))
            ready |= kField3dReader;
    }
    if ((mask & kOpenVdbReader) && prepareVdbLibrary())
        ready |= kOpenVdbReader;
    return ready;
}

const Field3dReader* field3dReader() {
    return readyReader.load(std::memory_order_acquire);
}

namespace {
thread_local std::string importProblem, importWarning;
}  // namespace

const std::string& lastImportProblem() {
    return importProblem;
}

void setImportProblem(const std::string& problem) {
    importProblem = problem;
    importWarning.clear();
}

const std::string& lastImportWarning() {
    return importWarning;
}

int importF3D(const std::string& path, NimbraFrameData& frame, const std::string& channelMap,
              bool headerOnly) {
    frame.resetHeader(headerOnly);
    const auto mappings = CacheIO::parseChannelMap(channelMap);
    if (mappings.empty()) {
        NMBUtils::logLine("Trying to import F3D files with no mappings specified!\n");
        setImportProblem(path + ": no channel mappings are given");
        return kLoadNoMapping;
    }
    const Field3dReader* const reader = field3dReader();
    if (!reader) {
        setImportProblem(path + ": there is no reader for Field3D files");
        return kLoadNoReader;
    }
    const int status = reader->ImportFrameF3D(path.c_str(), &frame, headerOnly, mappings.data(),
                                              static_cast<int>(mappings.size()));
    const std::string message = std::exchange(frame.description, {});
    if (status == kLoadOk) {
        setImportProblem("");
        importWarning = message;
        finishImport(frame);
        return kLoadOk;
    }
    setImportProblem(path + ": " + (message.empty() ? "can't be read" : message));
    NMBUtils::logLine("Can't import %s\n", lastImportProblem().c_str());
    frame.resetHeader(headerOnly);
    return status;
}

bool availableF3dChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list) {
    const Field3dReader* const reader = field3dReader();
    if (reader && reader->GetAvailableChannels(path.c_str(), &list) != 0)
        return true;
    setImportProblem(path +
                     (reader ? ": can't be read" : ": there is no reader for Field3D files"));
    return false;
}

void finishImport(NimbraFrameData& frame) {
    constexpr std::uint32_t kVelocity =
        channelBit(kVelocityX) | channelBit(kVelocityY) | channelBit(kVelocityZ);
    frame.setNoStoredGrid();
    if ((frame.channelMask & kVelocity) == kVelocity)
        return;
    frame.channelMask &= ~kVelocity;
    for (int c = kVelocityX; c <= kVelocityZ; ++c)
        frame.freeChannel(c);
}

}  // namespace nimbra
