// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shape of trees: how nodes are divided, and how builds fail, stop and run on threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>

#include "foundation/kd_tree_samples.h"
#include "foundation/parallel.h"
#include "support/caught_log.h"
#include "support/golden.h"
#include "tessra/allocator.h"

namespace NMBUtils::test {
namespace {

using nimbra::test::DebuggerTexts;
using nimbra::test::GoldenCase;
using nlohmann::json;

// --- Golden trees --------------------------------------------------------------------------------

Vector vectorOf(const json& list) {
    return {list[0].get<float>(), list[1].get<float>(), list[2].get<float>()};
}

std::vector<Vector> vectorsOf(const json& list) {
    std::vector<Vector> vectors;
    for (const json& vector : list)
        vectors.push_back(vectorOf(vector));
    return vectors;
}

/// Compares the nodes from `at` on with the list of the golden file: node, first, second child.
void expectNodes(const KDNode& node, const json& expected, std::size_t& at, int depth,
                 double tolerance) {
    ASSERT_LT(at, expected.size());
    const json& want = expected[at++];
    EXPECT_EQ(want["depth"], depth);
    ASSERT_EQ(want["axis"], static_cast<int>(node.axis)) << "node " << at - 1;
    if (node.isLeaf()) {
        EXPECT_EQ(want["count"], node.count);
        return;
    }
    EXPECT_NEAR(want["split"].get<double>(), node.split, tolerance);
    expectNodes(*node.child(0), expected, at, depth + 1, tolerance);
    expectNodes(*node.child(1), expected, at, depth + 1, tolerance);
}

void expectGoldenTree(const NmbKDTree& tree, const json& expected, const json& tolerance) {
    std::size_t nodes = 0;
    expectNodes(tree.root(), expected["nodes"], nodes, 0, tolerance["split_abs"]);
    EXPECT_EQ(nodes, expected["nodes"].size());
    json leaves = json::array();
    for (const KDNode* leaf : leavesOf(tree)) {
        std::vector<int> list(leaf->list(), leaf->list() + leaf->count);
        std::sort(list.begin(), list.end());
        leaves.push_back(list);
    }
    EXPECT_EQ(leaves, expected["leaves"]);
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(tree.bounds().min[k], expected["bounds"][0][k].get<double>(),
                    tolerance["bounds_abs"].get<double>());
        EXPECT_NEAR(tree.bounds().max[k], expected["bounds"][1][k].get<double>(),
                    tolerance["bounds_abs"].get<double>());
    }
}

TEST(KDTreeBuild, GoldenTrees_AreTheSameNodeByNode) {
    for (const GoldenCase& golden : nimbra::test::goldenCases("kd_tree")) {
        SCOPED_TRACE(golden.name());
        const json& tolerance = golden.json["tolerance"];
        for (const json& set : golden.json["points"]) {
            PointTree tree(vectorsOf(set["points"]));
            ASSERT_EQ(tree.build(), 1);
            expectGoldenTree(tree, set["expected"], tolerance);
            EXPECT_EQ(tree.degenerateCount, set["expected"]["degenerate"].get<int>());
            EXPECT_EQ(tree.errorFlags, set["expected"]["error_flags"].get<unsigned>());
        }
        for (const json& set : golden.json["boxes"]) {
            std::vector<Box> boxes;
            for (std::size_t i = 0; i < set["min"].size(); ++i)
                boxes.push_back({vectorOf(set["min"][i]), vectorOf(set["max"][i])});
            BoxTree tree(std::move(boxes));
            ASSERT_EQ(tree.build(), 1);
            expectGoldenTree(tree, set["expected"], tolerance);
        }
    }
}

// --- Laws of the division ------------------------------------------------------------------------

TEST(KDTreeBuild, PointsThatHaveNoMean_StayOneLeafWithAMessage) {
    const DebuggerTexts debugger;
    Random random(5);
    std::vector<Vector> points = randomPoints(random, 40);
    points[17].x = points[17].y = points[17].z = std::numeric_limits<float>::quiet_NaN();
    PointTree tree(points);
    ASSERT_EQ(tree.build(), 1);
    EXPECT_EQ(debugger.text(), "#error in tree division n:40 \n");
    EXPECT_EQ(tree.root().count, 40);
    EXPECT_EQ(tree.degenerateCount, 40);
    EXPECT_EQ(tree.errorFlags, 1u);
}

TEST(KDTreeBuild, BoxesThatAreNoNumbers_AreNotLost) {
    Random random(6);
    std::vector<Box> boxes = boxesAround(randomPoints(random, 100), 0.1f, random);
    boxes[50].min.y = std::numeric_limits<float>::quiet_NaN();
    boxes[60] = {boxes[60].max, boxes[60].min};
    BoxTree tree(boxes);
    ASSERT_EQ(tree.build(), 1);
    std::set<int> indices;
    for (const KDNode* leaf : leavesOf(tree))
        indices.insert(leaf->list(), leaf->list() + leaf->count);
    EXPECT_EQ(indices.size(), 100u);
}

/// Long boxes at all places: most planes leave nine tenths of them on both sides.
TEST(KDTreeBuild, BoxesThatMultiply_KeepToABound) {
    Random random(8);
    std::vector<Box> boxes;
    for (int i = 0; i < 20000; ++i) {
        const Vector center = randomVector(random) * std::pow(2.0f, uniform(random, -20, 20));
        const Vector half = randomVector(random, 0, 2) * std::pow(2.0f, uniform(random, -20, 20));
        boxes.push_back({center - half, center + half});
    }
    BoxTree tree(boxes);
    ASSERT_EQ(tree.build(), 1);
    EXPECT_LE(tree.statistics().leafPrimitives, 1024 * 20000);
}

TEST(KDTreeBuild, OrientedBoxesWithoutAnyExtent_Build) {
    // Neither long axes nor places give a normal.
    SphereTree tree(std::vector<SphereTree::Sphere>(50, {{1, 2, 3}, 0, {}}));
    ASSERT_EQ(tree.build(true), 1);
    EXPECT_TRUE(tree.root().isLeaf());
    EXPECT_EQ(tree.root().count, 50);
}

// --- Threads -------------------------------------------------------------------------------------

/// All that a build decides, node by node.
void addShape(const KDNode& node, std::vector<float>& shape) {
    shape.insert(shape.end(), {float(node.axis), node.split, float(node.count)});
    shape.insert(shape.end(), node.min, node.min + 3);
    shape.insert(shape.end(), node.max, node.max + 3);
    if (node.isLeaf()) {
        shape.insert(shape.end(), node.list(), node.list() + node.count);
        return;
    }
    addShape(*node.child(0), shape);
    addShape(*node.child(1), shape);
}

/// Has no thread to lend.
class NoThreads : public TessUtils::ThreadManager {
public:
    bool runThread(TessUtils::ThreadProcedure*, int, const void*) override { return false; }
    void waitThreads(const void*) override {}
    int getNumberOfProcessors() const override { return 4; }
};

TEST(KDTreeBuild, OnThreads_TheTreeIsTheSame) {
    Random random(10);
    const std::vector<Vector> points = randomPoints(random, 5000);
    const std::vector<Box> boxes = boxesAround(points, 0.05f, random);
    std::vector<SphereTree::Sphere> spheres;
    for (const Vector& point : points)
        spheres.push_back({point, 0.02f, randomVector(random) * 0.1f});
    const auto shapes = [&](bool parallel) {
        PointTree pointTree(points);
        BoxTree boxTree(boxes);
        SphereTree sphereTree(spheres);
        EXPECT_EQ(pointTree.build(parallel), 1);
        EXPECT_EQ(boxTree.build(parallel), 1);
        EXPECT_EQ(sphereTree.build(true, parallel), 1);
        std::vector<float> all;
        for (const KDNode* root : {&pointTree.root(), &boxTree.root(), &sphereTree.root()})
            addShape(*root, all);
        return all;
    };
    const std::vector<float> serial = shapes(false);
    for (const int threads : {1, 2, 8}) {
        const LentThreads lent(threads);
        EXPECT_TRUE(shapes(true) == serial) << threads << " threads";
    }
    NoThreads none;
    setGlobalThreadManager(&none);
    EXPECT_TRUE(shapes(true) == serial) << "the caller divides";
    releaseGlobalThreadManager();
}

// --- Progress and abort --------------------------------------------------------------------------

TEST(KDTreeBuild, AbortedByProgress_EndsNormallyWithAnIncompleteTree) {
    Random random(13);
    const std::vector<Vector> points = randomPoints(random, 50000);
    PointTree pointTree(points);
    BoxTree boxTree(boxesAround(points, 0.001f, random));
    int calls = 0;
    pointTree.progress = boxTree.progress = [&](int) { return ++calls % 3 == 0; };
    EXPECT_EQ(pointTree.build(), 1);
    EXPECT_EQ(boxTree.build(), 1);
    EXPECT_EQ(calls, 6) << "both ended with their third";
    for (const NmbKDTree* tree : std::initializer_list<const NmbKDTree*>{&pointTree, &boxTree}) {
        EXPECT_TRUE(tree->aborted());
        EXPECT_TRUE(tree->flags & NmbKDTree::kBuilt);
        // What wasn't divided any more stays together in large leaves.
        EXPECT_GT(leavesOf(*tree).size(), 3u);
        EXPECT_LT(leavesOf(*tree).size(), 100u);
        NmbKDTree::Neighbour nearest;
        EXPECT_EQ(tree->FindNearest(points[123], &nearest, 1, 1), 1);
    }
}

TEST(KDTreeBuild, Progress_GrowsToItsFullScaleAndMayThrow) {
    Random random(15);
    PointTree tree(randomPoints(random, 1000));
    tree.progress = [](int) -> int { throw std::runtime_error("stop"); };
    EXPECT_THROW(tree.build(), std::runtime_error);
    EXPECT_EQ(tree.root().count, 0);
    std::vector<int> counters;
    tree.progress = [&](int counter) { return counters.push_back(counter), 0; };
    EXPECT_EQ(tree.build(), 1);
    EXPECT_TRUE(std::is_sorted(counters.begin(), counters.end()));
    EXPECT_EQ(counters.back(), 65536);
}

// --- Without memory ------------------------------------------------------------------------------

/// Counts what any query finds.
int answersOf(const NmbKDTree& tree) {
    NmbKDTree::Neighbour neighbours[4];
    NmbArray<int> found;
    tree.CollectSphere({0, 0, 0}, 1e9f, found);
    KDRay ray({0, 0, -1e6f}, {0, 0, 1});
    ray.startRadius = 1e6f;
    return tree.FindNearest({0, 0, 0}, neighbours, 4, 1e18f) + found.size +
           (tree.TraceRay(ray, nullptr, 0) >= 0) + (tree.TraceCone(ray, nullptr) >= 0) +
           tree.IsInside({0, 0, 0}, 0) + tree.FindPointLeaf({0, 0, 0})->count;
}

struct FailingBuild {
    const char* name;
    bool oriented;
    bool points;
    /// The end of the message, by the number of the allocation that fails, from 1; "": none.
    std::vector<std::string> messages;
};

/// The arrays of indices and primitives fail silently; then the list block, the pool's first block
/// and the two lists of the root's children.
const FailingBuild kFailingBuilds[] = {
    {"points", false, true, {"", "", "P"}},
    {"boxes", false, false, {"", "", " 1", " 2", " 3", " 3", " 1"}},
    {"oriented boxes", true, false, {"", "", "MB 1", "MB 2", "MB 3", "MB 3", "MB 1"}},
};

SphereTree smallSpheres(int count) {
    Random random(16);
    std::vector<SphereTree::Sphere> spheres;
    for (const Vector& center : randomPoints(random, count))
        spheres.push_back({center, 0.01f, randomVector(random) * 0.1f});
    return SphereTree(std::move(spheres));
}

TEST(KDTreeBuild, AnyAllocationThatFails_LeavesATreeThatAnswersNothing) {
    for (const FailingBuild& failing : kFailingBuilds) {
        SphereTree tree = smallSpheres(150);
        std::uint64_t n = 1;
        for (;; ++n) {
            SCOPED_TRACE(failing.name + (", allocation " + std::to_string(n)));
            const std::size_t before = getGlobalMemoryTracker()->currentBlocks();
            const DebuggerTexts debugger;
            getGlobalMemoryTracker()->failAllocation(n);
            const int built = tree.Build(150, failing.oriented, false, failing.points);
            getGlobalMemoryTracker()->failAllocation(0);
            if (built)
                break;
            EXPECT_EQ(getGlobalMemoryTracker()->currentBlocks(), before);
            if (n <= failing.messages.size()) {
                const std::string& end = failing.messages[n - 1];
                EXPECT_EQ(
                    debugger.text(),
                    end.empty() ? "" : "#Out of memory in NmbKDTree::KDNode::Divide" + end + "\n");
            }
            EXPECT_TRUE(!(tree.flags & NmbKDTree::kBuilt) && tree.aborted());
            EXPECT_TRUE(tree.errorFlags & NmbKDTree::kOutOfMemory);
            EXPECT_EQ(answersOf(tree), 0);
        }
        EXPECT_GE(n, failing.messages.size()) << failing.name;
        EXPECT_GT(answersOf(tree), 0) << failing.name;
    }
}

TEST(KDTreeBuild, AllocationsThatFailOnThreads_EndAllDivisions) {
    const LentThreads lent(4);
    for (const FailingBuild& failing : kFailingBuilds) {
        SphereTree tree = smallSpheres(3000);
        int failures = 0;
        for (std::uint64_t n = 3; n < 60; n += 5) {
            getGlobalMemoryTracker()->failAllocation(n);
            const int built = tree.Build(3000, failing.oriented, true, failing.points);
            getGlobalMemoryTracker()->failAllocation(0);
            failures += !built;
            EXPECT_EQ(answersOf(tree) > 0, built == 1) << failing.name << " " << n;
        }
        EXPECT_GT(failures, 0) << failing.name;
    }
}

}  // namespace
}  // namespace NMBUtils::test
