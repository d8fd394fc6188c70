// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fills a frame from a file of any format, chosen by the extension.

#include <sys/stat.h>

#include <string_view>

#include "cache/external_readers.h"
#include "cache/frame_data.h"

namespace nimbra {
namespace {

/// What follows the last dot of the file's name; empty without one.
std::string_view extensionOf(std::string_view path) {
    const std::size_t name = path.find_last_of("/\\") + 1;  // npos + 1 is 0
    const std::size_t dot = path.rfind('.');
    return dot == path.npos || dot < name ? std::string_view() : path.substr(dot + 1);
}

}  // namespace

std::int64_t fileModificationTime(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return 0;
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    return std::int64_t(info.st_mtim.tv_sec) * kNanoseconds + info.st_mtim.tv_nsec;
}

int NimbraFrameData::load(const std::string& filePath, const std::string& mapping, double frameTime,
                          std::int64_t maxMemory, bool noRetry, bool headerOnly) {
    freeChannels();
    freeData();
    upAxisFlipped = 0;
    // Taken before the file is read: a file that changes meanwhile will be found to differ.
    const std::int64_t modified = fileModificationTime(filePath);
    int status = kLoadNotFound;
    const std::string_view extension = extensionOf(filePath);
    if (extension == "kol")
        status = ImportKol(filePath, noRetry, headerOnly);
    else if (extension == "vdb")
        status = importVdb(filePath, *this, mapping, headerOnly, maxMemory);
    else if (extension == "f3d")
        status = importF3D(filePath, *this, mapping, headerOnly);
    if (status != kLoadOk) {
        path.clear();
        fileTime = 0;
        return status;
    }
    if (extension != "kol")
        simInfo.setSimTime(frameTime);
    path = filePath;
    fileTime = modified;
    return kLoadOk;
}

}  // namespace nimbra
