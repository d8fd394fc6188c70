// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A tree over the boxes of many volumes, which finds those that a ray meets.
#pragma once

#include <cstdint>

#include "volume/ray_segment.h"

namespace nimbra {

/// From this many shaders on a tree pays for itself.
inline constexpr int kTreeThreshold = 11;

/// A shader whose box is met, and the ray in its grid space, cut to the box.
struct VolumeShaderBBoxIntersectEntry {
    const VolumeShader* shader;
    RayBlock ray;
    std::uint32_t order = 0;  // place of the shader in the list that the tree was built from
};

class ShaderTree {
public:
    virtual ~ShaderTree() = default;
    /// True once the boxes of this frame are in.
    virtual bool isBuilt() const = 0;
    /// Writes the shaders met by the ray (world space, unit direction, `time` within the frame), at
    /// most `capacity`, in an order that doesn't depend on the ray; answers how many.
    virtual int intersect(const TessUtils::TracePoint& origin, const TessUtils::TracePoint& dir,
                          float maxt, float time, VolumeShaderBBoxIntersectEntry* entries,
                          int capacity) const = 0;
};

}  // namespace nimbra
