// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the meshed container.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildMeshParameters(TessraParameterListDesc& desc) {
    desc.addParamPlugin(
        "nimbra_sim", ids::kNimbraSim, kSingle,
        "A plugin that supports NimbraSimInterface and can be used to load a Nimbra frame");
    desc.addParamPlugin("static_mesh", ids::kStaticGeomSource, kSingle,
                        "The geometry used by the mesher");
}

}  // namespace nimbra
