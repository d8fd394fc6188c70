// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/volume_shader_tessra.h"

namespace nimbra {

using TessUtils::TracePoint;

void VolumeShaderTessra::setupShading(const TessUtils::ShadingContext&,
                                      TessUtils::ShadeData& data) const {
    data.object = hostObject();
    data.giLevel = giReceived;
    if (!lightLinks.empty())
        data.onlyLights = &lightLinks;
}

TracePoint VolumeShaderTessra::worldFromGridPoint(const TessUtils::Vector& pos, float time) const {
    const TracePoint p = TessUtils::toPoint(pos);
    const TracePoint start = worldFromGrid[0].applyPoint(p);
    if (!moving)
        return start;
    return start * (1.0 - time) + worldFromGrid[1].applyPoint(p) * double(time);
}

WorldBox VolumeShaderTessra::worldBounds() const {
    WorldBox box;
    if (!has(kHasGrid))
        return box;
    for (int corner = 0; corner < 16; ++corner) {
        const TracePoint p{corner & 1 ? gridMax.x : gridMin.x, corner & 2 ? gridMax.y : gridMin.y,
                           corner & 4 ? gridMax.z : gridMin.z};
        const TracePoint world = worldFromGrid[corner >> 3].applyPoint(p);
        box.include({world, world});
    }
    return box;
}

}  // namespace nimbra
