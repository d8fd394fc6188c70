// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the texture that turns the opacity of Maya fluids into ours.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildTexAlphaParameters(TessraParameterListDesc& desc) {
    desc.addParamTextureFloat("ttex", nullptr, kSingle, "the input float texture");
    desc.addParamAColor("transparency", AColor{{0.5f, 0.5f, 0.5f}, 1.0f});
    desc.addOutputParamTexture("out_color", "the output color");
}

}  // namespace nimbra
