// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the loader of Krakatoa PRT files.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildPrtLoaderParameters(TessraParameterListDesc& desc) {
    desc.addParamString("filesrc", "", kSingle, "Path to the PRT cache file");
    desc.addParamBool(
        "usetm", true, kSingle,
        "The particles are transformed relative to the position of the prt loader icon");
    desc.addParamFloat("velmult", 1.0f, kSingle, "Velocity multiplier for the particles");
}

}  // namespace nimbra
