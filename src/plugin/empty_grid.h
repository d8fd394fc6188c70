// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The grid of a container whose cache has no frame.
#pragma once

#include "foundation/matrix34.h"
#include "tessra/plugin_base.h"

namespace nimbra {

struct EmptyGrid {
    int size[3] = {0, 0, 0};
    NMBUtils::Matrix34 gridFromObject;
};

/// Reads the grid from the rows of a cache plug-in at a time; false unless the scene sets its three
/// sizes and the size of its cells. The grid stands centred on the object's origin in its two
/// horizontal axes and on it with its bottom.
bool readEmptyGridSettings(PluginBase* cache, double time, EmptyGrid& grid);

}  // namespace nimbra
