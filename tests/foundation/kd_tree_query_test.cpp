// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Queries around a point, against brute force over the same primitives.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <set>

#include "foundation/kd_tree_samples.h"
#include "support/threads.h"

namespace NMBUtils::test {
namespace {

using Neighbour = NmbKDTree::Neighbour;

Vector pointOf(const NmbKDTree& tree, int index) {
    Vector point;
    tree.GetPoint(point, index);
    return point;
}

std::vector<int> bruteSphere(const NmbKDTree& tree, int count, const Vector& center, float radius) {
    std::vector<int> found;
    for (int i = 0; i < count; ++i) {
        const Vector apart = pointOf(tree, i) - center;
        if (TessUtils::dot(apart, apart) < radius * radius)
            found.push_back(i);
    }
    return found;
}

std::vector<int> collect(const NmbKDTree& tree, const Vector& center, float radius) {
    NmbArray<int> result;
    tree.CollectSphere(center, radius, result);
    std::vector<int> found(result.begin(), result.end());
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<float> bruteDistances(const NmbKDTree& tree, int count, const Vector& point, int k,
                                  float maxDistance) {
    std::vector<float> distances;
    for (int i = 0; i < count; ++i) {
        const float distanceSq = tree.GetDistanceSq(i, point);
        if (distanceSq <= maxDistance * maxDistance)
            distances.push_back(distanceSq);
    }
    std::sort(distances.begin(), distances.end());
    distances.resize(std::min(distances.size(), static_cast<std::size_t>(k)));
    return distances;
}

/// The distances found, sorted, after a look at each pair.
std::vector<float> nearestDistances(const NmbKDTree& tree, const Vector& point, int k,
                                    float maxDistance) {
    std::vector<Neighbour> results(static_cast<std::size_t>(k) + 1, Neighbour{-7, -7});
    const int found = tree.FindNearest(point, results.data(), k, maxDistance);
    EXPECT_EQ(results.back().index, -7) << "wrote beyond the results";
    std::set<int> indices;
    std::vector<float> distances;
    for (int i = 0; i < found; ++i) {
        const Neighbour& result = results[static_cast<std::size_t>(i)];
        EXPECT_EQ(result.distanceSq, tree.GetDistanceSq(result.index, point));
        indices.insert(result.index);
        distances.push_back(result.distanceSq);
    }
    EXPECT_EQ(indices.size(), distances.size()) << "an index came twice";
    std::sort(distances.begin(), distances.end());
    return distances;
}

/// Places and sizes to ask for: around the set, on its points, at its own scale.
struct Probe {
    Vector center;
    float radius;
};

std::vector<Probe> probesFor(const std::vector<Vector>& points, Random& random) {
    std::vector<Probe> probes = {{{0, 0, 0}, 1}, {{1, 1, 1}, 0}, {{3, -2, 7}, 1e-3f}};
    if (points.empty())
        return probes;
    for (int i = 0; i < 20; ++i) {
        const auto pick = [&] { return points[random() % points.size()]; };
        const Vector one = pick();
        const Vector other = pick();
        const float apart = TessUtils::length(one - other);
        const Vector place = i % 3 == 0 ? one : one + (other - one) * uniform(random, -0.5f, 1.5f);
        probes.push_back({place, apart * uniform(random, 0, 1)});
        // Points exactly on the sphere aren't in it.
        probes.push_back({one, apart});
    }
    return probes;
}

void expectLikeBruteForce(const NmbKDTree& tree, int count, const std::vector<Probe>& probes) {
    for (const Probe& probe : probes) {
        EXPECT_EQ(collect(tree, probe.center, probe.radius),
                  bruteSphere(tree, count, probe.center, probe.radius));
        for (const int k : {1, 7, 100}) {
            for (const float limit : {1e18f, probe.radius}) {
                EXPECT_EQ(nearestDistances(tree, probe.center, k, limit),
                          bruteDistances(tree, count, probe.center, k, limit));
            }
        }
    }
}

/// Oriented boxes, whose point is their centre.
class NeedleTree : public SphereTree {
public:
    using SphereTree::SphereTree;
    void GetPoint(Vector& point, int index) const override { point = sphere(index).center; }
};

std::vector<SphereTree::Sphere> needlesAt(const std::vector<Vector>& points, float length,
                                          Random& random) {
    const Vector common = randomVector(random);
    std::vector<SphereTree::Sphere> needles;
    for (const Vector& point : points)
        needles.push_back({point, 0.01f, (common + randomVector(random) * 0.2f) * length});
    return needles;
}

TEST(KDTreeQuery, AllKindsOfTrees_FindWhatBruteForceFinds) {
    Random random(21);
    bool oblique = false;
    for (const PointSet& set : pointSets()) {
        SCOPED_TRACE(set.name);
        const std::vector<Probe> probes = probesFor(set.points, random);
        PointTree points(set.points);
        ASSERT_EQ(points.build(), 1);
        // Each point lies in one leaf.
        EXPECT_EQ(points.statistics().leafPrimitives, points.count());
        EXPECT_EQ(points.statistics().largestLeaf > 31, points.degenerateCount > 31);
        expectLikeBruteForce(points, points.count(), probes);
        for (const bool large : {false, true}) {
            SCOPED_TRACE(large ? "large" : "small");
            BoxTree boxes(boxesAround(set.points, large ? 50 : 0.3f, random));
            ASSERT_EQ(boxes.build(), 1);
            expectLikeBruteForce(boxes, boxes.count(), probes);
            NeedleTree needles(needlesAt(set.points, large ? 20 : 0.5f, random));
            ASSERT_EQ(needles.build(true), 1);
            oblique |= needles.root().axis == KDNode::kOblique;
            expectLikeBruteForce(needles, needles.count(), probes);
        }
    }
    EXPECT_TRUE(oblique) << "no set was divided by an oblique plane";
}

TEST(KDTreeQuery, OddArguments_FindNothing) {
    Random random(26);
    PointTree tree(randomPoints(random, 100));
    tree.build();
    Neighbour result;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [x, count, limit] :
         {std::tuple{0.0f, 0, 1e18f}, {0.0f, -3, 1e18f}, {0.0f, 1, -1.0f}, {nan, 1, 1e18f}})
        EXPECT_EQ(tree.FindNearest({x, 0, 0}, &result, count, limit), 0) << x << " " << count;
    for (const auto& [y, radius] : {std::pair{0.0f, -5.0f}, {0.0f, nan}, {nan, 5.0f}})
        EXPECT_TRUE(collect(tree, {0, y, 0}, radius).empty()) << y << " " << radius;
}

TEST(KDTreeQuery, PointsThatAreNoNumbers_AreNeverFound) {
    Random random(31);
    std::vector<Vector> points = randomPoints(random, 1000);
    for (std::size_t i = 0; i < points.size(); i += 50)
        points[i].y = std::numeric_limits<float>::quiet_NaN();
    // Divided along x, where all have their place.
    for (Vector& point : points)
        point.x *= 1000;
    PointTree tree(points);
    ASSERT_EQ(tree.build(), 1);
    EXPECT_GT(leavesOf(tree).size(), 10u);
    EXPECT_EQ(collect(tree, {0, 0, 0}, 1e4f).size(), 980u);
    EXPECT_EQ(nearestDistances(tree, {0, 0, 0}, 1000, 1e4f).size(), 980u);
}

TEST(KDTreeQuery, TheLeafOfAPoint_HoldsAllThatContainIt) {
    Random random(27);
    for (const float motion : {0.0f, 3.0f}) {
        std::vector<SphereTree::Sphere> spheres;
        for (const Vector& center : randomPoints(random, 2000, -5, 5))
            spheres.push_back(
                {center, uniform(random, 0.05f, 0.5f), randomVector(random) * motion});
        SphereTree tree(spheres);
        ASSERT_EQ(tree.build(motion > 0), 1);
        EXPECT_GT(leavesOf(tree).size(), 10u);
        for (int i = 0; i < 300; ++i) {
            const Vector point = randomVector(random, -5, 5);
            const KDNode* const leaf = tree.FindPointLeaf(point);
            const std::set<int> held(leaf->list(), leaf->list() + leaf->count);
            for (int s = 0; s < tree.count(); ++s) {
                const float distance = TessUtils::length(point - tree.sphere(s).center);
                EXPECT_TRUE(distance >= tree.sphere(s).radius || held.count(s) == 1);
            }
        }
    }
}

// --- Controls ------------------------------------------------------------------------------------

/// Counts what it is told; skips some, ends after some.
class Counting : public NmbKDTree::TraverseControl {
public:
    int Skip(int index) override {
        ++asked;
        return skipped.count(index) > 0;
    }
    int Accept(int index, float t, int code) override {
        EXPECT_EQ(code, 0);
        accepted.emplace_back(index, t);
        return static_cast<int>(accepted.size()) == endAfter;
    }

    std::set<int> skipped;
    int endAfter = -1, asked = 0;
    std::vector<std::pair<int, float>> accepted;
};

TEST(KDTreeQuery, SphereTraversal_TellsItsControlAndObeysIt) {
    Random random(28);
    PointTree tree(randomPoints(random, 2000));
    tree.build();
    const Vector center{0.2f, -0.1f, 0.3f};
    const std::vector<int> inside = bruteSphere(tree, 2000, center, 0.4f);
    ASSERT_GT(inside.size(), 10u);
    Counting control;
    control.skipped = {inside[0], inside[5]};
    EXPECT_EQ(tree.TraverseSphere(center, 0.4f, control), 0);
    EXPECT_EQ(control.accepted.size(), inside.size() - 2);
    EXPECT_LT(control.asked, 1500) << "leaves away from the sphere were entered";
    for (const auto& [index, distanceSq] : control.accepted) {
        const Vector apart = tree.point(index) - center;
        EXPECT_EQ(distanceSq, TessUtils::dot(apart, apart));
        EXPECT_EQ(control.skipped.count(index), 0u);
    }
    Counting ending;
    ending.endAfter = 4;
    EXPECT_EQ(tree.TraverseSphere(center, 0.4f, ending), 1);
    EXPECT_EQ(ending.accepted.size(), 4u);
}

TEST(KDTreeQuery, NearestOther_SkipsThePointItself) {
    Random random(29);
    PointTree tree(randomPoints(random, 1000));
    tree.build();
    for (int i = 0; i < 100; ++i) {
        NmbKDTree::Skip skip(i);
        Neighbour nearest;
        ASSERT_EQ(tree.FindNearest(tree.point(i), &nearest, 1, 1e18f, &skip), 1);
        EXPECT_EQ(nearest.distanceSq,
                  bruteDistances(tree, tree.count(), tree.point(i), 2, 1e18f)[1]);
        EXPECT_NE(nearest.index, i);
    }
}

TEST(KDTreeQuery, Nearest_OfEqualsTheLastReplacesTheWorst) {
    // Three points at the same distance in one leaf: the results hold those that came last.
    PointTree tree({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
    tree.build();
    Neighbour result;
    ASSERT_EQ(tree.FindNearest({0, 0, 0}, &result, 1, 1), 1);
    EXPECT_EQ(result.index, 2);
}

TEST(KDTreeQuery, ManyThreads_FindWhatOneFinds) {
    Random random(30);
    PointTree tree(randomPoints(random, 20000));
    ASSERT_EQ(tree.build(), 1);
    std::vector<Probe> probes;
    for (int i = 0; i < 200; ++i)
        probes.push_back({randomVector(random), 0.15f});
    const auto askAll = [&] {
        std::vector<float> answers;
        for (const Probe& probe : probes) {
            const std::vector<int> inside = collect(tree, probe.center, probe.radius);
            answers.insert(answers.end(), inside.begin(), inside.end());
            for (const float d : nearestDistances(tree, probe.center, 8, 1e18f))
                answers.push_back(d);
            KDRay cone(probe.center, {1, 0.5f, 0.25f});
            cone.startRadius = 0.05f;
            answers.push_back(static_cast<float>(tree.TraceCone(cone, nullptr)));
        }
        return answers;
    };
    const std::vector<float> expected = askAll();
    std::atomic<int> same{0};
    nimbra::test::onThreads(8, [&](int) { same += askAll() == expected; });
    EXPECT_EQ(same, 8);
}

}  // namespace
}  // namespace NMBUtils::test
