// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The particles of a moment between two frames.
#pragma once

#include <cstdint>

#include "cache/blend_result.h"
#include "cache/frame_data.h"

namespace nimbra {

/// How the particles of two frames become one set. Any other value makes no particles.
enum ParticleBlend : int {
    /// Particles of the same ID mix; one that only one frame has moves along its velocity, unless
    /// it is too young to live at the moment.
    kBlendById = 0,
    /// Particles of the earlier frame go and those of the later one come, unchanged, each at a
    /// moment that a hash of its ID decides.
    kBlendCrossFade = 1,
};

/// Adds a group to `dst` for each group of `a` that has one of the same name in `b`; of several
/// groups of a name the first one goes with the first, the second with the second, ... `weight` is
/// b's share, 0 to 1. The grid of `dst` must be placed already: positions are in cells, and the
/// result's are those of its own grid. Integer channels are a's where a has the particle. A channel
/// that only one of the groups has is left out, as is one without memory.
///
/// kFrameNoParticleId: groups that have particles lack their IDs, kFrameNoParticleAge: (by ID only)
/// their ages; these are empty in `dst`, and `message` holds their names. With groups of both sorts
/// the former is told. On one thread, which isn't that of a job.
BlendResult blendParticles(NimbraFrameData& dst, NimbraFrameData& a, NimbraFrameData& b,
                           float weight, int particleMethod);

/// The weight from which on a cross-fade shows a later frame's particle of that ID, and an earlier
/// frame's no more: [0, 1), evenly spread.
double crossFadeMoment(std::int64_t id);

}  // namespace nimbra
