// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Builds a spatial index. What all kinds of primitives share is in kd_builder.cpp; how a node is
// divided, in one source for each kind.
#pragma once

#include "foundation/event.h"
#include "foundation/kd_tree/kd_tree.h"
#include "tessra/thread_manager.h"

namespace NMBUtils {

/// A primitive while the tree is built.
struct PointData {
    float at[3];
};
struct BoxData {
    float min[3];
    float max[3];
};
struct OrientedBoxData {
    float half[3][3];  // three half-axes
    float center[3];
};
static_assert(sizeof(PointData) == 12 && sizeof(BoxData) == 24 && sizeof(OrientedBoxData) == 48);

struct BoxSplit;

/// One build; the nodes may be divided on several threads at once.
class KDBuilder {
public:
    using Statistics = NmbKDTree::Statistics;

    /// A node on its way through a build.
    struct Branch {
        KDNode* node;
        int depth;
        /// How many primitives the leaves below may hold for each of the node's: boxes that lie on
        /// both sides of a plane multiply, and hostile ones without end.
        double room;
    };

    /// `manager` null: everything on the caller's thread.
    KDBuilder(NmbKDTree& tree, TessUtils::ThreadManager* manager);
    /// The tree's flags say over what. False without memory; the tree is then half built.
    bool build(int count);
    /// Divides a node and all below it.
    Statistics divide(const Branch& branch);

private:
    template <class Data, class Get>
    bool gatherAndDivide(int count, Get get);
    bool splitNode(const Branch& branch, double& room);
    Statistics divideChildren(const Branch& branch, double room);
    Statistics divideOnThreads(const Branch& first, const Branch& second);
    void waitFor(Event& done, int depth);
    void addProgress(int amount);
    void callProgress(int counter);

    // Each leaves the node a leaf with its bounds, and answers false; or makes it an inner node of
    // two leaves that hold the primitives of their side, ready to be divided.
    bool splitPoints(KDNode& node);
    bool splitBoxes(KDNode& node, double& room);
    bool splitOrientedBoxes(MBNode& node, double& room);

    bool makeBoxChildren(KDNode& node, const BoxSplit& split, double& room);
    void releaseList(KDNode& node);
    void reportDegenerate(const KDNode& node);
    bool outOfMemory();
    bool isRoot(const KDNode& node) const { return &node == &tree_.root_; }

    NmbKDTree& tree_;
    TessUtils::ThreadManager* manager_;
};

}  // namespace NMBUtils
