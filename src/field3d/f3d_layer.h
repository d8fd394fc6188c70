// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a layer's group of attributes to its checked description.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "field3d/f3d_file.h"

namespace nimbra {

/// Whether a group in a partition of an HDF5 file is a layer.
bool isHdf5Layer(const F3dGroup& group);
/// A layer that can't be read comes with its problem.
F3dLayer readLayer(const F3dGroup& group, bool isHdf5);
/// Attributes by name, in words.
std::vector<std::pair<std::string, std::string>> attributeTexts(const F3dGroup& group);

}  // namespace nimbra
