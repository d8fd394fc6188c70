// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The values of a blended frame that aren't voxels or particles.
#pragma once

#include "cache/frame_data.h"

namespace nimbra {

/// Header values, particle box and texts of `dst`, with that weight of `b`.
void blendHeaders(NimbraFrameData& dst, const NimbraFrameData& a, const NimbraFrameData& b,
                  float weight);

}  // namespace nimbra
