// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Names that simulators give their grids.
#pragma once

#include <string>
#include <vector>

namespace nimbra::cli {

using Names = std::vector<const char*>;

// Names that simulators give their grids, folded to lower-case letters and digits, best first.
extern const Names kSmokeNames;
extern const Names kTemperatureNames;
extern const Names kFlameNames;
extern const Names kVelocityNames;
extern const Names kColorNames;
extern const Names kLevelSetNames;
// What simulators keep for themselves: true in every cell, or no matter at all.
extern const Names kNotDrawn;

/// Lower-case letters and digits alone, without the "nmb" that ends the names of our own grids.
std::string foldedName(const std::string& name);
/// Whether the folded name is one of them.
bool isOneOf(const std::string& name, const Names& names);

}  // namespace nimbra::cli
