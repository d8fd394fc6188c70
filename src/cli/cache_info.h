// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a cache file holds, as text for people and as JSON for programs.
#pragma once

#include <string>

#include "cache/vdb_info.h"
#include "field3d/f3d_info.h"

namespace nimbra::cli {

/// A table of the file's grids: type, active box, count, range, memory; then what is wrong.
std::string infoText(const VdbFileInfo& file);
std::string infoText(const F3dFileInfo& file);
/// The same and all metadata as one JSON object.
std::string infoJson(const VdbFileInfo& file);
std::string infoJson(const F3dFileInfo& file);
/// "1.5 MB"
std::string sizeText(std::uint64_t bytes);

}  // namespace nimbra::cli
