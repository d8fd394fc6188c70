// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the host sees of a point inside a volume.
#pragma once

#include "tessra/shading.h"

namespace nimbra {

/// The host's shade data for the points of one ray, lit one after the other, and the way from them
/// to the host's light loop. On the stack of one ray.
class VolumeShadeData : public TessUtils::ShadeData, public TessUtils::LightListInterface {
public:
    explicit VolumeShadeData(TessUtils::LightListInterface* hostLights) : hostLights_(hostLights) {}

    /// Makes it the data of a point; everything else starts from its default.
    void beginPoint(const TessUtils::TracePoint& point, const TessUtils::Vector& towardsOrigin);
    /// Lights the point by the host's light loop; nothing without one.
    void illuminate(TessUtils::ShadingContext& context, TessUtils::ShadeData& data,
                    TessUtils::BRDFSampler& brdf) override;

private:
    TessUtils::LightListInterface* hostLights_;
};

}  // namespace nimbra
