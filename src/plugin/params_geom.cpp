// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the volumetric geometry.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildGeomParameters(TessraParameterListDesc& desc) {
    desc.addParamPlugin(
        "nimbra_sim", ids::kNimbraSim, kSingle,
        "A plugin that supports NimbraSimInterface and can be used to load a Nimbra frame");
    desc.addParamInt("gpu_di_mode", 2, kSingle, "Mode for DI computations on the GPU");
    desc.addParamInt("gpu_gi_mode", 2, kSingle, "Mode for GI computations on the GPU");
    desc.addParamInt("gpu_samples_count", 1, kSingle,
                     "Samples count for cache computation on the GPU");
}

}  // namespace nimbra
