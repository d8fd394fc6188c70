// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: a PRT file of any bytes is loaded, and its channels are read.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "cache/prt_file.h"
#include "support/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nimbra::test::MemoryFile bytes(data, size);
    PrtIO::PrtFile file;
    file.load(bytes.path().c_str());
    const int channels = std::min(file.channels.size, 64);
    for (int c = -1; c <= channels; ++c)
        for (const int i : {-1, 0, 1, file.count / 2, file.count - 2, file.count - 1, file.count})
            for (const std::size_t room : {4, 8, 12, 64}) {
                char out[64] = {};
                file.readChannel(c, i, out, room);
                // More than was asked for must not have been written.
                for (std::size_t k = room; k < sizeof out; ++k)
                    if (out[k] != 0)
                        __builtin_trap();
            }
    return 0;
}
