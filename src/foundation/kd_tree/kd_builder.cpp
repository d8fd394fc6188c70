// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/kd_builder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>

#include "foundation/parallel.h"
#include "tessra/allocator.h"

namespace NMBUtils {

namespace {

using namespace std::chrono_literals;

constexpr auto kPollTime = 50ms;
/// The whole of a build in Progress's counter, and the depth whose nodes count one by one.
constexpr int kFullProgress = 65536;
constexpr int kProgressDepth = 8;
/// Only hostile primitives make a deeper tree; the recursion must end before the stack does.
constexpr int kDeepest = 512;
/// Overlapping spheres were seen to come to 430.
constexpr double kMostLeafShares = 1024;

/// Levels whose children are divided on threads, less 1.
int parallelDepthFor(int threads) {
    int depth = -1;
    for (; threads > 1; threads /= 2)
        ++depth;
    return depth;
}

void copyVector(const TessUtils::Vector& from, float to[3]) {
    to[0] = from.x;
    to[1] = from.y;
    to[2] = from.z;
}

/// Moves the bounds outwards by a fraction of their diagonal.
void growBounds(KDNode& node) {
    constexpr double kGrowth = 1e-5;
    double diagonalSq = 0;
    for (int k = 0; k < 3; ++k) {
        const double side = double(node.max[k]) - double(node.min[k]);
        diagonalSq += side * side;
    }
    const double growth = std::sqrt(diagonalSq) * kGrowth;
    for (int k = 0; k < 3; ++k) {
        node.min[k] = static_cast<float>(node.min[k] - growth);
        node.max[k] = static_cast<float>(node.max[k] + growth);
    }
}

/// Frees the lists that leaves have for themselves.
void freeLists(KDNode& node) {
    if (!node.isLeaf()) {
        freeLists(*node.child(0));
        freeLists(*node.child(1));
    } else if (node.ownsList) {
        freeMem(node.link);
    }
}

}  // namespace

/// Divides one node on a lent thread. Its event is the last thing that the thread touches.
class NmbKDTree::MTDivide final : public TessUtils::ThreadProcedure {
public:
    MTDivide(KDBuilder& builder, const KDBuilder::Branch& branch)
        : builder_(builder), branch_(branch) {}
    ~MTDivide() override {
        if (running_)
            done_.wait();
    }

    /// On the caller's thread if the manager has none left.
    void start(TessUtils::ThreadManager& manager, int threadIndex, const void* owner) {
        running_ = true;
        if (!manager.runThread(this, threadIndex, owner)) {
            running_ = false;
            statistics_ = builder_.divide(branch_);
            done_.set();
        }
    }
    void Run(int) override {
        vallocInitializeForCurrentThread();
        statistics_ = builder_.divide(branch_);
        vallocTerminateForCurrentThread();
        done_.set();
    }

    Event& done() { return done_; }
    /// After `done` let the caller through.
    const Statistics& result() {
        running_ = false;
        return statistics_;
    }

private:
    KDBuilder& builder_;
    const KDBuilder::Branch branch_;
    Statistics statistics_;
    bool running_ = false;  // a thread may still use this
    EventDomain domain_;
    Event done_{domain_, Event::Reset::Manual};
};

// --- The tree ------------------------------------------------------------------------------------

int NmbKDTree::Build(int count, bool oriented, bool parallel, bool points) {
    Clear();
    if (oriented)
        flags = kOriented;
    else if (points)
        flags = kPoints;
    KDBuilder builder(*this, parallel ? getGlobalThreadManager() : nullptr);
    bool built = false;
    try {
        built = builder.build(count);
    } catch (...) {  // of the derived class
        Clear();
        throw;
    }
    if (built) {
        flags |= kBuilt;
        return 1;
    }
    const std::uint32_t kind = flags;
    const std::uint32_t errors = errorFlags | kOutOfMemory;
    Clear();
    flags = kind | kAborted;
    errorFlags = errors;
    return 0;
}

void NmbKDTree::Clear() {
    freeLists(root_);
    root_ = MBNode();
    nodes_.clear();
    mbNodes_.clear();
    indexBuffer.Clear();
    flags = 0;
    errorFlags = 0;
    degenerateCount = 0;
    progress = 0;
    maxParallelDepth = -1;
    buildData = nullptr;
    statistics_ = {};
    allNumbers_ = true;
}

// --- The builder ---------------------------------------------------------------------------------

KDBuilder::KDBuilder(NmbKDTree& tree, TessUtils::ThreadManager* manager)
    : tree_(tree), manager_(manager) {
    if (manager)
        tree.maxParallelDepth = parallelDepthFor(manager->getNumberOfProcessors());
}

bool KDBuilder::build(int count) {
    using Tree = NmbKDTree;
    const Tree& tree = tree_;
    if (tree.flags & Tree::kOriented) {
        tree_.root_.nodeKind = 1;
        return gatherAndDivide<OrientedBoxData>(count, [&](int index, OrientedBoxData& data) {
            Tree::OrientedBox box;
            tree.GetOrientedBox(index, box);
            copyVector(box.a, data.half[0]);
            copyVector(box.b, data.half[1]);
            copyVector(box.c, data.half[2]);
            copyVector(box.center, data.center);
        });
    }
    if (tree.flags & Tree::kPoints) {
        return gatherAndDivide<PointData>(count, [&](int index, PointData& data) {
            Tree::Vector point;
            tree.GetPoint(point, index);
            copyVector(point, data.at);
        });
    }
    return gatherAndDivide<BoxData>(count, [&](int index, BoxData& data) {
        Tree::Box box;
        tree.GetBox(index, box);
        copyVector(box.min, data.min);
        copyVector(box.max, data.max);
    });
}

/// Asks for all primitives beforehand, so that dividing needs no virtual calls.
template <class Data, class Get>
bool KDBuilder::gatherAndDivide(int count, Get get) {
    NmbArray<int>& indices = tree_.indexBuffer;
    NmbArray<Data> data;
    if (!indices.SetSize(count, nullptr, true) || !data.SetSize(count, nullptr, true))
        return false;
    for (int i = 0; i < count; ++i) {
        indices[i] = i;
        get(i, data[i]);
    }
    KDNode& root = tree_.root_;
    root.count = count;
    root.link = indices.data;
    tree_.buildData = data.data;
    tree_.statistics_ = divide({&root, 0, kMostLeafShares});
    tree_.buildData = nullptr;
    if (count > 0)
        growBounds(root);
    return !(tree_.errorFlags & NmbKDTree::kOutOfMemory);
}

KDBuilder::Statistics KDBuilder::divide(const Branch& branch) {
    const KDNode& node = *branch.node;
    Statistics statistics;
    statistics.nodeCount = 1;
    if (tree_.aborted())
        return statistics;
    double room = branch.room;
    const bool inner = branch.depth < kDeepest && splitNode(branch, room);
    if (inner) {
        statistics.add(divideChildren(branch, room));
    } else {
        statistics.leafCount = 1;
        statistics.deepestLeaf = branch.depth;
        statistics.largestLeaf = node.count;
        statistics.leafPrimitives = node.count;
    }
    if (branch.depth == kProgressDepth || (!inner && branch.depth < kProgressDepth))
        addProgress(kFullProgress >> branch.depth);
    return statistics;
}

bool KDBuilder::splitNode(const Branch& branch, double& room) {
    if (tree_.flags & NmbKDTree::kOriented)
        return splitOrientedBoxes(static_cast<MBNode&>(*branch.node), room);
    if (tree_.flags & NmbKDTree::kPoints)
        return splitPoints(*branch.node);
    return splitBoxes(*branch.node, room);
}

KDBuilder::Statistics KDBuilder::divideChildren(const Branch& branch, double room) {
    const Branch first{branch.node->child(0), branch.depth + 1, room};
    const Branch second{branch.node->child(1), branch.depth + 1, room};
    if (branch.depth <= tree_.maxParallelDepth)
        return divideOnThreads(first, second);
    Statistics statistics = divide(first);
    statistics.add(divide(second));
    return statistics;
}

KDBuilder::Statistics KDBuilder::divideOnThreads(const Branch& first, const Branch& second) {
    NmbKDTree::MTDivide firstHalf(*this, first);
    NmbKDTree::MTDivide secondHalf(*this, second);
    firstHalf.start(*manager_, 0, &tree_);
    secondHalf.start(*manager_, 1, &tree_);
    waitFor(firstHalf.done(), first.depth - 1);
    Statistics statistics = firstHalf.result();
    waitFor(secondHalf.done(), second.depth - 1);
    statistics.add(secondHalf.result());
    return statistics;
}

/// At the top of the tree this is the caller's thread, the one that may report and abort.
void KDBuilder::waitFor(Event& done, int depth) {
    if (depth > 0) {
        done.wait();
        return;
    }
    while (!done.waitFor(kPollTime)) {
        std::unique_lock lock(tree_.progressMutex_);
        const int counter = tree_.progress;
        lock.unlock();
        callProgress(counter);
    }
}

void KDBuilder::addProgress(int amount) {
    if (tree_.maxParallelDepth >= 0) {
        const std::lock_guard lock(tree_.progressMutex_);
        tree_.progress += amount;
        return;
    }
    tree_.progress += amount;
    callProgress(tree_.progress);
}

void KDBuilder::callProgress(int counter) {
    if (!tree_.aborted() && tree_.Progress(counter))
        tree_.flags |= NmbKDTree::kAborted;
}

/// The array of an inner node that isn't needed any more.
void KDBuilder::releaseList(KDNode& node) {
    if (isRoot(node))
        tree_.indexBuffer.Clear();
    else if (node.ownsList)
        freeMem(node.link);
    node.link = nullptr;
    node.ownsList = 0;
}

void KDBuilder::reportDegenerate(const KDNode& node) {
    tree_.degenerateCount += node.count;
    tree_.errorFlags |= NmbKDTree::kDegenerateNodes;
}

/// Ends the build; the node in hand stays as it is.
bool KDBuilder::outOfMemory() {
    tree_.errorFlags |= NmbKDTree::kOutOfMemory;
    tree_.flags |= NmbKDTree::kAborted;
    return false;
}

}  // namespace NMBUtils
