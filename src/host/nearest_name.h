// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Finds the known name that a mistyped one was most likely meant to be.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nimbra::host {

/// Insertions, deletions, replacements and swaps of neighbours that turn `a` into `b`, ignoring
/// case.
int editDistance(std::string_view a, std::string_view b);

/// The candidate nearest to `name`, or "" when none is near enough to be a typing error (more than
/// a third of the longer name differs). Ties go to the earlier candidate.
std::string nearestName(std::string_view name, const std::vector<std::string>& candidates);

/// " (did you mean 'x'?)" for the nearest name, or "".
std::string suggestion(std::string_view name, const std::vector<std::string>& candidates);

}  // namespace nimbra::host
