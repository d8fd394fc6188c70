// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How much memory there is at all: what needs more isn't begun. The system may promise more than it
// has, and then ends the process that uses it. And memory given back before its owner ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace nimbra {

/// Bytes that this process may have at most: the machine's memory, or less where a limit is set.
std::uint64_t memoryOfProcess();

/// Gives the system back what it can of allocated memory that won't be read again; the bytes are
/// undefined then. The memory is still to be freed.
void giveBack(std::span<std::byte> unused);

}  // namespace nimbra
