// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Black-body colours by temperature: the host's service to plug-ins that show hot matter.
#pragma once

#include <vector>

#include "tessra/renderer.h"

namespace nimbra::host {

/// Entry k is the linear sRGB colour of a black body at k kelvin, scaled so that its green is the
/// luminance divided by 683 lm/W and by `luminanceOfOne` in cd/m2. Colours outside of the gamut are
/// clipped at 0.
class PlanckTable final : public TessUtils::PlanckTableInterface {
public:
    explicit PlanckTable(float luminanceOfOne);
    const TessUtils::Color& entry(int kelvin) const override;

private:
    std::vector<TessUtils::Color> entries_;
};

/// Luminance in cd/m2 of a black body.
double blackBodyLuminance(double kelvin);

}  // namespace nimbra::host
