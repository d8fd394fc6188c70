// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "cache/vdb_info.h"
#include "cli/view_look.h"
#include "field3d/f3d_info.h"

namespace nimbra::cli {

/// What the choice of a look needs to know of a file's grids.
std::vector<GridSummary> summarize(const VdbFileInfo& file);
std::vector<GridSummary> summarize(const F3dFileInfo& file);

/// The up axis of the program that wrote a file, as far as its metadata tell it.
UpConvention upConventionOf(const VdbFileInfo& file);

}  // namespace nimbra::cli
