// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Trees over simple primitives, and sets of points that are hard on a tree.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "foundation/kd_tree/kd_tree.h"
#include "support/lent_threads.h"

namespace NMBUtils::test {

using TessUtils::Vector;
using Box = NmbKDTree::Box;
using OrientedBox = NmbKDTree::OrientedBox;

/// Points, as they come.
class PointTree : public NmbKDTree {
public:
    explicit PointTree(std::vector<Vector> points) : points_(std::move(points)) {}
    int count() const { return static_cast<int>(points_.size()); }
    int build(bool parallel = false) { return Build(count(), false, parallel, true); }
    const Vector& point(int index) const { return points_[static_cast<std::size_t>(index)]; }

    void GetPoint(Vector& out, int index) const override { out = point(index); }
    int Progress(int counter) override { return progress ? progress(counter) : 0; }

    std::function<int(int)> progress;

private:
    std::vector<Vector> points_;
};

/// Axis-aligned boxes.
class BoxTree : public NmbKDTree {
public:
    explicit BoxTree(std::vector<Box> boxes) : boxes_(std::move(boxes)) {}
    int count() const { return static_cast<int>(boxes_.size()); }
    int build(bool parallel = false) { return Build(count(), false, parallel, false); }

    void GetBox(int index, Box& out) const override {
        out = boxes_[static_cast<std::size_t>(index)];
    }
    int Progress(int counter) override { return progress ? progress(counter) : 0; }

    std::function<int(int)> progress;

private:
    std::vector<Box> boxes_;
};

/// Spheres that may move along a straight line while the shutter is open: boxes, or oriented boxes
/// along the way.
class SphereTree : public NmbKDTree {
public:
    struct Sphere {
        Vector center;  // in the middle of the motion
        float radius = 1;
        Vector motion;  // from time 0 to time 1
    };

    explicit SphereTree(std::vector<Sphere> spheres) : spheres_(std::move(spheres)) {}
    int count() const { return static_cast<int>(spheres_.size()); }
    int build(bool oriented, bool parallel = false) {
        return Build(count(), oriented, parallel, false);
    }
    const Sphere& sphere(int index) const { return spheres_[static_cast<std::size_t>(index)]; }

    void GetBox(int index, Box& box) const override;
    void GetOrientedBox(int index, OrientedBox& box) const override;
    int Intersect(int index, Ray& ray, float time) const override;

private:
    std::vector<Sphere> spheres_;
};

/// A named set of points.
struct PointSet {
    std::string name;
    std::vector<Vector> points;
};

using Random = std::mt19937;
float uniform(Random& random, float low, float high);
Vector randomVector(Random& random, float low = -1, float high = 1);
std::vector<Vector> randomPoints(Random& random, int count, float low = -1, float high = 1);
/// Random, clustered, identical, collinear, flat, on a lattice, far from the origin, of all
/// magnitudes; and counts around the limits.
std::vector<PointSet> pointSets();
/// Boxes of all kinds of sizes around such points.
std::vector<Box> boxesAround(const std::vector<Vector>& points, float largest, Random& random);

/// All leaves, first children first.
std::vector<const KDNode*> leavesOf(const NmbKDTree& tree);

using nimbra::test::LentThreads;

}  // namespace NMBUtils::test
