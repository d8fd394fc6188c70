// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A moment between two frames: grids, particles and header values of both are blended into a third
// frame.
#pragma once

#include "cache/blend_result.h"

namespace nimbra {

/// The low byte of a blend method; above the last one no grid is blended.
enum GridBlendMethod : int {
    kInterpolateGrids = 0,
    kBlendAlongVelocity = 1,  ///< cells take the value from where it came from
    kTracePrecisely = 2,
};

/// Blends `a` and the later `b` into `dst`, a new frame, and takes that into the list of frames.
/// weight: of b, 0 to 1. method: a GridBlendMethod + 256 * the way of the particles, 0 by ID, 1 as
/// a cross-fade, others none. The result covers both grids, on cells of `a`; channels that only one
/// of them has are left out.
///
/// blendSource: for each channel 3 floats for each cell of the result, or null; the caller's, from
/// NMBUtils' memory. Blending along velocities makes those that are missing, or all of them with
/// `recompute`; they serve the same two frames with any other weight.
///
/// Answers kFrameLoaded; kFrameVelocityFallback; what the particles answer; or kFrameScaleMismatch
/// for grids that don't fit together or without memory: `dst` is then half made and not in the
/// list. `stop` may be null: asked for an abort, which leaves grids half done.
BlendResult blendFrames(NimbraFrameData& dst, NimbraFrameData& a, NimbraFrameData& b, float weight,
                        int method, bool recompute, float* (&blendSource)[kChannelSlots],
                        TessUtils::ProgressCallback* stop);

}  // namespace nimbra
