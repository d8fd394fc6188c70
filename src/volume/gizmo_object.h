// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A closed body that cuts the rendering of a volume to its inside (or outside).
#pragma once

#include "tessra/math.h"

namespace nimbra {

struct GizmoHit {
    float distance = 0;  // ray parameter
    int side = 0;        // 1: the ray enters the body, 2: it leaves
    int triangle = -1;
};

/// Shared by all render threads.
class GizmoObject {
public:
    virtual ~GizmoObject() = default;
    /// The first hit with mint < distance < maxt of the ray origin + distance * dir, in the body's
    /// own space; `dir` needn't be of unit length.
    virtual bool firstHit(const TessUtils::Vector& origin, const TessUtils::Vector& dir, float mint,
                          float maxt, GizmoHit& hit) const = 0;
};

}  // namespace nimbra
