// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How many samples a render takes of a volume instead of blending its steps.
#pragma once

#include "tessra/renderer.h"

namespace TessUtils {
class TessraPluginParameter;
}

namespace nimbra {

/// The host's counts for primary and for other rays, 0 without such a setting. A given parameter
/// that isn't negative at `time` replaces the host's; parameters may be null.
void readProbabilisticSamples(const TessUtils::TessraSequenceData& sequence, double time,
                              const TessUtils::TessraPluginParameter* force,
                              const TessUtils::TessraPluginParameter* forceGI, int& samples,
                              int& samplesGI);

}  // namespace nimbra
