// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The rows that our textures share with the other textures of a scene.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

void buildCommonTextureParameters(TessraParameterListDesc& desc) {
    const AColor white{{1.0f, 1.0f, 1.0f}, 1.0f};
    const AColor black{{0.0f, 0.0f, 0.0f}, 0.0f};
    const AColor grey{{0.5f, 0.5f, 0.5f}, 1.0f};
    const float one = 1.0f, zero = 0.0f;
    desc.addParamInt(
        "compatibility_with", 0, kSingle,
        "This is used to differentiate between textures exported from different applications. The "
        "value means : 0 - 3ds Max (this is also the default), 1 - Maya, ...");
    desc.addParamInt("alpha_from_intensity", 0, kSingle,
                     "If 2 - the alpha is forced to 1.0f; 1 - the resulting alpha is the color "
                     "intensity (if compatibility_with is 0) or the color luminance (if "
                     "compatibility_with is 1); 0 - the alpha is taken from the bitmap alpha");
    desc.addParamBool("invert", false, kSingle,
                      "If true, the resulting texture color will be inverted");
    desc.addParamBool("invert_alpha", true, kSingle,
                      "If true and invert is on, the resulting texture alpha will be inverted too. "
                      "If false, just the color will be inverted");
    desc.addParamTexture("color_mult", &white, kSingle, "A multiplier for the texture color");
    desc.addParamTexture("color_offset", &black, kSingle,
                         "An additional offset for the texture color");
    desc.addParamTextureFloat("alpha_mult", &one, kSingle, "A multiplier for the texture alpha");
    desc.addParamTextureFloat("alpha_offset", &zero, kSingle,
                              "An additional offset for the texture alpha");
    desc.addParamTexture("nouvw_color", &grey, kSingle,
                         "The color when there are no valid uvw coordinates");
    desc.addOutputParamTexture("color", "The resulting color");
    desc.addOutputParamTexture("out_transparency", "The resulting transparency");
    desc.addOutputParamTextureFloat("out_alpha", "The resulting alpha");
    desc.addOutputParamTextureFloat("out_intensity", "The resulting intensity");
    desc.addParamPlugin("uvwgen", ids::kUvwGen, kSingle, "The uvw generator for the texture");
    desc.addParamBool("use_3d_mapping", false);
    desc.addParamInt("placement_type", 0, kSingle,
                     "The way the valid portion of the texture is applied: 0 - the whole texture "
                     "is valid, 1 - crop, 2 -place");
    desc.addParamFloat("u", 0.0f);
    desc.addParamFloat("v", 0.0f);
    desc.addParamFloat("w", 1.0f);
    desc.addParamFloat("h", 1.0f);
    desc.addParamFloat("jitter", 0.0f, kSingle, "Amount of random placement variation");
    desc.addParamBool("tile_u", false, kSingle, "If true there is horizontal tiling");
    desc.addParamBool("tile_v", false, kSingle, "If true there is vertical tiling");
    desc.addParamBool("uv_noise_on", false);
    desc.addParamBool("uv_noise_animate", false);
    desc.addParamFloat("uv_noise_amount", 1.0f);
    desc.addParamFloat("uv_noise_levels", 1.0f);
    desc.addParamFloat("uv_noise_size", 1.0f);
    desc.addParamFloat("un_noise_phase", 0.0f);
}

}  // namespace nimbra
