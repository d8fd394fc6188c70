// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/volume_shade_data.h"

namespace nimbra {

void VolumeShadeData::illuminate(TessUtils::ShadingContext& context, TessUtils::ShadeData& data,
                                 TessUtils::BRDFSampler& brdf) {
    if (hostLights_)
        hostLights_->illuminate(context, data, brdf);
}

}  // namespace nimbra
