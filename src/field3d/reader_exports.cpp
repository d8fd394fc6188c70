// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The five exports of the reader library.
#include <exception>
#include <vector>

#include "cache/bounded_reader.h"
#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "field3d/f3d_import.h"
#include "foundation/parallel.h"

#define NIMBRA_READER_EXPORT extern "C" __attribute__((visibility("default")))

using namespace nimbra;

NIMBRA_READER_EXPORT int Initialize() {
    return 1;
}

NIMBRA_READER_EXPORT void SetThreadManager(TessUtils::ThreadManager* manager) {
    NMBUtils::setGlobalThreadManager(manager);
}

NIMBRA_READER_EXPORT void ReleaseThreadManager(TessUtils::ThreadManager*) {
    NMBUtils::releaseGlobalThreadManager();
}

NIMBRA_READER_EXPORT int ImportFrameF3D(const char* path, NimbraFrameData* frame, int headerOnly,
                                        const CacheIO::GridMapping* mappings, int mappingCount) {
    if (!path || !frame || !mappings || mappingCount < 1)
        return kLoadNotFound;
    bool done = false;
    try {
        done = importF3dFile(path, *frame, headerOnly != 0, {mappings, mappings + mappingCount},
                             frame->description);
    } catch (const std::bad_alloc&) {
        frame->description = "there isn't enough memory";
    } catch (const std::exception& e) {
        frame->description = printable(e.what());
    }
    return done ? kLoadOk : kLoadNotFound;
}

NIMBRA_READER_EXPORT int GetAvailableChannels(const char* path,
                                              std::vector<CacheIO::AvailableChannels>* list) {
    if (!path || !list)
        return 0;
    try {
        std::string problem;
        return listF3dChannels(path, *list, problem);
    } catch (const std::exception&) {
        return 0;
    }
}
