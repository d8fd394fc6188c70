// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree_samples.h"

namespace NMBUtils::test {

void SphereTree::GetBox(int index, Box& box) const {
    const Sphere& own = sphere(index);
    for (int k = 0; k < 3; ++k) {
        const float reach = own.radius + std::fabs(own.motion[k]) * 0.5f;
        box.min[k] = own.center[k] - reach;
        box.max[k] = own.center[k] + reach;
    }
}

void SphereTree::GetOrientedBox(int index, OrientedBox& box) const {
    const Sphere& own = sphere(index);
    const Vector half = own.motion * 0.5f;
    const float length = TessUtils::length(half);
    box.center = own.center;
    if (length <= own.radius) {
        const float reach = own.radius + length;
        box.a = {reach, 0, 0};
        box.b = {0, reach, 0};
        box.c = {0, 0, reach};
        return;
    }
    const Vector along = half * (1 / length);
    const Vector axis = std::fabs(along.x) < 0.5f ? Vector{1, 0, 0} : Vector{0, 1, 0};
    const Vector across = TessUtils::normalize(TessUtils::cross(along, axis));
    box.a = along * (length + own.radius);
    box.b = across * own.radius;
    box.c = TessUtils::cross(along, across) * own.radius;
}

int SphereTree::Intersect(int index, Ray& ray, float time) const {
    const Sphere& own = sphere(index);
    const Vector offset = ray.origin - (own.center + own.motion * (time - 0.5f));
    const double a = TessUtils::dot(ray.direction, ray.direction);
    const double b = TessUtils::dot(ray.direction, offset);
    const double c = double(TessUtils::dot(offset, offset)) - double(own.radius) * own.radius;
    const double discriminant = b * b - a * c;
    if (discriminant < 0)
        return 0;
    for (const int code : {1, 2}) {
        const double sign = code == 1 ? -1 : 1;
        const auto t = static_cast<float>((-b + sign * std::sqrt(discriminant)) / a);
        if (t > ray.tMin && t < ray.tMax) {
            ray.tMax = t;
            return code;
        }
    }
    return 0;
}

float uniform(Random& random, float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
}

Vector randomVector(Random& random, float low, float high) {
    const float x = uniform(random, low, high);
    const float y = uniform(random, low, high);
    const float z = uniform(random, low, high);
    return {x, y, z};
}

std::vector<Vector> randomPoints(Random& random, int count, float low, float high) {
    std::vector<Vector> points(static_cast<std::size_t>(count));
    for (Vector& point : points)
        point = randomVector(random, low, high);
    return points;
}

namespace {

/// `count` points, each made from its number.
PointSet makeSet(const std::string& name, int count, const std::function<Vector(int)>& make) {
    PointSet set{name, {}};
    for (int i = 0; i < count; ++i)
        set.points.push_back(make(i));
    return set;
}

}  // namespace

std::vector<PointSet> pointSets() {
    Random random(20260101);
    std::vector<PointSet> sets;
    for (const int count : {0, 1, 2, 3, 15, 16, 31, 32, 33, 1000})
        sets.push_back({"random " + std::to_string(count), randomPoints(random, count)});
    const std::vector<Vector> centers = randomPoints(random, 12, -100, 100);
    sets.push_back(makeSet("clustered", 2000, [&](int i) {
        const float size = std::pow(10.0f, static_cast<float>(i % 5 - 3));
        return centers[static_cast<std::size_t>(i) % centers.size()] +
               randomVector(random, -size, size);
    }));
    sets.push_back(makeSet("identical", 500, [](int) { return Vector{3, -2, 7}; }));
    sets.push_back(makeSet("pairs", 500, [&](int i) {
        return centers[static_cast<std::size_t>(i) % centers.size()];
    }));
    const Vector direction{1, 2, -0.5f};
    sets.push_back(makeSet("collinear", 700,
                           [&](int i) { return direction * (static_cast<float>(i) * 0.01f - 2); }));
    sets.push_back(makeSet("on an axis", 300, [](int i) {
        return Vector{0, 0, static_cast<float>(i)};
    }));
    sets.push_back(makeSet("flat", 800, [&](int) {
        const Vector point = randomVector(random);
        return Vector{point.x, 1, point.z};
    }));
    sets.push_back(makeSet("lattice", 1000, [](int i) {
        return Vector{static_cast<float>(i % 10), static_cast<float>(i / 10 % 10),
                      static_cast<float>(i / 100)};
    }));
    sets.push_back(makeSet("far away", 1000, [&](int) {
        return Vector{1e6f, -2e6f, 3e5f} + randomVector(random, -50, 50);
    }));
    sets.push_back(makeSet("huge", 1000, [&](int) { return randomVector(random, -1e18f, 1e18f); }));
    sets.push_back(makeSet("tiny", 1000, [&](int) { return randomVector(random, -1e-3f, 1e-3f); }));
    sets.push_back(makeSet("all magnitudes", 1000, [&](int i) {
        return randomVector(random) * std::pow(10.0f, static_cast<float>(i % 30 - 15));
    }));
    return sets;
}

std::vector<Box> boxesAround(const std::vector<Vector>& points, float largest, Random& random) {
    std::vector<Box> boxes;
    for (const Vector& point : points) {
        const Vector half = randomVector(random, 0, largest);
        boxes.push_back({point - half, point + half});
    }
    return boxes;
}

namespace {

void addLeaves(const KDNode& node, std::vector<const KDNode*>& leaves) {
    if (node.isLeaf()) {
        leaves.push_back(&node);
        return;
    }
    addLeaves(*node.child(0), leaves);
    addLeaves(*node.child(1), leaves);
}

}  // namespace

std::vector<const KDNode*> leavesOf(const NmbKDTree& tree) {
    std::vector<const KDNode*> leaves;
    addLeaves(tree.root(), leaves);
    return leaves;
}

}  // namespace NMBUtils::test
