// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Shading tables from the curves and gradients of golden files.
#pragma once

#include "support/golden.h"
#include "volume/lut_holder.h"

namespace nimbra::test {

// Each builds one table from its entry of a file; the range of the input is set if there is one.
void buildGoldenEmission(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from,
                         int fireOpacityMode);
void buildGoldenDiffuse(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from);
void buildGoldenOpacity(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from, bool invert);

}  // namespace nimbra::test
