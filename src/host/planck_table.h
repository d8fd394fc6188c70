// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Black-body colours by temperature: the host's service to plug-ins that show hot matter.
#pragma once

#include <mutex>
#include <vector>

#include "tessra/renderer.h"

namespace nimbra::host {

/// Entry k is the black-body colour of k kelvin, divided by `luminanceOfOne` in cd/m2.
class PlanckTable final : public TessUtils::PlanckTableInterface {
public:
    explicit PlanckTable(float luminanceOfOne) : luminanceOfOne_(luminanceOfOne) {}
    /// Builds the table on the first call: most renders never ask. Safe on any thread.
    const TessUtils::Color& entry(int kelvin) const override;

private:
    float luminanceOfOne_;
    mutable std::once_flag built_;
    mutable std::vector<TessUtils::Color> entries_;
};

}  // namespace nimbra::host
