// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the volumetric collector.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildVolParameters(TessraParameterListDesc& desc) {
    desc.addParamInt("force_prob_samples", -1, kSingle,
                     "Probabilistic samples override, -1 won't override");
    desc.addParamInt("force_prob_samples_gi", -1, kSingle,
                     "Probabilistic samples for GI override, -1 won't override");
}

}  // namespace nimbra
