// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the blending of frames, or of their particles, answers.
#pragma once

#include <string>

#include "cache/nimbra_frame.h"

namespace nimbra {

struct BlendResult {
    /// A FrameStatus; kFrameLoaded when all that was asked for is blended.
    int status = kFrameLoaded;
    /// For kFrameNoParticleId and kFrameNoParticleAge: the groups' names, separated by ", ".
    std::string message;
};

}  // namespace nimbra
