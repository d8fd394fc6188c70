// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Points within a cone around a ray.
#include "foundation/kd_tree/cone_box.h"
#include "foundation/kd_tree/kd_tree.h"

namespace NMBUtils {

namespace {

/// A cone's way through the tree.
class ConeWalk {
public:
    ConeWalk(const NmbKDTree& tree, KDRay& ray, NmbKDTree::TraverseControl* control)
        : tree_(tree), ray_(ray), control_(control), test_(ray) {}

    /// The nearest point below the node, or -1.
    int visit(const KDNode& node) {
        if (!test_.touches(node.min, node.max, ray_.tMin, ray_.tMax))
            return -1;
        if (node.isLeaf())
            return visitLeaf(node);
        const int near = node.sideOf(ray_.origin) <= 0 ? 0 : 1;
        const int first = visit(*node.child(near));
        const int second = visit(*node.child(1 - near));
        return second >= 0 ? second : first;
    }

private:
    int visitLeaf(const KDNode& leaf) {
        if (control_)
            control_->BeginLeaf();
        int nearest = -1;
        const int* const list = leaf.list();
        for (int i = 0; i < leaf.count; ++i) {
            const int index = list[i];
            if (control_ && control_->Skip(index))
                continue;
            TessUtils::Vector point;
            tree_.GetPoint(point, index);
            const TessUtils::Vector offset = point - ray_.origin;
            const float t = TessUtils::dot(offset, ray_.direction) * ray_.rcpLengthSq;
            const TessUtils::Vector across = offset - ray_.direction * t;
            const float radius = t * ray_.radiusSlope + ray_.startRadius;
            if (TessUtils::dot(across, across) > radius * radius)
                continue;
            if (control_ && control_->Accept(index, t, 0))
                continue;
            if (t > ray_.tMin && t <= ray_.tMax) {
                nearest = index;
                ray_.tMax = t;
            }
        }
        return nearest;
    }

    const NmbKDTree& tree_;
    KDRay& ray_;
    NmbKDTree::TraverseControl* const control_;
    const ConeBoxTest test_;
};

}  // namespace

int NmbKDTree::TraceCone(Ray& ray, TraverseControl* control) const {
    if (isEmpty())
        return -1;
    return ConeWalk(*this, ray, control).visit(root_);
}

}  // namespace NMBUtils
