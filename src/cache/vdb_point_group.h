// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a points grid to a particle group of a frame.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "cache/frame_data.h"
#include "cache/vdb_file.h"

namespace nimbra {

/// Adds a points grid to the frame as a group of its name. `low`: the cell of the grid's index
/// space that is cell (0, 0, 0) of the frame. A header-only frame gets the group without values.
/// What can't be read is left out, with a line in the log: single channels, or the group.
void addPointGroup(NimbraFrameData& frame, VdbFile& file, const VdbDescriptor& grid,
                   const std::array<std::int32_t, 3>& low, bool headerOnly);

}  // namespace nimbra
