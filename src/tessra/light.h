// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Lights that plug-ins bring to the host's light loop.
#pragma once

#include "tessra/shading.h"

namespace TessUtils {

class TessraRenderer;

/// One direction of light at a shaded point.
struct LightSample {
    Vector direction;     // to the light, unit length
    float distance = -1;  // negative: without a position
    /// Arriving light without shadows, divided by the sample's probability and count: the light is
    /// the sum over the samples. Unit: what a white diffuse surface shows that faces the light.
    Color color;
};

/// Samples one light for one shaded point. Lives for one call of the light loop, which asks for
/// each of the `sampleCount` samples once.
class TESSRA_API LightSampler {
public:
    virtual ~LightSampler();
    /// Samples wanted for this point; 0: the light doesn't reach it.
    virtual int sampleCount() const = 0;
    /// False where `eval` doesn't look at its numbers: drawing them can be saved then.
    virtual bool usesNumbers() const { return true; }
    /// The next sample; false when it carries no light.
    virtual bool eval(const float u[2], LightSample& out) = 0;
};

/// A light. Samplers are made on render threads, from storage of that thread.
class TESSRA_API LightInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kLight; }
    /// A sampler for the point, or null when no light can reach it. Give it back to
    /// `deleteLightSampler` on the same thread.
    virtual LightSampler* newLightSampler(ShadingContext& context, const ShadeData& data) = 0;
    virtual void deleteLightSampler(LightSampler* sampler, int threadIndex) = 0;
    /// True if shadow rays are to be traced for its samples.
    virtual bool castsShadows() const { return true; }
};

}  // namespace TessUtils
