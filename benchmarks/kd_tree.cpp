// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The spatial index against others over the same points and triangles: a division by the median, a
// library of point trees, and a library of ray tracing. The label names the set; compare the rates
// of one run.
#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <nanoflann.hpp>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "foundation/kd_tree/kd_tree.h"
#include "foundation/parallel.h"
#include "tessra/thread_manager.h"

namespace {

using NMBUtils::KDRay;
using NMBUtils::NmbKDTree;
using TessUtils::Vector;

constexpr int kPoints = 1000000;
constexpr int kQueries = 20000;
constexpr int kNearest = 8;
constexpr int kLeafPoints = 31;  // the most in a leaf of ours

// --- Points --------------------------------------------------------------------------------------

float uniform(std::mt19937& random, float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
}

Vector randomVector(std::mt19937& random, float low, float high) {
    const float x = uniform(random, low, high);
    const float y = uniform(random, low, high);
    const float z = uniform(random, low, high);
    return {x, y, z};
}

/// Spread evenly (0), or in clusters of all sizes (1).
const std::vector<Vector>& points(int kind) {
    static const std::array<std::vector<Vector>, 2> sets = [] {
        std::array<std::vector<Vector>, 2> made;
        std::mt19937 random(1);
        std::vector<Vector> centers(300);
        for (Vector& center : centers)
            center = randomVector(random, 0, 100);
        for (int i = 0; i < kPoints; ++i) {
            made[0].push_back(randomVector(random, 0, 100));
            const Vector& center = centers[random() % centers.size()];
            const float size = 10.0f / static_cast<float>(1 + random() % 20);
            made[1].push_back(center + randomVector(random, -size, size));
        }
        return made;
    }();
    return sets[static_cast<std::size_t>(kind)];
}

/// Places near the points, so that there is something to find.
std::vector<Vector> queries(int kind) {
    std::mt19937 random(2);
    std::vector<Vector> places;
    for (int i = 0; i < kQueries; ++i)
        places.push_back(points(kind)[random() % kPoints] + randomVector(random, -0.5f, 0.5f));
    return places;
}

/// Holds about 30 of the evenly spread points.
constexpr float kRadius = 1.93f;

class PointTree : public NmbKDTree {
public:
    explicit PointTree(const std::vector<Vector>& points) : points_(points) {}
    void GetPoint(Vector& point, int index) const override {
        point = points_[static_cast<std::size_t>(index)];
    }
    void GetPoints(Vector* points, const int* indices, int count) const override {
        for (int i = 0; i < count; ++i)
            points[i] = points_[static_cast<std::size_t>(indices[i])];
    }
    float GetDistanceSq(int index, const Vector& point) const override {
        const Vector apart = points_[static_cast<std::size_t>(index)] - point;
        return TessUtils::dot(apart, apart);
    }

private:
    const std::vector<Vector>& points_;
};

/// The points as the other library wants them.
struct Cloud {
    const std::vector<Vector>& points;

    std::size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(std::size_t index, std::size_t axis) const {
        return (&points[index].x)[axis];
    }
    template <class Bounds>
    bool kdtree_get_bbox(Bounds&) const {
        return false;
    }
};
using OtherTree =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3, int>;

void setLabel(benchmark::State& state, int kind) {
    state.SetLabel(kind == 0 ? "even" : "clustered");
}

/// Arguments: set, threads.
void BuildPoints(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const int threads = static_cast<int>(state.range(1));
    TessUtils::ThreadManager* const manager = TessUtils::newThreadManager(threads);
    NMBUtils::setGlobalThreadManager(manager);
    PointTree tree(points(kind));
    for (auto _ : state)
        benchmark::DoNotOptimize(tree.Build(kPoints, false, threads > 1, true));
    NMBUtils::releaseGlobalThreadManager();
    TessUtils::deleteThreadManager(manager);
    state.counters["depth"] = tree.statistics().deepestLeaf;
    setLabel(state, kind);
}
BENCHMARK(BuildPoints)->ArgsProduct({{0, 1}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

/// Halves the points at the median of their longest side until few are left.
int divideByMedian(const std::vector<Vector>& all, int* list, int count, int depth) {
    if (count <= kLeafPoints)
        return depth;
    Vector low = all[static_cast<std::size_t>(list[0])];
    Vector high = low;
    for (int i = 1; i < count; ++i) {
        const Vector& point = all[static_cast<std::size_t>(list[i])];
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], point[k]);
            high[k] = std::max(high[k], point[k]);
        }
    }
    int axis = 0;
    for (int k = 1; k < 3; ++k) {
        if (high[k] - low[k] > high[axis] - low[axis])
            axis = k;
    }
    const int half = count / 2;
    std::nth_element(list, list + half, list + count, [&](int a, int b) {
        return (&all[static_cast<std::size_t>(a)].x)[axis] <
               (&all[static_cast<std::size_t>(b)].x)[axis];
    });
    return std::max(divideByMedian(all, list, half, depth + 1),
                    divideByMedian(all, list + half, count - half, depth + 1));
}

void BuildByMedian(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    std::vector<int> list(kPoints);
    int depth = 0;
    for (auto _ : state) {
        std::iota(list.begin(), list.end(), 0);
        depth = divideByMedian(points(kind), list.data(), kPoints, 0);
    }
    state.counters["depth"] = depth;
    setLabel(state, kind);
}
BENCHMARK(BuildByMedian)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Arguments: set, points in a leaf.
void BuildOther(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const Cloud cloud{points(kind)};
    for (auto _ : state)
        OtherTree(3, cloud, {static_cast<std::size_t>(state.range(1))});
    setLabel(state, kind);
}
BENCHMARK(BuildOther)
    ->ArgsProduct({{0, 1}, {10, kLeafPoints}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void Nearest(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    PointTree tree(points(kind));
    tree.Build(kPoints, false, false, true);
    const std::vector<Vector> places = queries(kind);
    NmbKDTree::Neighbour found[kNearest];
    for (auto _ : state) {
        for (const Vector& place : places)
            benchmark::DoNotOptimize(tree.FindNearest(place, found, kNearest, 1e18f));
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    setLabel(state, kind);
}
BENCHMARK(Nearest)->Arg(0)->Arg(1);

void NearestOther(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const Cloud cloud{points(kind)};
    const OtherTree tree(3, cloud, {static_cast<std::size_t>(state.range(1))});
    const std::vector<Vector> places = queries(kind);
    int indices[kNearest];
    float distances[kNearest];
    for (auto _ : state) {
        for (const Vector& place : places)
            benchmark::DoNotOptimize(tree.knnSearch(&place.x, kNearest, indices, distances));
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    setLabel(state, kind);
}
BENCHMARK(NearestOther)->ArgsProduct({{0, 1}, {10, kLeafPoints}});

void Radius(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    PointTree tree(points(kind));
    tree.Build(kPoints, false, false, true);
    const std::vector<Vector> places = queries(kind);
    NMBUtils::NmbArray<int> found;
    std::int64_t total = 0;
    for (auto _ : state) {
        for (const Vector& place : places) {
            tree.CollectSphere(place, kRadius, found);
            total += found.size;
        }
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    state.counters["found"] =
        static_cast<double>(total) / static_cast<double>(state.iterations() * kQueries);
    setLabel(state, kind);
}
BENCHMARK(Radius)->Arg(0)->Arg(1);

void RadiusOther(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const Cloud cloud{points(kind)};
    const OtherTree tree(3, cloud, {static_cast<std::size_t>(state.range(1))});
    const std::vector<Vector> places = queries(kind);
    std::vector<std::pair<int, float>> found;
    const nanoflann::SearchParams unsorted(32, 0, false);
    std::int64_t total = 0;
    for (auto _ : state) {
        for (const Vector& place : places)
            total += static_cast<std::int64_t>(
                tree.radiusSearch(&place.x, kRadius * kRadius, found, unsorted));
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    state.counters["found"] =
        static_cast<double>(total) / static_cast<double>(state.iterations() * kQueries);
    setLabel(state, kind);
}
BENCHMARK(RadiusOther)->ArgsProduct({{0, 1}, {10, kLeafPoints}});

// --- Triangles -----------------------------------------------------------------------------------

/// A wavy ground of 200,000 triangles.
struct Mesh {
    std::vector<Vector> vertices;
    std::vector<std::array<unsigned, 3>> triangles;

    Mesh() {
        constexpr unsigned kRow = 317;
        for (unsigned i = 0; i < kRow * kRow; ++i) {
            const auto x = static_cast<float>(i % kRow);
            const auto y = static_cast<float>(i / kRow);
            vertices.push_back(
                {x, y, 8 * std::sin(x * 0.11f) * std::cos(y * 0.07f) + std::sin(x * y * 0.01f)});
            if (i % kRow + 1 < kRow && i / kRow + 1 < kRow) {
                triangles.push_back({i, i + 1, i + kRow});
                triangles.push_back({i + 1, i + kRow + 1, i + kRow});
            }
        }
    }
};

const Mesh& mesh() {
    static const Mesh made;
    return made;
}

class MeshTree : public NmbKDTree {
public:
    void GetBox(int index, Box& box) const override {
        box.min = box.max = corner(index, 0);
        for (int c = 1; c < 3; ++c) {
            for (int k = 0; k < 3; ++k) {
                box.min[k] = std::min(box.min[k], corner(index, c)[k]);
                box.max[k] = std::max(box.max[k], corner(index, c)[k]);
            }
        }
    }
    int Intersect(int index, Ray& ray, float) const override {
        const Vector& a = corner(index, 0);
        const Vector ab = corner(index, 1) - a;
        const Vector ac = corner(index, 2) - a;
        const Vector normal = TessUtils::cross(ab, ac);
        const Vector offset = ray.origin - a;
        const Vector turned = TessUtils::cross(ray.direction, offset);
        const float volume = -TessUtils::dot(ray.direction, normal);
        const float scale = 1 / volume;
        const float u = -TessUtils::dot(ac, turned) * scale;
        const float v = TessUtils::dot(ab, turned) * scale;
        const float t = TessUtils::dot(offset, normal) * scale;
        if (!(u >= 0 && v >= 0 && u + v <= 1 && t >= ray.tMin && t <= ray.tMax))
            return 0;
        ray.tMax = t;
        return volume > 0 ? 1 : 2;
    }

private:
    static const Vector& corner(int index, int which) {
        const auto& triangle = mesh().triangles[static_cast<std::size_t>(index)];
        return mesh().vertices[triangle[static_cast<std::size_t>(which)]];
    }
};

/// Towards a place on the ground, from above or (every other one) almost level.
std::vector<std::pair<Vector, Vector>> rays() {
    std::mt19937 random(3);
    std::vector<std::pair<Vector, Vector>> made;
    for (int i = 0; i < kQueries; ++i) {
        const Vector from{uniform(random, -50, 366), uniform(random, -50, 366),
                          i % 2 ? 200.0f : 15.0f};
        const Vector to{uniform(random, 10, 306), uniform(random, 10, 306), 0};
        made.emplace_back(from, TessUtils::normalize(to - from));
    }
    return made;
}

void BuildMesh(benchmark::State& state) {
    const auto count = static_cast<int>(mesh().triangles.size());
    MeshTree tree;
    for (auto _ : state)
        benchmark::DoNotOptimize(tree.Build(count, false, false, false));
    state.counters["entries"] = static_cast<double>(tree.statistics().leafPrimitives) / count;
}
BENCHMARK(BuildMesh)->Unit(benchmark::kMillisecond);

void TraceMesh(benchmark::State& state) {
    MeshTree tree;
    tree.Build(static_cast<int>(mesh().triangles.size()), false, false, false);
    const auto all = rays();
    std::int64_t hits = 0;
    for (auto _ : state) {
        for (const auto& [origin, direction] : all) {
            KDRay ray(origin, direction);
            hits += tree.TraceRay(ray, nullptr, 0) >= 0;
        }
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    state.counters["hits"] =
        static_cast<double>(hits) / static_cast<double>(state.iterations() * kQueries);
}
BENCHMARK(TraceMesh);

void TraceMeshOther(benchmark::State& state) {
    const RTCDevice device = rtcNewDevice("threads=1,user_threads=1");
    const RTCScene scene = rtcNewScene(device);
    const RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    std::copy(mesh().vertices.begin(), mesh().vertices.end(),
              static_cast<Vector*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                           RTC_FORMAT_FLOAT3, sizeof(Vector),
                                                           mesh().vertices.size())));
    std::copy(mesh().triangles.begin(), mesh().triangles.end(),
              static_cast<std::array<unsigned, 3>*>(rtcSetNewGeometryBuffer(
                  geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                  sizeof(std::array<unsigned, 3>), mesh().triangles.size())));
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    const auto all = rays();
    std::int64_t hits = 0;
    for (auto _ : state) {
        for (const auto& [origin, direction] : all) {
            RTCRayHit ray{};
            ray.ray.org_x = origin.x;
            ray.ray.org_y = origin.y;
            ray.ray.org_z = origin.z;
            ray.ray.dir_x = direction.x;
            ray.ray.dir_y = direction.y;
            ray.ray.dir_z = direction.z;
            ray.ray.tfar = 1e18f;
            ray.ray.mask = ~0u;
            ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            RTCIntersectContext context;
            rtcInitIntersectContext(&context);
            rtcIntersect1(scene, &context, &ray);
            hits += ray.hit.geomID != RTC_INVALID_GEOMETRY_ID;
        }
    }
    state.SetItemsProcessed(state.iterations() * kQueries);
    state.counters["hits"] =
        static_cast<double>(hits) / static_cast<double>(state.iterations() * kQueries);
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
}
BENCHMARK(TraceMeshOther);

}  // namespace

BENCHMARK_MAIN();
