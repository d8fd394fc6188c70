// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Queries around a point: its leaf, the primitives in a sphere, the nearest ones.
#include <algorithm>

#include "foundation/kd_tree/kd_tree.h"

namespace NMBUtils {

namespace {

using Vector = TessUtils::Vector;

/// A sphere's way through the tree. `Control` is a class of its own where calls can be resolved
/// beforehand.
template <class Control>
class SphereWalk {
public:
    SphereWalk(const NmbKDTree& tree, const Vector& center, float radius, Control& control)
        : tree_(tree),
          control_(control),
          center_(center),
          radius_(radius),
          radiusSq_(radius * radius) {
        for (int k = 0; k < 3; ++k) {
            low_[k] = double(center[k]) - double(radius);
            high_[k] = double(center[k]) + double(radius);
        }
    }

    /// True: the control ended the traversal.
    bool visit(const KDNode& node) {
        if (misses(node))
            return false;
        if (node.isLeaf())
            return visitLeaf(node);
        const double side = node.sideOf(center_);
        const bool firstIsNear = side <= 0;
        if (visit(*node.child(firstIsNear ? 0 : 1)))
            return true;
        // An oblique plane's normal is of unit length but for its rounding.
        constexpr double kRoundingOfNormals = 1e-6;
        const double reach =
            node.axis == KDNode::kOblique ? radius_ * (1 + kRoundingOfNormals) : radius_;
        if (firstIsNear)
            return side + reach >= 0 && visit(*node.child(1));
        return side - reach < 0 && visit(*node.child(0));
    }

private:
    bool misses(const KDNode& node) const {
        for (int k = 0; k < 3; ++k) {
            if (high_[k] < node.min[k] || low_[k] > node.max[k])
                return true;
        }
        return false;
    }

    bool visitLeaf(const KDNode& leaf) {
        control_.BeginLeaf();
        const int* const list = leaf.list();
        for (int i = 0; i < leaf.count; ++i) {
            if (control_.Skip(list[i]))
                continue;
            Vector point;
            tree_.GetPoint(point, list[i]);
            const Vector apart = point - center_;
            const float distanceSq = TessUtils::dot(apart, apart);
            if (distanceSq < radiusSq_ && control_.Accept(list[i], distanceSq, 0))
                return true;
        }
        return false;
    }

    const NmbKDTree& tree_;
    Control& control_;
    const Vector center_;
    const double radius_;
    const float radiusSq_;
    double low_[3];  // the sphere's box
    double high_[3];
};

/// The way of a search for the nearest.
class NearestWalk {
public:
    using Neighbour = NmbKDTree::Neighbour;

    NearestWalk(const NmbKDTree& tree, const Vector& point, Neighbour* results, int most,
                float maxDistance, NmbKDTree::TraverseControl* control)
        : tree_(tree),
          control_(control),
          point_(point),
          results_(results),
          most_(most),
          limit_(maxDistance * maxDistance) {}

    int found() const { return found_; }

    void visit(const KDNode& node) {
        if (node.isLeaf()) {
            visitLeaf(node);
            return;
        }
        const KDNode* near = node.child(0);
        const KDNode* far = node.child(1);
        float nearDistance = near->distanceSq(point_);
        float farDistance = far->distanceSq(point_);
        if (farDistance < nearDistance) {
            std::swap(near, far);
            std::swap(nearDistance, farDistance);
        }
        if (nearDistance > limit_)
            return;
        visit(*near);
        if (!(farDistance > limit_))
            visit(*far);
    }

private:
    void visitLeaf(const KDNode& leaf) {
        if (control_)
            control_->BeginLeaf();
        const int* const list = leaf.list();
        for (int i = 0; i < leaf.count; ++i) {
            if (control_ && control_->Skip(list[i]))
                continue;
            const float distanceSq = tree_.GetDistanceSq(list[i], point_);
            if (distanceSq <= limit_ && !isHeld(list[i]))
                take({list[i], distanceSq});
        }
    }

    /// Boxes can lie in several leaves; points can't.
    bool isHeld(int index) const {
        if (tree_.flags & NmbKDTree::kPoints)
            return false;
        return std::any_of(results_, results_ + found_,
                           [&](const Neighbour& held) { return held.index == index; });
    }

    /// Appends while there is room, later replaces the worst.
    void take(const Neighbour& neighbour) {
        if (found_ < most_) {
            results_[found_] = neighbour;
            if (found_ == 0 || neighbour.distanceSq > results_[worst_].distanceSq)
                worst_ = found_;
            if (++found_ < most_)
                return;
        } else {
            results_[worst_] = neighbour;
            for (int i = 0; i < found_; ++i) {
                if (results_[i].distanceSq > results_[worst_].distanceSq)
                    worst_ = i;
            }
        }
        limit_ = results_[worst_].distanceSq;
    }

    const NmbKDTree& tree_;
    NmbKDTree::TraverseControl* const control_;
    const Vector point_;
    Neighbour* const results_;
    const int most_;
    int found_ = 0;
    int worst_ = 0;
    float limit_;  // squared distance
};

}  // namespace

/// Gathers all that a sphere holds.
class NmbKDTree::CB final : public TraverseControl {
public:
    explicit CB(NmbArray<int>& result) : result_(result) {}
    void BeginLeaf() override {}
    int Skip(int) override { return 0; }
    int Accept(int index, float, int) override {
        result_.Append(index);
        return 0;
    }

private:
    NmbArray<int>& result_;
};

const NmbKDTree::KDNode* NmbKDTree::FindPointLeaf(const Vector& point) const {
    const KDNode* node = &root_;
    while (!node->isLeaf())
        node = node->child(node->sideOf(point) <= 0 ? 0 : 1);
    return node;
}

void NmbKDTree::CollectSphere(const Vector& center, float radius, NmbArray<int>& result) const {
    result.SetSize(0);
    if (isEmpty() || !(radius > 0))
        return;
    CB control(result);
    SphereWalk<CB>(*this, center, radius, control).visit(root_);
    if (!(flags & kPoints)) {
        std::sort(result.begin(), result.end());
        result.SetSize(
            static_cast<int>(std::unique(result.begin(), result.end()) - result.begin()));
    }
}

int NmbKDTree::TraverseSphere(const Vector& center, float radius, TraverseControl& control) const {
    if (isEmpty() || !(radius > 0))
        return 0;
    return SphereWalk<TraverseControl>(*this, center, radius, control).visit(root_) ? 1 : 0;
}

int NmbKDTree::FindNearest(const Vector& point, Neighbour* results, int k, float maxDistance,
                           TraverseControl* control) const {
    if (isEmpty() || k <= 0 || !(maxDistance >= 0))
        return 0;
    NearestWalk walk(*this, point, results, k, maxDistance, control);
    walk.visit(root_);
    return walk.found();
}

}  // namespace NMBUtils
