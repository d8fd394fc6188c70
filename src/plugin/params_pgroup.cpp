// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of a particle group.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildPGroupParameters(TessraParameterListDesc& desc) {
    desc.addParamPlugin("nimbra_sim", ids::kNimbraSim, kSingle,
                        "The Nimbra simulator that exports the particle group");
    desc.addParamString("pgroup", "", kSingle,
                        "the name of the particle group that will be used as a source");
    desc.addParamInt("lifespan_mode", 0, kSingle, "lifespan mode: 0-default, 1-constant, 2-random");
    desc.addParamInt("lifespan_seed", 0, kSingle, "lifespan randomization seed");
    desc.addParamFloat("lifespan", 0.0f, kSingle, "lifespan base");
    desc.addParamFloat("lifespan_random", 0.0f, kSingle, "lifespan randomization");
}

}  // namespace nimbra
