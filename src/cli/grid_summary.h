// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "cache/vdb_info.h"
#include "cli/view_look.h"

namespace nimbra::cli {

/// What the choice of a look needs to know of a file's grids.
std::vector<GridSummary> summarize(const VdbFileInfo& file);

}  // namespace nimbra::cli
