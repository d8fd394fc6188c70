// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Queries along a ray.
#include <algorithm>

#include "foundation/kd_tree/kd_tree.h"

namespace NMBUtils {

namespace {

/// A ray's way through the tree.
class RayWalk {
public:
    RayWalk(const NmbKDTree& tree, KDRay& ray, NmbKDTree::TraverseControl* control, float time)
        : tree_(tree), ray_(ray), control_(control), time_(time) {}

    /// The nearest hit below the node, or -1.
    int visit(const KDNode& node) {
        if (misses(node))
            return -1;
        if (node.isLeaf())
            return visitLeaf(node);
        const double atOrigin = node.sideOf(ray_.origin);
        const double slope = node.sideSlope(ray_.direction);
        const bool startsSecond = atOrigin + slope * double(ray_.tMin) > 0;
        const bool endsSecond = atOrigin + slope * double(ray_.tMax) > 0;
        if (startsSecond == endsSecond)
            return visit(*node.child(startsSecond));

        const double toPlane = node.axis == KDNode::kOblique
                                   ? -atOrigin / slope
                                   : -atOrigin * double(ray_.reciprocal[node.axis]);
        const int near = visit(*node.child(startsSecond));
        if (!(ray_.tMax > toPlane))
            return near;
        const int far = visit(*node.child(endsSecond));
        return far >= 0 ? far : near;
    }

    int hitCode() const { return hitCode_; }

private:
    bool misses(const KDNode& node) const {
        constexpr double kWidening = 1e-6;
        double enter = ray_.tMin;
        double leave = ray_.tMax;
        for (int k = 0; k < 3; ++k) {
            const double low = double(node.min[k]) - kWidening - double(ray_.origin[k]);
            const double high = double(node.max[k]) + kWidening - double(ray_.origin[k]);
            const bool negative = (ray_.signMask >> k & 1) != 0;
            const double reciprocal = ray_.reciprocal[k];
            enter = std::max(enter, (negative ? high : low) * reciprocal);
            leave = std::min(leave, (negative ? low : high) * reciprocal);
        }
        return enter > leave;
    }

    int visitLeaf(const KDNode& leaf) {
        if (control_)
            control_->BeginLeaf();
        int nearest = -1;
        const int* const list = leaf.list();
        for (int i = 0; i < leaf.count; ++i) {
            const int index = list[i];
            if (control_ && control_->Skip(index))
                continue;
            const float before = ray_.tMax;
            const int code = tree_.Intersect(index, ray_, time_);
            if (code == 0)
                continue;
            if (control_ && control_->Accept(index, ray_.tMax, code)) {
                ray_.tMax = before;
                continue;
            }
            nearest = index;
            hitCode_ = code;
        }
        return nearest;
    }

    const NmbKDTree& tree_;
    KDRay& ray_;
    NmbKDTree::TraverseControl* const control_;
    const float time_;
    int hitCode_ = 0;
};

}  // namespace

int NmbKDTree::TraceRay(Ray& ray, TraverseControl* control, float time, int* hitCode) const {
    if (isEmpty())
        return -1;
    RayWalk walk(*this, ray, control, time);
    const int nearest = walk.visit(root_);
    if (hitCode && nearest >= 0)
        *hitCode = walk.hitCode();
    return nearest;
}

bool NmbKDTree::IsInside(const Vector& point, float time) const {
    Ray ray(point, {0, 0, 1});
    int code = 0;
    return TraceRay(ray, nullptr, time, &code) >= 0 && code == 2;
}

}  // namespace NMBUtils
