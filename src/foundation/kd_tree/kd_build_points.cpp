// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Division of nodes over points: at the mean of the longest side, in place.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "foundation/kd_tree/kd_builder.h"

namespace NMBUtils {

namespace {

constexpr int kLeastDivided = 32;

/// Sets the node's bounds to those of its points and sums up their coordinates.
void measure(const PointData* points, KDNode& node, double sums[3]) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (node.count == 0)
        return;
    float low[3] = {kInfinity, kInfinity, kInfinity};
    float high[3] = {-kInfinity, -kInfinity, -kInfinity};
    double total[3] = {0, 0, 0};
    for (const PointData* point = points; point != points + node.count; ++point) {
        for (int k = 0; k < 3; ++k) {
            const float value = point->at[k];
            low[k] = value < low[k] ? value : low[k];
            high[k] = value > high[k] ? value : high[k];
            total[k] += value;
        }
    }
    for (int k = 0; k < 3; ++k) {
        node.min[k] = low[k];
        node.max[k] = high[k];
        sums[k] = total[k];
    }
}

/// True where the points lie too close together for single precision to tell them apart.
bool isDegenerate(const KDNode& node) {
    constexpr double kClosest = 1e-10;
    double scale = 1;
    double diagonalSq = 0;
    for (int k = 0; k < 3; ++k) {
        const double low = node.min[k];
        const double side = node.max[k] - low;
        scale += low * low;
        diagonalSq += side * side;
    }
    return scale * kClosest > diagonalSq;
}

int longestSide(const KDNode& node) {
    int longest = 0;
    for (int k = 1; k < 3; ++k) {
        if (node.max[k] - node.min[k] > node.max[longest] - node.min[longest])
            longest = k;
    }
    return longest;
}

/// The points below the mean come to the front; how many they are.
int partition(PointData* points, int* list, int count, int axis, double mean) {
    // value < mean, in single precision
    float bound = static_cast<float>(mean);
    if (bound < mean)
        bound = std::nextafter(bound, std::numeric_limits<float>::infinity());
    int front = 0;
    int back = count;
    for (;;) {
        while (front < back && points[front].at[axis] < bound)
            ++front;
        while (front < back && !(points[back - 1].at[axis] < bound))
            --back;
        if (front == back)
            return front;
        --back;
        std::swap(points[front], points[back]);
        std::swap(list[front], list[back]);
        ++front;
    }
}

/// The two sides of a node take its list and its bounds, cut at the plane.
void shareOut(KDNode& node, KDNode* children, int axis, float split, int firstCount) {
    for (int which = 0; which < 2; ++which) {
        KDNode& child = children[which];
        child.count = which == 0 ? firstCount : node.count - firstCount;
        child.link = which == 0 ? node.list() : node.list() + firstCount;
        std::copy_n(node.min, 3, child.min);
        std::copy_n(node.max, 3, child.max);
    }
    children[0].max[axis] = split;
    children[1].min[axis] = split;
    node.axis = static_cast<std::int8_t>(axis);
    node.split = split;
    node.count = 0;
    node.link = children;
}

}  // namespace

bool KDBuilder::splitPoints(KDNode& node) {
    const int count = node.count;
    // The points lie in the order of the index array.
    PointData* const points = static_cast<PointData*>(tree_.buildData) +
                              (count > 0 ? node.list() - tree_.indexBuffer.data : 0);
    double sums[3] = {0, 0, 0};
    measure(points, node, sums);
    if (isRoot(node))
        tree_.allNumbers_ = !std::isnan(sums[0] + sums[1] + sums[2]);
    if (count <= 2)
        return false;
    const bool degenerate = isDegenerate(node);
    if (degenerate)
        reportDegenerate(node);
    if (degenerate || count < kLeastDivided)
        return false;

    const int axis = longestSide(node);
    const double mean = sums[axis] / count;
    const int firstCount = partition(points, node.list(), count, axis, mean);
    if (firstCount == 0 || firstCount == count) {
        logLine("#error in tree division n:%d \n", count);
        reportDegenerate(node);
        return false;
    }
    KDNode* const children = tree_.nodes_.takePair();
    if (!children) {
        logLine("#Out of memory in NmbKDTree::KDNode::DivideP\n");
        return outOfMemory();
    }
    shareOut(node, children, axis, static_cast<float>(mean), firstCount);
    return true;
}

}  // namespace NMBUtils
