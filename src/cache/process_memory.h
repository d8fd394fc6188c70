// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How much memory there is at all: what needs more isn't begun. The system may promise more than it
// has, and then ends the process that uses it.
#pragma once

#include <cstdint>

namespace nimbra {

/// Bytes that this process may have at most: the machine's memory, or less where a limit is set.
std::uint64_t memoryOfProcess();

}  // namespace nimbra
