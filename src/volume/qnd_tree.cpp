// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/qnd_tree.h"

#include <algorithm>
#include <chrono>
#include <numeric>

#include "volume/gizmo_split.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {

using TessUtils::TracePoint;

namespace {

/// Primitives of a leaf. A test of a shader's own box costs little more than that of a node.
constexpr std::uint32_t kLeafSize = 2;
/// Halving the primitives keeps the depth below 1 + log2(2^32).
constexpr int kMostLevels = 34;

}  // namespace

void QndTree::clear() {
    shaders_.clear();
    boxes_.clear();
    order_.clear();
    nodes_.clear();
    depth_ = 0;
    built_ = false;
}

void QndTree::build(const std::vector<const VolumeShaderTessra*>& shaders) {
    const auto start = std::chrono::steady_clock::now();
    clear();
    for (const VolumeShaderTessra* shader : shaders) {
        const WorldBox box = shader->worldBounds();
        if (box.isEmpty())
            continue;
        shaders_.push_back(shader);
        boxes_.push_back(box);
    }
    order_.resize(shaders_.size());
    std::iota(order_.begin(), order_.end(), 0u);
    if (!order_.empty())
        buildNode(0, primitiveCount(), 1);
    built_ = true;
    buildMilliseconds_ =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Splits at the median of the centres along the axis on which they spread most.
std::uint32_t QndTree::buildNode(std::uint32_t first, std::uint32_t count, unsigned level) {
    depth_ = std::max(depth_, level);
    const std::uint32_t self = static_cast<std::uint32_t>(nodes_.size());
    WorldBox box, centres;
    const auto centre = [this](std::uint32_t i, int axis) {
        return 0.5 * boxes_[i].low[axis] + 0.5 * boxes_[i].high[axis];
    };
    for (std::uint32_t i = first; i < first + count; ++i) {
        const TracePoint c{centre(order_[i], 0), centre(order_[i], 1), centre(order_[i], 2)};
        box.include(boxes_[order_[i]]);
        centres.include({c, c});
    }
    nodes_.push_back({box, first, count});
    if (count <= kLeafSize)
        return self;

    int axis = 0;
    for (int a = 1; a < 3; ++a)
        if (centres.high[a] - centres.low[a] > centres.high[axis] - centres.low[axis])
            axis = a;
    const std::uint32_t half = count / 2;
    const auto begin = order_.begin() + first;
    std::nth_element(begin, begin + half, begin + count, [&](std::uint32_t a, std::uint32_t b) {
        const double ca = centre(a, axis), cb = centre(b, axis);
        return ca != cb ? ca < cb : a < b;
    });
    buildNode(first, half, level + 1);
    const std::uint32_t second = buildNode(first + half, count - half, level + 1);
    nodes_[self].first = second;
    nodes_[self].count = 0;
    return self;
}

int QndTree::intersect(const TracePoint& origin, const TracePoint& dir, float maxt, float time,
                       VolumeShaderBBoxIntersectEntry* entries, int capacity) const {
    if (nodes_.empty())
        return 0;
    const WorldRay world{origin, dir, maxt, time};
    const BoxRay ray(origin, toVector(dir), 0, maxt);
    std::uint32_t stack[kMostLevels];
    int open = 0, found = 0;
    stack[open++] = 0;
    while (open > 0) {
        const std::uint32_t self = stack[--open];
        const Node& node = nodes_[self];
        if (!ray.mayMeet(node.box))
            continue;
        if (node.count == 0) {
            stack[open++] = node.first;
            stack[open++] = self + 1;
            continue;
        }
        for (std::uint32_t i = node.first; i < node.first + node.count && found < capacity; ++i) {
            VolumeShaderBBoxIntersectEntry& entry = entries[found];
            entry.shader = shaders_[order_[i]];
            entry.order = order_[i];
            found += enterGrid(entry.ray, *entry.shader, world);
        }
    }
    std::sort(entries, entries + found,
              [](const auto& a, const auto& b) { return a.order < b.order; });
    return found;
}

}  // namespace nimbra
