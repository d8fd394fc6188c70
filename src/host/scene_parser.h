// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// JSON text with comments into a tree of nodes that remember their place.
#pragma once

#include <string_view>

#include "host/scene_file.h"

namespace nimbra::host {

/// Nesting deeper than SceneDocument::kMostDepth, more values than this, duplicate keys and numbers
/// that aren't finite are faults, as is all that isn't JSON.
inline constexpr std::size_t kMostSceneValues = 1'000'000;

/// Parses one whole text. False after a fault, which then stands in `diagnostics`.
bool parseSceneText(std::string_view text, std::shared_ptr<const std::string> file, SceneNode& root,
                    SceneDiagnostics& diagnostics);

/// A text from a file for use in a message: cut to 256 bytes, control characters replaced.
std::string printable(std::string_view text);

}  // namespace nimbra::host
