// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/nearest_name.h"

#include <algorithm>
#include <cctype>

namespace nimbra::host {

namespace {

char lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

}  // namespace

int editDistance(std::string_view a, std::string_view b) {
    // Optimal string alignment: three rows of the usual table, two of them for the swaps.
    std::vector<int> before, last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = last;
        last.swap(row);
    }
    return last[b.size()];
}

std::string nearestName(std::string_view name, const std::vector<std::string>& candidates) {
    // Long texts are no typing errors, and the table is quadratic.
    constexpr std::size_t kLongest = 128;
    if (name.size() > kLongest)
        return "";
    const std::string* best = nullptr;
    int bestDistance = 0;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > kLongest)
            continue;
        const int distance = editDistance(name, candidate);
        const auto longer = static_cast<int>(std::max(name.size(), candidate.size()));
        if (distance > std::max(1, longer / 3) || distance == longer)
            continue;
        if (!best || distance < bestDistance) {
            best = &candidate;
            bestDistance = distance;
        }
    }
    return best ? *best : "";
}

std::string suggestion(std::string_view name, const std::vector<std::string>& candidates) {
    const std::string nearest = nearestName(name, candidates);
    return nearest.empty() ? "" : " (did you mean '" + nearest + "'?)";
}

}  // namespace nimbra::host
