// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the grid texture.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildTexParameters(TessraParameterListDesc& desc) {
    buildCommonTextureParameters(desc);
    desc.addParamPlugin(
        "nimbra_sim", ids::kNimbraSim, kSingle,
        "A plugin that supports NimbraSimInterface and can be used to load a Nimbra frame");
    desc.addParamInt("channel", 0, kSingle,
                     "0-emissive, 1-diffuse, 2-alpha, 3-velocity, 4-uvw, 5-temp, 6-smoke, 7-fuel, "
                     "8-scalar speed");
    desc.addParamInt("tiling", 1, kSingle, "0-single, 1-single clamped, 2-wrap, 3-mirror");
    desc.addParamInt("sampler_type", 1, kSingle, "0-box, 1-linear, 2-spherical");
    desc.addParamBool("skip_fine_displ", false);
    desc.addParamInt("up_vector", 0, kSingle, "0-x, 1-y, 2-z");
    desc.addParamBool("texture2d", false, kSingle,
                      "if true, the texture will act as two dimensional.");
    desc.addParamBool(
        "auto_map", false, kSingle,
        "if true, the texture will no use the uvw generator, but the simulator for 3D mapping.");
}

}  // namespace nimbra
