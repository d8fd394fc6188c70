// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the host sees of a point inside a volume.
#pragma once

#include "tessra/shading.h"

namespace nimbra {

/// The host's shade data for one point of a ray, and the way from it to the host's light loop.
class VolumeShadeData : public TessUtils::ShadeData, public TessUtils::LightListInterface {
public:
    VolumeShadeData(TessUtils::LightListInterface* hostLights, const TessUtils::TracePoint& point,
                    const TessUtils::Vector& towardsOrigin)
        : hostLights_(hostLights) {
        position = point;
        normal = towardsOrigin;
    }

    /// Lights the point by the host's light loop; nothing without one.
    void illuminate(TessUtils::ShadingContext& context, TessUtils::ShadeData& data,
                    TessUtils::BRDFSampler& brdf) override;

private:
    TessUtils::LightListInterface* hostLights_;
};

}  // namespace nimbra
