// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: a .kol file of any bytes is loaded, in full and header-only; then its channels and
// its particles are read.
#include <cstddef>
#include <cstdint>

#include "support/kol_walk.h"
#include "support/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nimbra::test::MemoryFile file(data, size);
    nimbra::test::walkKol(file.path());
    return 0;
}
