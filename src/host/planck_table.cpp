// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/planck_table.h"

#include <algorithm>

#include "tessra/black_body.h"

namespace nimbra::host {

const TessUtils::Color& PlanckTable::entry(int kelvin) const {
    std::call_once(built_, [this] {
        const float scale = luminanceOfOne_ > 0 ? 1.0f / luminanceOfOne_ : 1.0f;
        entries_.reserve(kEntries);
        for (int k = 0; k < kEntries; ++k)
            entries_.push_back(TessUtils::blackBodyColor(k) * scale);
    });
    return entries_[static_cast<std::size_t>(std::clamp(kelvin, 0, kEntries - 1))];
}

}  // namespace nimbra::host
