// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Bakes the look of a grid container, as its parameters draw it, into the shading tables of a
// frame.
#pragma once

#include "tessra/parameters.h"

namespace TessUtils {
class PlanckTableInterface;
}

namespace nimbra {

class NimbraFrameData;
class NimbraParams;
class NimbraVolumeRenderLUTholder;
struct SimParams;

struct ShadingTableSource {
    const SimParams& rows;
    const NimbraParams& params;
    const TessUtils::TessraParameterList& list;
    NimbraFrameData* frame = nullptr;  // null: every channel counts as 0 to 1
    double time = 0;
    bool interactive = false;
    const TessUtils::PlanckTableInterface* planck = nullptr;  // null: black bodies are dark
};

/// What "emult" and "etmult" make of the fire's brightness beyond "emult" itself: fully visible
/// fire is scaled by "etmult", and without black-body light by a hundredth of it.
float fireBrightnessRatio(const NimbraParams& params, bool interactive);

/// Sets the ranges of the three inputs and builds the tables that the parameters ask for.
/// A plain table among the rows ("ecolor", "dcolor", "transp") takes the place of the curve's.
void buildShadingTables(NimbraVolumeRenderLUTholder& tables, const ShadingTableSource& source);

}  // namespace nimbra
