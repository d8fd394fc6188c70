// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What happens when a host asks the library for its plug-ins.
#include <string>

#include "cache/external_readers.h"
#include "foundation/log.h"
#include "plugin/plugin_table.h"

namespace nimbra {

namespace {

/// The folder of a file with its separator; empty where there is none.
std::string folderOf(const char* fileName) {
    const std::string name = fileName ? fileName : "";
    return name.substr(0, name.find_last_of("/\\") + 1);
}

}  // namespace

PluginLibDesc* offerLibrary(const char* moduleFileName) {
    constexpr int kReaderMode = 2;
    unsigned ready = 0;
    try {
        ready = loadExternalCacheReaders(kField3dReader | kOpenVdbReader,
                                         folderOf(moduleFileName).c_str(), "tessra", kReaderMode);
    } catch (...) {
        // A reader that can't start up is a missing reader.
    }
    // The host has no log yet at this time.
    if (!(ready & kField3dReader))
        NMBUtils::printLine("NmbShader: Cannot load 3rd party field3d library!\n");
    if (!(ready & kOpenVdbReader))
        NMBUtils::printLine("NmbShader: Cannot load 3rd party openvdb library!\n");
    return &libDesc();
}

}  // namespace nimbra
