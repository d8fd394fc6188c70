// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/kd_tree.h"

#include <algorithm>

namespace NMBUtils {

NmbKDTree::TraverseControl::~TraverseControl() = default;
void NmbKDTree::TraverseControl::BeginLeaf() {}
int NmbKDTree::TraverseControl::Skip(int) {
    return 0;
}
int NmbKDTree::TraverseControl::Accept(int, float, int) {
    return 0;
}

void NmbKDTree::Statistics::add(const Statistics& other) {
    leafCount += other.leafCount;
    nodeCount += other.nodeCount;
    deepestLeaf = std::max(deepestLeaf, other.deepestLeaf);
    largestLeaf = std::max(largestLeaf, other.largestLeaf);
    leafPrimitives += other.leafPrimitives;
}

void NmbKDTree::GetBox(int, Box&) const {}

void NmbKDTree::GetPoint(Vector& point, int index) const {
    Box box;
    GetBox(index, box);
    point = (box.min + box.max) * 0.5f;
}

void NmbKDTree::GetPoints(Vector* points, const int* indices, int count) const {
    for (int i = 0; i < count; ++i)
        GetPoint(points[i], indices[i]);
}

float NmbKDTree::GetDistanceSq(int index, const Vector& point) const {
    Vector own;
    GetPoint(own, index);
    const Vector apart = own - point;
    return TessUtils::dot(apart, apart);
}

void NmbKDTree::GetOrientedBox(int, OrientedBox&) const {}

int NmbKDTree::Intersect(int, Ray&, float) const {
    return 0;
}

void NmbKDTree::GetNormal(Vector& normal, int, const Ray&) const {
    normal = {1, 0, 0};
}

int NmbKDTree::Progress(int) {
    return 0;
}

int NmbKDTree::reserved() {
    return 0;
}

NmbKDTree::~NmbKDTree() {
    Clear();
}

NmbKDTree::Box NmbKDTree::bounds() const {
    return {{root_.min[0], root_.min[1], root_.min[2]}, {root_.max[0], root_.max[1], root_.max[2]}};
}

}  // namespace NMBUtils
