// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The mapping that takes as much of a foreign cache as has a meaning.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cache/channel_mapping.h"

namespace nimbra::cli {

/// What a render maps by itself, and beside it the names that only people know: flames as fuel,
/// vectors as velocities and colours. `table`: of the files' format.
std::vector<CacheIO::GridMapping> wholeMapping(
    const std::vector<CacheIO::AvailableChannels>& available,
    std::span<const CacheIO::DefaultMapping> table);

/// The text for the files of one sequence, which may hold different grids; empty for files that
/// need no mapping, and when none can be read. `leftOut`: names of grids that become no channel.
std::string wholeMappingText(const std::vector<std::string>& files,
                             std::vector<std::string>& leftOut);

}  // namespace nimbra::cli
