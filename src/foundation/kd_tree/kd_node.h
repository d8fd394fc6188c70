// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The nodes of the spatial index. Children are stored as an adjacent pair, so that a node holds one
// pointer; the sizes are part of the design.
#pragma once

#include <cstdint>

#include "tessra/math.h"

namespace NMBUtils {

/// The bounds of nothing: any point or box that joins them replaces them.
inline constexpr float kEmptyMin = 1e20f;
inline constexpr float kEmptyMax = -1e20f;

/// A node that lies on one side of a plane across a world axis, and the plane that divides it.
struct KDNode {
    static constexpr std::int8_t kLeaf = -1;
    static constexpr std::int8_t kOblique = 3;

    float split = 0;         // place of the dividing plane along `axis`
    std::int32_t count = 0;  // primitives of a leaf
    void* link = nullptr;    // the pair of children, or a leaf's array of primitive indices
    float min[3] = {kEmptyMin, kEmptyMin, kEmptyMin};  // bounds
    float max[3] = {kEmptyMax, kEmptyMax, kEmptyMax};
    std::int8_t axis = kLeaf;   // 0, 1, 2: a world axis; kOblique: the plane of an MBNode; kLeaf
    std::uint8_t nodeKind = 0;  // of the node and its children: 0 KDNode, 1 MBNode
    std::uint8_t ownsList = 0;  // 1: the index array is this leaf's alone and goes with it

    bool isLeaf() const { return axis < 0; }
    /// The primitives of a leaf, `count` of them.
    const int* list() const { return static_cast<const int*>(link); }
    int* list() { return static_cast<int*>(link); }
    /// 0 or 1, of an inner node.
    inline const KDNode* child(int which) const;
    KDNode* child(int which) {
        return const_cast<KDNode*>(static_cast<const KDNode*>(this)->child(which));
    }
    /// Where a point lies against the dividing plane: the first child holds what is not above 0.
    inline double sideOf(const TessUtils::Vector& point) const;
    /// How fast the value above changes along a direction.
    inline double sideSlope(const TessUtils::Vector& direction) const;
    /// Squared distance from the point to the bounds, 0 inside.
    inline float distanceSq(const TessUtils::Vector& point) const;
    /// Squared distance from the point to the farthest corner of the bounds.
    inline float farthestDistanceSq(const TessUtils::Vector& point) const;
};

/// A node of an index over oriented boxes, which an oblique plane may divide.
struct MBNode : KDNode {
    float planeOrigin[3] = {0, 0, 0};
    float planeNormal[3] = {0, 0, 0};  // points to the second child
};

static_assert(sizeof(KDNode) == 48 && sizeof(MBNode) == 72);

// --- Implementation ------------------------------------------------------------------------------

inline const KDNode* KDNode::child(int which) const {
    if (nodeKind == 0)
        return static_cast<const KDNode*>(link) + which;
    return static_cast<const MBNode*>(link) + which;
}

inline double KDNode::sideOf(const TessUtils::Vector& point) const {
    if (axis != kOblique)
        return double(point[axis]) - double(split);
    const auto& node = static_cast<const MBNode&>(*this);
    double side = 0;
    for (int k = 0; k < 3; ++k)
        side += (double(point[k]) - double(node.planeOrigin[k])) * double(node.planeNormal[k]);
    return side;
}

inline double KDNode::sideSlope(const TessUtils::Vector& direction) const {
    if (axis != kOblique)
        return direction[axis];
    const auto& node = static_cast<const MBNode&>(*this);
    double slope = 0;
    for (int k = 0; k < 3; ++k)
        slope += double(direction[k]) * double(node.planeNormal[k]);
    return slope;
}

/// Four numbers that are worked on at once; the compiler maps them to what the machine has. A
/// search meets both sides of a bound equally often, which branches would mispredict.
using Float4 = float __attribute__((vector_size(16)));

inline Float4 load3(const float values[3]) {
    return Float4{values[0], values[1], values[2], 0};
}

inline Float4 largerOf(Float4 a, Float4 b) {
    return a > b ? a : b;
}

inline float sumOfSquares(Float4 values) {
    const Float4 squares = values * values;
    return squares[0] + squares[1] + squares[2];
}

inline float KDNode::distanceSq(const TessUtils::Vector& point) const {
    const Float4 place{point.x, point.y, point.z, 0};
    return sumOfSquares(largerOf(largerOf(load3(min) - place, place - load3(max)), Float4{}));
}

inline float KDNode::farthestDistanceSq(const TessUtils::Vector& point) const {
    const Float4 place{point.x, point.y, point.z, 0};
    return sumOfSquares(largerOf(place - load3(min), load3(max) - place));
}

}  // namespace NMBUtils
