// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads the hints of a parameter row that an editor would show as limits and choices.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nimbra::host {

/// What a hint like "displayName=(Steps (%)), minValue=(1), enum=(0:Box;1:Gaussian)" says. Keys
/// that are missing or damaged stay empty.
struct RowHints {
    std::string displayName;
    std::optional<double> minValue, maxValue;
    std::vector<std::pair<int, std::string>> choices;
    bool isFile = false;  // "fileAsset" is there

    /// "0 (Box), 1 (Gaussian)"
    std::string choiceText() const;
};

/// `hint` may be null.
RowHints parseRowHints(const char* hint);

}  // namespace nimbra::host
