// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Division of nodes over axis-aligned boxes, and the children of all nodes over boxes: each gets a
// list of its own, since a box may lie on both sides.
#include <algorithm>
#include <cstring>
#include <limits>

#include "foundation/kd_tree/box_split.h"
#include "foundation/kd_tree/kd_builder.h"

namespace NMBUtils {

namespace {

constexpr int kLeastDivided = 16;

/// The bounds of the boxes within those that the node has already; the root has none yet.
void measure(const BoxData* boxes, bool isRoot, KDNode& node) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (node.count == 0)
        return;
    float low[3] = {kInfinity, kInfinity, kInfinity};
    float high[3] = {-kInfinity, -kInfinity, -kInfinity};
    for (int i = 0; i < node.count; ++i) {
        const BoxData& box = boxes[node.list()[i]];
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], box.min[k]);
            high[k] = std::max(high[k], box.max[k]);
        }
    }
    for (int k = 0; k < 3; ++k) {
        node.min[k] = isRoot ? low[k] : std::max(low[k], node.min[k]);
        node.max[k] = isRoot ? high[k] : std::min(high[k], node.max[k]);
    }
}

void meanOfCenters(const BoxData* boxes, const KDNode& node, double mean[3]) {
    double sums[3] = {0, 0, 0};
    for (int i = 0; i < node.count; ++i) {
        const BoxData& box = boxes[node.list()[i]];
        for (int k = 0; k < 3; ++k)
            sums[k] += double(box.min[k]) + double(box.max[k]);
    }
    for (int k = 0; k < 3; ++k)
        mean[k] = sums[k] * 0.5 / node.count;
}

int* copyList(const int* list, int count) {
    const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(int);
    void* const copy = allocArrayStore(bytes);
    if (copy && bytes > 0)
        std::memcpy(copy, list, bytes);
    return static_cast<int*>(copy);
}

void logNoPair(bool oriented) {
    if (oriented)
        logLine("#Out of memory in NmbKDTree::KDNode::DivideMB 2\n");
    else
        logLine("#Out of memory in NmbKDTree::KDNode::Divide 2\n");
}

void logNoList(bool oriented) {
    if (oriented)
        logLine("#Out of memory in NmbKDTree::KDNode::DivideMB 3\n");
    else
        logLine("#Out of memory in NmbKDTree::KDNode::Divide 3\n");
}

/// Gives a new leaf its primitives and the bounds that its parent has.
void becomeChild(const KDNode& parent, KDNode& child, int* list, int count) {
    child.link = list;
    child.count = count;
    child.ownsList = 1;
    child.nodeKind = parent.nodeKind;
    std::copy_n(parent.min, 3, child.min);
    std::copy_n(parent.max, 3, child.max);
}

}  // namespace

bool KDBuilder::splitBoxes(KDNode& node, double& room) {
    const auto* const boxes = static_cast<const BoxData*>(tree_.buildData);
    measure(boxes, isRoot(node), node);
    if (node.count < kLeastDivided)
        return false;
    double mean[3];
    meanOfCenters(boxes, node, mean);
    BoxSplit splits[3];
    const ListBlock block(splits, 3, node.count);
    if (!block.valid()) {
        logLine("#Out of memory in NmbKDTree::KDNode::Divide 1\n");
        return outOfMemory();
    }
    for (int k = 0; k < 3; ++k) {
        splits[k].axis = k;
        splits[k].split = mean[k];
        splits[k].extent = double(node.max[k]) - double(node.min[k]);
    }
    for (int i = 0; i < node.count; ++i) {
        const int index = node.list()[i];
        for (int k = 0; k < 3; ++k)
            splits[k].add(index, boxes[index].min[k] < mean[k], boxes[index].max[k] >= mean[k]);
    }
    const BoxSplit* const chosen = chooseSplit(splits, 3, node.count);
    return chosen && makeBoxChildren(node, *chosen, room);
}

/// Makes the node an inner one; false leaves it as it is.
bool KDBuilder::makeBoxChildren(KDNode& node, const BoxSplit& split, double& room) {
    const double childRoom = room * node.count / static_cast<double>(split.total());
    if (childRoom < 1)
        return false;
    const bool oriented = node.nodeKind != 0;
    void* const pair = oriented ? static_cast<void*>(tree_.mbNodes_.takePair())
                                : static_cast<void*>(tree_.nodes_.takePair());
    if (!pair) {
        logNoPair(oriented);
        return outOfMemory();
    }
    int* const first = copyList(split.lists[0], split.counts[0]);
    int* const second = first ? copyList(split.lists[1], split.counts[1]) : nullptr;
    if (!second) {
        freeMem(first);
        logNoList(oriented);
        return outOfMemory();
    }
    releaseList(node);
    node.axis = static_cast<std::int8_t>(split.axis);
    node.count = 0;
    node.link = pair;
    KDNode& firstChild = *node.child(0);
    KDNode& secondChild = *node.child(1);
    becomeChild(node, firstChild, first, split.counts[0]);
    becomeChild(node, secondChild, second, split.counts[1]);
    if (split.axis != KDNode::kOblique) {
        node.split = static_cast<float>(split.split);
        firstChild.max[split.axis] = node.split;
        secondChild.min[split.axis] = node.split;
    }
    room = childRoom;
    return true;
}

}  // namespace NMBUtils
