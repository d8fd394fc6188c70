// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Queries around a point: its leaf, the primitives in a sphere, the nearest ones.
#include <algorithm>

#include "foundation/kd_tree/kd_tree.h"

namespace NMBUtils {

namespace {

using Vector = TessUtils::Vector;

/// Primitives are asked for in batches before anything is decided on them, so that their memory is
/// fetched side by side: an index of scattered primitives waits for little else.
constexpr int kBatch = 32;

/// A sphere's way through the tree.
class SphereWalk {
public:
    SphereWalk(const NmbKDTree& tree, const Vector& center, float radius,
               NmbKDTree::TraverseControl& control)
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
    NmbKDTree::TraverseControl& control_;
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
        // Fetched while the distances are worked out: the grandchildren, or the indices of a leaf.
        __builtin_prefetch(near->link);
        __builtin_prefetch(far->link);
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
        for (int first = 0; first < leaf.count; first += kBatch)
            visitBatch(leaf.list() + first, std::min(kBatch, leaf.count - first));
    }

    void visitBatch(const int* list, int count) {
        int kept[kBatch];
        if (control_) {
            int keptCount = 0;
            for (int i = 0; i < count; ++i) {
                if (!control_->Skip(list[i]))
                    kept[keptCount++] = list[i];
            }
            list = kept;
            count = keptCount;
        }
        float distancesSq[kBatch];
        for (int i = 0; i < count; ++i)
            distancesSq[i] = tree_.GetDistanceSq(list[i], point_);
        for (int i = 0; i < count; ++i) {
            if (distancesSq[i] <= limit_ && !isHeld(list[i]))
                take({list[i], distancesSq[i]});
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

/// What CB does in a tree over points, whose leaves need not be told to anyone: nodes that lie
/// apart from the sphere are passed over, nodes that lie within it are taken whole.
class NmbKDTree::PointCollector {
public:
    PointCollector(const NmbKDTree& tree, const Vector& center, float radius, NmbArray<int>& result)
        : tree_(tree), center_(center), radiusSq_(radius * radius), result_(result) {}

    void visit(const KDNode& node) {
        if (!node.isLeaf()) {
            __builtin_prefetch(node.link);
            __builtin_prefetch(static_cast<const char*>(node.link) + 64);
        }
        // The bounds are exact and the sums run in the same order, so that the distances that the
        // points of the node have in single precision lie between these two.
        if (node.distanceSq(center_) >= radiusSq_)
            return;
        if (tree_.allNumbers_ && node.farthestDistanceSq(center_) < radiusSq_)
            takeAll(node);
        else if (node.isLeaf())
            takeInside(node);
        else
            visitChildren(node);
    }

private:
    void visitChildren(const KDNode& node) {
        const int near = node.sideOf(center_) <= 0 ? 0 : 1;
        visit(*node.child(near));
        visit(*node.child(1 - near));
    }

    void takeAll(const KDNode& node) {
        if (!node.isLeaf()) {
            takeAll(*node.child(0));
            takeAll(*node.child(1));
        } else if (int* const places = newPlaces(node.count)) {
            std::copy_n(node.list(), node.count, places);
        }
    }

    void takeInside(const KDNode& leaf) {
        int* const places = newPlaces(leaf.count);
        if (!places)
            return;
        int taken = 0;
        for (int first = 0; first < leaf.count; first += kBatch) {
            const int* const list = leaf.list() + first;
            const int count = std::min(kBatch, leaf.count - first);
            Vector batch[kBatch];
            tree_.GetPoints(batch, list, count);
            for (int i = 0; i < count; ++i) {
                const Vector apart = batch[i] - center_;
                places[taken] = list[i];
                taken += TessUtils::dot(apart, apart) < radiusSq_;
            }
        }
        result_.SetSize(result_.size - leaf.count + taken);
    }

    /// Room at the result's end; null without memory.
    int* newPlaces(int count) {
        return result_.SetSize(result_.size + count) ? result_.end() - count : nullptr;
    }

    const NmbKDTree& tree_;
    const Vector center_;
    const float radiusSq_;
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
    if (flags & kPoints) {
        PointCollector(*this, center, radius, result).visit(root_);
        return;
    }
    CB control(result);
    SphereWalk(*this, center, radius, control).visit(root_);
    std::sort(result.begin(), result.end());
    result.SetSize(static_cast<int>(std::unique(result.begin(), result.end()) - result.begin()));
}

int NmbKDTree::TraverseSphere(const Vector& center, float radius, TraverseControl& control) const {
    if (isEmpty() || !(radius > 0))
        return 0;
    return SphereWalk(*this, center, radius, control).visit(root_) ? 1 : 0;
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
