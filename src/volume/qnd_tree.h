// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A bounding volume tree over the world boxes of the shaders of a frame.
#pragma once

#include <cstdint>
#include <vector>

#include "volume/shader_tree.h"
#include "volume/world_box.h"

namespace nimbra {

class VolumeShaderTessra;

/// Built on the scene thread, then read by all render threads.
class QndTree final : public ShaderTree {
public:
    /// Replaces the tree. Shaders without a grid are left out; the others must keep their boxes and
    /// transforms while the tree is used. Their order is that of the answers.
    void build(const std::vector<const VolumeShaderTessra*>& shaders);
    void clear();

    bool isBuilt() const override { return built_; }
    int intersect(const TessUtils::TracePoint& origin, const TessUtils::TracePoint& dir, float maxt,
                  float time, VolumeShaderBBoxIntersectEntry* entries, int capacity) const override;

    unsigned primitiveCount() const { return static_cast<unsigned>(shaders_.size()); }
    unsigned depth() const { return depth_; }
    double buildMilliseconds() const { return buildMilliseconds_; }

private:
    /// A leaf holds the primitives [first, first + count), an inner node (count 0) has its children
    /// behind it and at `first`.
    struct Node {
        WorldBox box;
        std::uint32_t first = 0, count = 0;
    };
    std::uint32_t buildNode(std::uint32_t first, std::uint32_t count, unsigned level);

    std::vector<const VolumeShaderTessra*> shaders_;
    std::vector<WorldBox> boxes_;       // of shaders_
    std::vector<std::uint32_t> order_;  // numbers in shaders_, as the leaves hold them
    std::vector<Node> nodes_;
    unsigned depth_ = 0;
    double buildMilliseconds_ = 0;
    bool built_ = false;
};

}  // namespace nimbra
