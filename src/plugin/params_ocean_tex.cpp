// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of the ocean waves.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildOceanTexParameters(TessraParameterListDesc& desc) {
    desc.addParamBool("vector", true);
    desc.addParamBool("usewind", true);
    desc.addParamFloat("wind", 3.0f);
    desc.addParamInt("lod", 10);
    desc.addParamFloat("sharpness", 0.9f);
    desc.addParamFloat("velmult", 1.0f);
    desc.addParamFloat("velcoh", 0.2f);
    desc.addParamFloat("rgbmult", 1.0f);
    desc.addParamFloat("rgboffset", 0.0f);
    desc.addParamFloat("meter_scale", 1.0f);
    desc.addParamInt("up_vector", 1);
    desc.addParamInt("seed", 345344);
    desc.addParamFloat("bell", 0.2f);
    desc.addParamInt("animmode", 0);
    desc.addParamFloat("loopLength", 0.0f);
    desc.addParamFloat("directTime", 1.0f);
    const AColor white{{1.0f, 1.0f, 1.0f}, 1.0f};
    desc.addParamTexture("scaletex", &white, kSingle, "Displacement Scale");
}

}  // namespace nimbra
