// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The one spatial index of the system: a tree over primitives that it knows by their index alone. A
// derived class tells what primitive i is; the tree keeps no geometry but the bounds of its nodes.
//
// A tree is built once, then read by any number of threads at once. A tree that is empty, was
// cleared or failed to build answers every query with nothing.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "foundation/array.h"
#include "foundation/kd_tree/kd_node.h"
#include "foundation/kd_tree/kd_ray.h"
#include "foundation/kd_tree/node_pool.h"

namespace NMBUtils {

class NmbKDTree {
public:
    using KDNode = NMBUtils::KDNode;
    using MBNode = NMBUtils::MBNode;
    using Ray = KDRay;
    using Vector = TessUtils::Vector;

    struct Box {
        Vector min;
        Vector max;
    };

    /// center +- a +- b +- c
    struct OrientedBox {
        Vector a, b, c;  // half-axes
        Vector center;
    };

    /// A primitive that FindNearest found.
    struct Neighbour {
        int index = -1;
        float distanceSq = 0;
    };

    /// Bits of `flags`.
    enum Flags : std::uint32_t {
        kOriented = 1,  // built over oriented boxes
        kPoints = 2,    // built over points
        kBuilt = 4,
        kAborted = 8,  // aborted, or out of memory
    };

    /// Bits of `errorFlags`.
    enum Errors : std::uint32_t {
        kDegenerateNodes = 1,
        kOutOfMemory = 2,
    };

    /// What a build made, for the developers' trace.
    struct Statistics {
        int leafCount = 0;
        int nodeCount = 0;
        int deepestLeaf = 0;
        int largestLeaf = 0;
        std::int64_t leafPrimitives = 0;  // a primitive counts once for each leaf that holds it

        void add(const Statistics& other);
    };

    /// Steers a traversal. One object a query; called on the querying thread.
    class TraverseControl {
    public:
        virtual ~TraverseControl();
        /// At each leaf that is entered.
        virtual void BeginLeaf();
        /// Non-zero: passes the primitive over.
        virtual int Skip(int index);
        /// A primitive was hit at `t`, with the code of Intersect (cone: 0); for spheres `t` is the
        /// squared distance. Non-zero: a ray or cone leaves the hit out, a sphere traversal ends.
        virtual int Accept(int index, float t, int code);
    };

    /// Passes one primitive over: the one that a ray leaves.
    class SkipControl : public TraverseControl {
    public:
        explicit SkipControl(int index) : index_(index) {}
        int Skip(int index) override { return index == index_; }

    private:
        int index_;
    };
    using Skip = SkipControl;

    /// Counts hits from inside only.
    class OutFilter : public TraverseControl {
    public:
        int Accept(int, float, int code) override { return code == 1; }
    };

    std::atomic<std::uint32_t> flags{0};  // Flags

    NmbKDTree() = default;
    NmbKDTree(const NmbKDTree&) = delete;
    NmbKDTree& operator=(const NmbKDTree&) = delete;

    // --- What the primitives are. Called from the thread that builds, and by queries from any.

    /// The box of a primitive. Base: left as it is.
    virtual void GetBox(int index, Box& box) const;
    /// The point that stands for a primitive. Base: the middle of GetBox.
    virtual void GetPoint(Vector& point, int index) const;
    /// Squared distance from `point` to a primitive. Base: to its GetPoint.
    virtual float GetDistanceSq(int index, const Vector& point) const;
    /// Base: left as it is.
    virtual void GetOrientedBox(int index, OrientedBox& box) const;
    /// A hit within the ray's limits, at `time` of the motion from 0 to 1: shortens tMax to it and
    /// returns 1 where the ray enters, 2 where it leaves; else 0. Base: 0.
    virtual int Intersect(int index, Ray& ray, float time) const;
    /// The surface normal at a ray's hit. Base: (1, 0, 0).
    virtual void GetNormal(Vector& normal, int index, const Ray& ray) const;
    /// While dividing, `counter` growing to 65536; never called on two threads at once. Non-zero
    /// aborts the build. Base: 0.
    virtual int Progress(int counter);
    virtual int reserved();
    virtual ~NmbKDTree();
    /// GetPoint for `count` primitives at once. Base: asks for one after the other. A derived class
    /// that holds an array answers with a plain loop, whose fetches the processor overlaps.
    virtual void GetPoints(Vector* points, const int* indices, int count) const;

    // --- Building. On one thread, while no query runs.

    /// Builds over the primitives 0 to `count` - 1: as oriented boxes, else as points, else as
    /// boxes. `parallel`: the halves of the upper nodes are divided on threads of the global thread
    /// manager. Returns 1, or 0 without memory; 1 also after an abort, with kAborted set: then the
    /// tree may answer incompletely or slowly.
    int Build(int count, bool oriented, bool parallel, bool points);
    /// Frees everything.
    void Clear();

    // --- Queries. A control may be null where it is a pointer.

    /// The leaf on whose side of all dividing planes the point lies.
    const KDNode* FindPointLeaf(const Vector& point) const;
    /// Clears the result, then appends the primitives whose GetPoint lies closer to the centre than
    /// `radius`, each once. Without memory some are left out.
    void CollectSphere(const Vector& center, float radius, NmbArray<int>& result) const;
    /// Hands the same primitives to Accept, whose non-zero answer ends the traversal; then returns
    /// 1, otherwise 0. Boxes that lie in several leaves come once for each.
    int TraverseSphere(const Vector& center, float radius, TraverseControl& control) const;
    /// Up to `k` nearest primitives not farther than `maxDistance`, in no order; returns how many.
    /// `results` has room for k. Of the control only BeginLeaf and Skip are called.
    int FindNearest(const Vector& point, Neighbour* results, int k, float maxDistance,
                    TraverseControl* control = nullptr) const;
    /// The nearest accepted hit, or -1; its code goes to `hitCode` if that is given.
    int TraceRay(Ray& ray, TraverseControl* control, float time, int* hitCode = nullptr) const;
    /// The nearest GetPoint within a cone and its limits (tMin excluded), or -1. Accept is asked
    /// for every point near the axis, within the limits or not.
    int TraceCone(Ray& ray, TraverseControl* control) const;
    /// True where the first surface above the point (along +z) is left by a ray.
    bool IsInside(const Vector& point, float time) const;

    bool aborted() const { return (flags & kAborted) != 0; }
    const KDNode& root() const { return root_; }
    /// Of all primitives, a little grown; kEmptyMin and kEmptyMax without any.
    Box bounds() const;
    const Statistics& statistics() const { return statistics_; }

private:
    friend class KDBuilder;
    class MTDivide;
    class CB;
    class PointCollector;

    bool isEmpty() const { return root_.isLeaf() && root_.count == 0; }

    MBNode root_;  // oblique planes may divide it as well
    NodePool<KDNode> nodes_;
    NodePool<MBNode> mbNodes_;
    NmbArray<int> indexBuffer;  // all primitives; a point tree's leaves are slices of it

public:
    std::atomic<std::uint32_t> errorFlags{0};  // Errors
    std::atomic<int> degenerateCount{0};  // primitives that lie too close together to be divided

private:
    int progress = 0;  // what Progress is told
    int maxParallelDepth = -1;
    void* buildData = nullptr;  // during a build: what the primitives are
    std::mutex progressMutex_;
    Statistics statistics_;
    bool allNumbers_ = true;  // no point has a coordinate that isn't a number
};

}  // namespace NMBUtils
