// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Velocities of a simulation that stored none, made of the places where the content of the next
// frame came from.
#pragma once

namespace nimbra {

class NimbraFrameData;

/// Writes the way of each cell's content from `frame` to `later`, in cells for each unit of the
/// simulation's time, into the velocity channels of `frame`, or into its advection origin where it
/// has velocities of its own. Cells that `later` doesn't cover get 0. `frame` is changed in place
/// and may be `later`; it is changed once only, whoever asks again.
/// False, and nothing changed, where `later` has no advection origin (channels 15 to 17, in shares
/// of the grid's size) or there is no memory.
bool velocitiesFromOrigin(NimbraFrameData& frame, NimbraFrameData& later);

/// Whether that has been done to the frame.
bool hasOriginVelocities(const NimbraFrameData& frame);

}  // namespace nimbra
