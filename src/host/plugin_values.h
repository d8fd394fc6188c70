// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads of rows that can't be bound to a member.
#pragma once

#include "tessra/parameters.h"

namespace nimbra::host {

/// The scene's vector, or `fallback` where the scene leaves the row unset.
inline TessUtils::Vector readVector(const TessUtils::TessraParameterList& list, const char* row,
                                    double time, const TessUtils::Vector& fallback) {
    const TessUtils::TessraPluginParameter* value = list.getParam(row);
    return value ? value->getVector(0, time) : fallback;
}

/// The scene's transform, or the identity.
inline TessUtils::Transform readTransform(const TessUtils::TessraParameterList& list,
                                          const char* row, double time) {
    const TessUtils::TessraPluginParameter* value = list.getParam(row);
    return value ? value->getTransform(0, time) : TessUtils::Transform{};
}

}  // namespace nimbra::host
