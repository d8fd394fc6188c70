// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Rays and cones through trees, against brute force over the same primitives.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <ostream>
#include <set>
#include <vector>

#include "foundation/kd_tree_samples.h"

namespace NMBUtils::test {
namespace {

// --- Rays ----------------------------------------------------------------------------------------

struct Hit {
    float t = -1;  // -1: none
    int code = 0;

    bool operator==(const Hit&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Hit& hit) {
    return out << "t " << hit.t << " code " << hit.code;
}

Hit bruteTrace(const SphereTree& tree, KDRay ray, float time,
               const std::function<bool(int, int)>& counts) {
    Hit nearest;
    for (int i = 0; i < tree.count(); ++i) {
        const float before = ray.tMax;
        const int code = tree.Intersect(i, ray, time);
        if (code && counts(i, code))
            nearest = {ray.tMax, code};
        else
            ray.tMax = before;
    }
    return nearest;
}

Hit trace(const SphereTree& tree, KDRay ray, float time, NmbKDTree::TraverseControl* control) {
    const float before = ray.tMax;
    int code = -5;
    const int index = tree.TraceRay(ray, control, time, &code);
    if (index < 0) {
        EXPECT_EQ(ray.tMax, before);
        EXPECT_EQ(code, -5);
        return {};
    }
    KDRay again = ray;
    again.tMax = before;
    EXPECT_EQ(tree.Intersect(index, again, time), code);
    EXPECT_EQ(again.tMax, ray.tMax);
    return {ray.tMax, code};
}

/// Rays of all sorts: oblique, along axes, in planes; with limits; from inside and outside.
KDRay randomRay(Random& random, float size) {
    const Vector origin = randomVector(random, -size, size);
    Vector direction = randomVector(random) * std::pow(10.0f, uniform(random, -2, 2));
    const int kind = static_cast<int>(random() % 4);
    for (int k = 0; k < kind && kind < 3; ++k)
        direction[(k + static_cast<int>(random() % 3)) % 3] = random() % 2 ? 0.0f : -0.0f;
    KDRay ray(origin, direction);
    if (random() % 4 == 0) {
        ray.tMin =
            uniform(random, -size, size) / TessUtils::length(direction + Vector{0, 0, 1e-9f});
        ray.tMax = ray.tMin + uniform(random, 0, 2 * size);
    }
    return ray;
}

std::vector<SphereTree::Sphere> randomSpheres(Random& random, int count, float radius,
                                              float motion) {
    std::vector<SphereTree::Sphere> spheres;
    for (const Vector& center : randomPoints(random, count, -10, 10)) {
        spheres.push_back(
            {center, radius * uniform(random, 0.1f, 1), randomVector(random) * motion});
    }
    return spheres;
}

TEST(KDTreeTrace, Spheres_AreHitAsByBruteForce) {
    Random random(41);
    int hits = 0;
    for (const int count : {0, 1, 2, 15, 16, 31, 32, 500, 3000}) {
        for (const float motion : {0.0f, 4.0f}) {
            SCOPED_TRACE(std::to_string(count) + " spheres, motion " + std::to_string(motion));
            SphereTree tree(randomSpheres(random, count, count < 100 ? 5.0f : 0.8f, motion));
            ASSERT_EQ(tree.build(motion > 0), 1);
            for (int i = 0; i < 300; ++i) {
                const KDRay ray = randomRay(random, 12);
                const float time = uniform(random, 0, 1);
                const auto all = [](int, int) { return true; };
                const Hit hit = trace(tree, ray, time, nullptr);
                ASSERT_EQ(hit, bruteTrace(tree, ray, time, all)) << "ray " << i;
                hits += hit.code != 0;

                const int own = static_cast<int>(random() % 8);
                NmbKDTree::Skip skip(own);
                ASSERT_EQ(
                    trace(tree, ray, time, &skip),
                    bruteTrace(tree, ray, time, [&](int index, int) { return index != own; }));
                NmbKDTree::OutFilter leaving;
                ASSERT_EQ(trace(tree, ray, time, &leaving),
                          bruteTrace(tree, ray, time, [](int, int code) { return code != 1; }));
            }
        }
    }
    EXPECT_GT(hits, 1000);
}

TEST(KDTreeTrace, RaysInDividingPlanes_HitOnBothSides) {
    // A lattice of spheres, and rays exactly between its rows and along them.
    std::vector<SphereTree::Sphere> spheres;
    for (int i = 0; i < 1000; ++i)
        spheres.push_back({{float(i % 10), float(i / 10 % 10), float(i / 100)}, 0.5625f, Vector{}});
    SphereTree tree(spheres);
    ASSERT_EQ(tree.build(false), 1);
    for (int axis = 0; axis < 3; ++axis)
        for (int row = -1; row <= 20; ++row)
            for (int column = -1; column <= 20; ++column)
                for (const float sign : {-1.0f, 1.0f}) {
                    Vector origin, direction;
                    origin[axis] = sign < 0 ? 20.0f : -10.0f;
                    origin[(axis + 1) % 3] = static_cast<float>(row) * 0.5f;
                    origin[(axis + 2) % 3] = static_cast<float>(column) * 0.5f;
                    direction[axis] = sign;
                    const KDRay ray(origin, direction);
                    ASSERT_EQ(trace(tree, ray, 0, nullptr),
                              bruteTrace(tree, ray, 0, [](int, int) { return true; }));
                }
}

TEST(KDTreeTrace, Inside_IsWhereTheFirstHitLeaves) {
    Random random(42);
    // Spheres apart from each other.
    std::vector<SphereTree::Sphere> spheres;
    for (int i = 0; i < 216; ++i) {
        const Vector cell{static_cast<float>(i % 6), static_cast<float>(i / 6 % 6),
                          static_cast<float>(i / 36)};
        spheres.push_back({cell * 2.0f, uniform(random, 0.2f, 0.9f), {}});
    }
    SphereTree tree(spheres);
    ASSERT_EQ(tree.build(false), 1);
    int inside = 0;
    for (int i = 0; i < 3000; ++i) {
        const Vector point = randomVector(random, -1, 11);
        const bool expected = std::any_of(spheres.begin(), spheres.end(), [&](const auto& sphere) {
            return TessUtils::length(point - sphere.center) < sphere.radius;
        });
        EXPECT_EQ(tree.IsInside(point, 0), expected);
        inside += expected;
    }
    EXPECT_GT(inside, 100);
}

// --- Cones ---------------------------------------------------------------------------------------

/// t of a point along the cone's axis; false where the point is outside the cone.
bool pointInCone(const KDRay& cone, const Vector& point, float& t) {
    const Vector offset = point - cone.origin;
    t = TessUtils::dot(offset, cone.direction) * cone.rcpLengthSq;
    const Vector across = offset - cone.direction * t;
    const float radius = t * cone.radiusSlope + cone.startRadius;
    return TessUtils::dot(across, across) <= radius * radius;
}

/// Takes no point for the end, gathers all within the limits.
class Gathering : public NmbKDTree::TraverseControl {
public:
    explicit Gathering(const KDRay& cone) : cone_(cone) {}
    int Accept(int index, float t, int) override {
        if (t > cone_.tMin && t <= cone_.tMax)
            found.insert(index);
        return 1;
    }
    std::set<int> found;

private:
    const KDRay cone_;
};

KDRay randomCone(Random& random, const std::vector<Vector>& points) {
    const Vector one = points[random() % points.size()];
    const Vector other = points[random() % points.size()];
    const float size = std::max(TessUtils::length(one - other), 1e-4f);
    Vector direction = other - one;
    if (random() % 3 == 0 || direction == Vector{})
        direction = randomVector(random) * size;
    if (random() % 4 == 0) {
        direction = {};
        direction[static_cast<int>(random() % 3)] = size;
    }
    KDRay cone(one - direction * uniform(random, -1, 2), direction);
    cone.startRadius = random() % 4 ? size * uniform(random, 0, 0.3f) : 0;
    cone.radiusSlope = random() % 3 ? size * uniform(random, 0, 0.5f) : 0;
    if (random() % 2) {
        cone.tMin = uniform(random, -1, 1);
        cone.tMax = cone.tMin + uniform(random, 0, 2);
    }
    return cone;
}

TEST(KDTreeCone, Points_AreFoundAsByBruteForce) {
    Random random(44);
    std::size_t gathered = 0;
    for (const PointSet& set : pointSets()) {
        if (set.points.empty())
            continue;
        for (const bool boxes : {false, true}) {
            SCOPED_TRACE(set.name + (boxes ? " as boxes" : " as points"));
            PointTree pointTree(set.points);
            BoxTree boxTree(boxesAround(set.points, 0.1f, random));
            NmbKDTree& tree = boxes ? static_cast<NmbKDTree&>(boxTree) : pointTree;
            ASSERT_EQ(tree.Build(pointTree.count(), false, false, !boxes), 1);
            for (int i = 0; i < 80; ++i) {
                const KDRay cone = randomCone(random, set.points);
                std::set<int> expected;
                float nearest = std::numeric_limits<float>::infinity();
                for (int p = 0; p < pointTree.count(); ++p) {
                    float t = 0;
                    Vector point;
                    tree.GetPoint(point, p);
                    if (!pointInCone(cone, point, t) || t <= cone.tMin || t > cone.tMax)
                        continue;
                    expected.insert(p);
                    nearest = std::min(nearest, t);
                }
                Gathering all(cone);
                KDRay whole = cone;
                EXPECT_EQ(tree.TraceCone(whole, &all), -1);
                EXPECT_EQ(all.found, expected) << "cone " << i;
                EXPECT_EQ(whole.tMax, cone.tMax);
                gathered += expected.size();

                KDRay shortened = cone;
                const int index = tree.TraceCone(shortened, nullptr);
                ASSERT_EQ(index >= 0, !expected.empty());
                if (index >= 0) {
                    EXPECT_EQ(expected.count(index), 1u);
                    EXPECT_EQ(shortened.tMax, nearest);
                }
            }
        }
    }
    EXPECT_GT(gathered, 10000u);
}

}  // namespace
}  // namespace NMBUtils::test
