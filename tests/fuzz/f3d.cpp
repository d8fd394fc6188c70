// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: a Field3D file of any bytes is listed and imported, in full and header-only.
#include "cache/frame_data.h"
#include "field3d/f3d_import.h"
#include "field3d/f3d_info.h"
#include "support/memory_file.h"

namespace {

/// Every name that can be mapped, one to a channel.
std::vector<CacheIO::GridMapping> mapAll(const std::string& path) {
    std::vector<CacheIO::AvailableChannels> available;
    std::string problem;
    nimbra::listF3dChannels(path, available, problem);
    std::vector<CacheIO::GridMapping> list = {{"density", 2, 1}};
    for (const auto& channel : available)
        list.push_back({channel.name, static_cast<int>(list.size() % 31) + 1, 1});
    return list;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nimbra::test::MemoryFile file(data, size);
    const auto mappings = mapAll(file.path());
    std::string message;
    for (const bool headerOnly : {false, true}) {
        nimbra::NimbraFrameData frame;
        frame.resetHeader(headerOnly);
        if (!nimbra::importF3dFile(file.path(), frame, headerOnly, mappings, message))
            continue;
        for (int c = 0; c < nimbra::kChannelSlots; ++c) {
            float low = 0, high = 0;
            frame.getChannelRange(c, low, high);
        }
    }
    nimbra::readF3dInfo(file.path());
    return 0;
}
