// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: an OpenVDB file of any bytes is imported, in full and header-only, and listed.
#include <cstddef>
#include <cstdint>
#include <string>

#include "cache/channel_mapping.h"
#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "cache/prt_group.h"
#include "cache/vdb_info.h"
#include "support/memory_file.h"

namespace {

/// Every grid that can be mapped, one to a channel.
std::string mapAll(const std::string& path) {
    std::vector<CacheIO::AvailableChannels> available;
    nimbra::availableVdbChannels(path, available);
    std::vector<CacheIO::GridMapping> list;
    for (const auto& channel : available)
        list.push_back({channel.name, static_cast<int>(list.size() % 31) + 1, 1});
    return list.empty() ? "2,density;" : CacheIO::formatChannelMap(list);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nimbra::test::MemoryFile file(data, size);
    const std::string map = mapAll(file.path());
    nimbra::NimbraFrameData frame;
    if (nimbra::importVdb(file.path(), frame, map, false) == nimbra::kLoadOk)
        for (int c = 0; c < nimbra::kChannelSlots; ++c) {
            float low = 0, high = 0;
            frame.getChannelRange(c, low, high);
            const auto& proxy = frame.getChannelProxy(c);
            if (proxy.loaded && proxy.storage->cells > 0)
                proxy.read(proxy.storage->cells / 2);
        }
    for (nimbra::NimbraFrameData::PGroup* group : frame.groups)
        for (int c = 0; c < nimbra::kPrtChannelSlots; ++c) {
            float out[3];
            group->getValue(group->count - 1, c, out);
        }
    nimbra::importVdb(file.path(), frame, map, true);
    nimbra::readVdbInfo(file.path());
    return 0;
}
