// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/planck_table.h"

#include <algorithm>

#include "tessra/black_body.h"

namespace nimbra::host {

PlanckTable::PlanckTable(float luminanceOfOne) {
    const float scale = luminanceOfOne > 0 ? 1.0f / luminanceOfOne : 1.0f;
    entries_.reserve(kEntries);
    for (int kelvin = 0; kelvin < kEntries; ++kelvin)
        entries_.push_back(TessUtils::blackBodyColor(kelvin) * scale);
}

const TessUtils::Color& PlanckTable::entry(int kelvin) const {
    return entries_[static_cast<std::size_t>(std::clamp(kelvin, 0, kEntries - 1))];
}

}  // namespace nimbra::host
