// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the particle texture.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildParticleTexParameters(TessraParameterListDesc& desc) {
    buildCommonTextureParameters(desc);
    desc.addParamPlugin("system", ids::kPerParticleData, kList);
    desc.addParam("system_tm", paramtype_list, kList);
    const AColor white{{1.0f, 1.0f, 1.0f}, 1.0f};
    desc.addParamTexture("map", &white);
    desc.addParamFloat("radius", 1.0f);
    desc.addParam("radius_anim", paramtype_list, kList);
    desc.addParamBool("radius_time", false);
    desc.addParamBool("mulbysz", false);
    desc.addParamFloat("amplitude", 1.0f);
    desc.addParam("amplitude_anim", paramtype_list, kList);
    desc.addParamBool("amplitude_time", false);
    desc.addParamBool("shift_mode", false);
    desc.addParamFloat("shift", 1.0f);
    desc.addParam("shift_anim", paramtype_list, kList);
    desc.addParamBool("shift_time", false);
    desc.addParamInt("blending", 1);
    desc.addParamBool("blend_alpha", false);
    desc.addParamBool("local_space_particles", false);
    desc.addParamBool("colfrompartchan", false, kSingle,
                      "Use a particle channel for coloring the texture");
    desc.addParamString(
        "colpartchan", "", kSingle,
        "The name of the particle channel that will be used for coloring the texture");
    desc.addParamFloat("partcolmin", 1.0f);
    desc.addParamFloat("partcolmax", 1.0f);
    desc.addParamBool("partcolremap", false, kSingle,
                      "Use a color gradient to remap the particle channel data to texture color");
    desc.addParamInt("remapcolcomp", 0, kSingle,
                     "If the particle channel has more than one component, this allows to choose "
                     "which one would be remapped");
    desc.addParam("partcolor_p", paramtype_float, kList,
                  "Positions of the particle channel color remap");
    desc.addParam("partcolor_c", paramtype_color, kList,
                  "Colors of the particle channel color remap");
    desc.addParam("partcolor_i", paramtype_int, kList, "Currently not used!");
}

}  // namespace nimbra
