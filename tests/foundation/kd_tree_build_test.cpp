// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shape of trees: how nodes are divided, and how builds fail, stop and run on threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <string>

#include "foundation/kd_tree_samples.h"
#include "foundation/log.h"
#include "support/golden.h"
#include "tessra/allocator.h"

namespace NMBUtils::test {
namespace {

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

int primitivesBelow(const KDNode& node) {
    return node.isLeaf() ? node.count
                         : primitivesBelow(*node.child(0)) + primitivesBelow(*node.child(1));
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
    if (node.child(0)->isLeaf() && node.child(1)->isLeaf()) {
        EXPECT_EQ(want["first"], primitivesBelow(*node.child(0)));
        EXPECT_EQ(want["second"], primitivesBelow(*node.child(1)));
    }
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

}  // namespace
}  // namespace NMBUtils::test
