// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Division of nodes over oriented boxes: as over boxes, with an oblique plane as a fourth choice.
// It stands across the boxes' common direction, so that long parallel boxes, as motion blur makes
// them, fall to one side each.
#include <algorithm>
#include <cmath>
#include <limits>

#include "foundation/kd_tree/box_split.h"
#include "foundation/kd_tree/kd_builder.h"

namespace NMBUtils {

namespace {

constexpr int kLeastDivided = 16;

struct Direction {
    double at[3] = {0, 0, 0};

    double lengthSq() const { return at[0] * at[0] + at[1] * at[1] + at[2] * at[2]; }
};

/// Half the extent of a box along a world axis.
double reachAlong(const OrientedBoxData& box, int axis) {
    return double(std::fabs(box.half[0][axis])) + double(std::fabs(box.half[1][axis])) +
           double(std::fabs(box.half[2][axis]));
}

double dotProduct(const float a[3], const float b[3]) {
    return double(a[0]) * double(b[0]) + double(a[1]) * double(b[1]) + double(a[2]) * double(b[2]);
}

double reachAlong(const OrientedBoxData& box, const float normal[3]) {
    return std::fabs(dotProduct(box.half[0], normal)) + std::fabs(dotProduct(box.half[1], normal)) +
           std::fabs(dotProduct(box.half[2], normal));
}

/// The bounds of the boxes' corners within those that the node has already; the root has none yet.
void measure(const OrientedBoxData* boxes, bool isRoot, KDNode& node) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (node.count == 0)
        return;
    for (int k = 0; k < 3; ++k) {
        float low = kInfinity;
        float high = -kInfinity;
        for (int i = 0; i < node.count; ++i) {
            const OrientedBoxData& box = boxes[node.list()[i]];
            const double reach = reachAlong(box, k);
            low = std::min(low, static_cast<float>(box.center[k] - reach));
            high = std::max(high, static_cast<float>(box.center[k] + reach));
        }
        node.min[k] = isRoot ? low : std::max(low, node.min[k]);
        node.max[k] = isRoot ? high : std::min(high, node.max[k]);
    }
}

void meanOfCenters(const OrientedBoxData* boxes, const KDNode& node, double mean[3]) {
    double sums[3] = {0, 0, 0};
    for (int i = 0; i < node.count; ++i) {
        for (int k = 0; k < 3; ++k)
            sums[k] += boxes[node.list()[i]].center[k];
    }
    for (int k = 0; k < 3; ++k)
        mean[k] = sums[k] / node.count;
}

const float* longestHalfAxis(const OrientedBoxData& box) {
    const float* longest = box.half[0];
    for (int j = 1; j < 3; ++j) {
        if (dotProduct(box.half[j], box.half[j]) > dotProduct(longest, longest))
            longest = box.half[j];
    }
    return longest;
}

/// Sums of vectors whose sign says nothing: each of the three turns them all towards its own axis.
class UnsignedSums {
public:
    void add(const double vector[3]) {
        for (int j = 0; j < 3; ++j) {
            const double sign = vector[j] > 0 ? 1 : -1;
            for (int k = 0; k < 3; ++k)
                sums_[j].at[k] += sign * vector[k];
        }
    }
    /// The first of equals.
    const Direction& longest() const {
        int best = 0;
        for (int j = 1; j < 3; ++j) {
            if (sums_[j].lengthSq() > sums_[best].lengthSq())
                best = j;
        }
        return sums_[best];
    }

private:
    Direction sums_[3];
};

bool normalize(Direction& direction) {
    const double length = std::sqrt(direction.lengthSq());
    if (!(length > 0) || !std::isfinite(length))
        return false;
    for (double& value : direction.at)
        value /= length;
    return true;
}

/// A direction across `along`, as long as it is: a unit axis cross `along`, the axis that of the
/// smallest component.
Direction across(const Direction& along) {
    int least = 0;
    for (int k = 1; k < 3; ++k) {
        if (std::fabs(along.at[k]) < std::fabs(along.at[least]))
            least = k;
    }
    const int next = (least + 1) % 3;
    const int last = (least + 2) % 3;
    Direction result;
    result.at[next] = -along.at[last];
    result.at[last] = along.at[next];
    const double length = std::sqrt(along.lengthSq());
    if (normalize(result)) {
        for (double& value : result.at)
            value *= length;
    }
    return result;
}

/// Sets the plane through the mean of the centres: its normal is where the centres lie apart,
/// turned across the boxes' long axes. False where neither gives a direction.
bool placePlane(const OrientedBoxData* boxes, const double mean[3], MBNode& node) {
    UnsignedSums axes;
    UnsignedSums offsets;
    for (int i = 0; i < node.count; ++i) {
        const OrientedBoxData& box = boxes[node.list()[i]];
        const float* const longest = longestHalfAxis(box);
        const double axis[3] = {longest[0], longest[1], longest[2]};
        const double offset[3] = {box.center[0] - mean[0], box.center[1] - mean[1],
                                  box.center[2] - mean[2]};
        axes.add(axis);
        offsets.add(offset);
    }
    Direction normal = offsets.longest();
    const Direction turned = across(axes.longest());
    for (int k = 0; k < 3; ++k)
        normal.at[k] += turned.at[k];
    if (!normalize(normal))
        return false;
    for (int k = 0; k < 3; ++k) {
        node.planeOrigin[k] = static_cast<float>(mean[k]);
        node.planeNormal[k] = static_cast<float>(normal.at[k]);
    }
    return true;
}

/// Fills the lists of the oblique plane, whose extent is that of the boxes across it.
void tryPlane(const OrientedBoxData* boxes, const MBNode& node, BoxSplit& split) {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (int i = 0; i < node.count; ++i) {
        const int index = node.list()[i];
        const OrientedBoxData& box = boxes[index];
        double distance = 0;
        for (int k = 0; k < 3; ++k)
            distance +=
                (double(box.center[k]) - double(node.planeOrigin[k])) * double(node.planeNormal[k]);
        const double reach = reachAlong(box, node.planeNormal);
        split.add(index, distance - reach < 0, distance + reach >= 0);
        low = std::min(low, distance - reach);
        high = std::max(high, distance + reach);
    }
    split.axis = KDNode::kOblique;
    split.extent = high - low;
}

void tryAxes(const OrientedBoxData* boxes, const KDNode& node, const double mean[3],
             BoxSplit splits[3]) {
    for (int k = 0; k < 3; ++k) {
        splits[k].axis = k;
        splits[k].split = mean[k];
        splits[k].extent = double(node.max[k]) - double(node.min[k]);
    }
    for (int i = 0; i < node.count; ++i) {
        const int index = node.list()[i];
        for (int k = 0; k < 3; ++k) {
            const double reach = reachAlong(boxes[index], k);
            const double center = boxes[index].center[k];
            splits[k].add(index, center - reach < mean[k], center + reach >= mean[k]);
        }
    }
}

}  // namespace

bool KDBuilder::splitOrientedBoxes(MBNode& node, double& room) {
    const auto* const boxes = static_cast<const OrientedBoxData*>(tree_.buildData);
    measure(boxes, isRoot(node), node);
    if (node.count < kLeastDivided)
        return false;
    double mean[3];
    meanOfCenters(boxes, node, mean);
    BoxSplit splits[4];
    const ListBlock block(splits, 4, node.count);
    if (!block.valid()) {
        logLine("#Out of memory in NmbKDTree::KDNode::DivideMB 1\n");
        return outOfMemory();
    }
    // The oblique plane is judged first; without a normal it has no primitives and isn't eligible.
    if (placePlane(boxes, mean, node))
        tryPlane(boxes, node, splits[0]);
    tryAxes(boxes, node, mean, splits + 1);
    const BoxSplit* const chosen = chooseSplit(splits, 4, node.count);
    return chosen && makeBoxChildren(node, *chosen, room);
}

}  // namespace NMBUtils
