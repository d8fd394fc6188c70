// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The search for surfaces, by Embree, as a module. Nothing else of the host knows of it.
#include <embree3/rtcore.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/surface_search.h"

namespace nimbra::host {

using TessUtils::ShadingContext;
using TessUtils::TracePoint;
using TessUtils::TraceRay;
using TessUtils::Transform;
using TessUtils::TriangleMesh;
using TessUtils::UserPrimitive;
using TessUtils::Vector;

namespace {

#ifdef NIMBRA_SANITIZED
/// Embree's own threads are built without the sanitizer, which would take them for races.
constexpr const char* kDeviceSettings = "threads=1";
#else
constexpr const char* kDeviceSettings = nullptr;
#endif

/// One geometry of the scene; its number is its place in the list of them.
struct Part {
    int object = 0;
    const TriangleMesh* mesh = nullptr;
    UserPrimitive* primitive = nullptr;
    Transform transform[2];
    // In world space at the start and the end; of an instance in object space, at [0] alone.
    const Vector* positions[2] = {nullptr, nullptr};
    const std::uint32_t* indices = nullptr;
    bool moving = false;
    bool instanced = false;

    /// Place of a vertex in the world.
    Vector corner(std::uint32_t index, float time) const;
};

/// A mesh that several instances show, in object space.
struct SharedMesh {
    RTCScene scene = nullptr;
    const Vector* positions = nullptr;
    const std::uint32_t* indices = nullptr;
};

/// What a query carries through Embree to the primitives.
struct Query {
    RTCIntersectContext base;  // first, so that Embree's pointer to it is one to the query
    const TraceRay* ray;
    ShadingContext* context;
    UserPrimitive::Hit hit;
};

/// Normals turn with the cofactors of the map, whatever its scale.
Vector transformNormal(const Transform& m, const Vector& n) {
    return cross(m.f[1], m.f[2]) * n.x + cross(m.f[2], m.f[0]) * n.y + cross(m.f[0], m.f[1]) * n.z;
}

double largest(const TracePoint& p) {
    return std::max({std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)});
}

Vector mix(const Vector& a, const Vector& b, float t) {
    return a * (1 - t) + b * t;
}

Vector Part::corner(std::uint32_t index, float time) const {
    if (!instanced)
        return moving ? mix(positions[0][index], positions[1][index], time) : positions[0][index];
    const TracePoint p = toPoint(positions[0][index]);
    const Vector start = toVector(transform[0].applyPoint(p));
    return moving ? mix(start, toVector(transform[1].applyPoint(p)), time) : start;
}

/// Triangles whose corners all exist.
std::vector<std::uint32_t> validTriangles(const TriangleMesh& mesh) {
    const std::size_t count = mesh.positions.size();
    std::vector<std::uint32_t> valid;
    valid.reserve(mesh.indices.size());
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const std::uint32_t* corner = &mesh.indices[i];
        if (corner[0] < count && corner[1] < count && corner[2] < count)
            valid.insert(valid.end(), corner, corner + 3);
    }
    return valid;
}

void primitiveBounds(const RTCBoundsFunctionArguments* args) {
    const Part& part = *static_cast<const Part*>(args->geometryUserPtr);
    TracePoint low, high;
    part.primitive->worldBounds(low, high);
    // One step outwards, since the limits are rounded to single precision.
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    float* lower = &args->bounds_o->lower_x;
    float* upper = &args->bounds_o->upper_x;
    for (int axis = 0; axis < 3; ++axis) {
        lower[axis] = std::nextafter(static_cast<float>(low[axis]), -kInfinity);
        upper[axis] = std::nextafter(static_cast<float>(high[axis]), kInfinity);
    }
}

UserPrimitive::Hit askPrimitive(const Part& part, Query& query, float tnear, float tfar) {
    TraceRay ray = *query.ray;
    ray.mint = std::max<double>(ray.mint, tnear);
    ray.maxt = std::min<double>(ray.maxt, tfar);
    return part.primitive->intersect(ray, *query.context);
}

void primitiveIntersect(const RTCIntersectFunctionNArguments* args) {
    if (!args->valid[0])
        return;
    const Part& part = *static_cast<const Part*>(args->geometryUserPtr);
    Query& query = *reinterpret_cast<Query*>(args->context);
    RTCRayHit& rayHit = *reinterpret_cast<RTCRayHit*>(args->rayhit);
    const UserPrimitive::Hit hit = askPrimitive(part, query, rayHit.ray.tnear, rayHit.ray.tfar);
    if (!hit.valid || !(hit.t <= rayHit.ray.tfar))
        return;
    query.hit = hit;
    rayHit.ray.tfar = static_cast<float>(hit.t);
    rayHit.hit.geomID = args->geomID;
    rayHit.hit.primID = 0;
    rayHit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
}

void primitiveOccluded(const RTCOccludedFunctionNArguments* args) {
    if (!args->valid[0])
        return;
    const Part& part = *static_cast<const Part*>(args->geometryUserPtr);
    Query& query = *reinterpret_cast<Query*>(args->context);
    RTCRay& ray = *reinterpret_cast<RTCRay*>(args->ray);
    if (askPrimitive(part, query, ray.tnear, ray.tfar).valid)
        ray.tfar = -std::numeric_limits<float>::infinity();
}

RTCRay toEmbree(const TraceRay& ray) {
    RTCRay r{};
    r.org_x = static_cast<float>(ray.p.x);
    r.org_y = static_cast<float>(ray.p.y);
    r.org_z = static_cast<float>(ray.p.z);
    r.dir_x = ray.dir.x;
    r.dir_y = ray.dir.y;
    r.dir_z = ray.dir.z;
    r.tnear = static_cast<float>(std::max(ray.mint, 0.0));
    r.tfar = static_cast<float>(ray.maxt);
    r.time = std::clamp(ray.time, 0.0f, 1.0f);
    r.mask = ~0U;
    return r;
}

bool isFinite(const TraceRay& ray) {
    return std::isfinite(ray.p.x + ray.p.y + ray.p.z) &&
           std::isfinite(ray.dir.x + ray.dir.y + ray.dir.z) && ray.mint < ray.maxt;
}

class EmbreeSearch final : public SurfaceSearch {
public:
    EmbreeSearch();
    ~EmbreeSearch() override;
    void clear() override;
    void addMesh(const TriangleMesh& mesh, const Transform& start, const Transform& end,
                 int object) override;
    void addInstance(const TriangleMesh& mesh, const Transform& start, const Transform& end,
                     int object) override;
    void addPrimitive(UserPrimitive& primitive, int object) override;
    void commit() override;
    bool empty() const override { return parts_.empty(); }
    bool intersect(const TraceRay& ray, ShadingContext& context, SurfaceHit& hit) const override;
    bool occluded(const TraceRay& ray, ShadingContext& context) const override;

private:
    /// Turns what Embree noted of this thread into an exception.
    void check(const char* what) const {
        const RTCError error = rtcGetDeviceError(device_.get());
        if (error == RTC_ERROR_OUT_OF_MEMORY)
            throw std::bad_alloc();
        if (error != RTC_ERROR_NONE)
            throw std::runtime_error(std::string("geometry: ") + what + " failed (Embree error " +
                                     std::to_string(static_cast<int>(error)) + ")");
    }
    void attach(RTCGeometry geometry, std::unique_ptr<Part> part) {
        const auto number = static_cast<unsigned>(parts_.size());
        parts_.push_back(std::move(part));
        rtcCommitGeometry(geometry);
        rtcAttachGeometryByID(scene_, geometry, number);
        rtcReleaseGeometry(geometry);
        check("adding an object");
    }
    const Vector* storeVertices(RTCGeometry geometry, unsigned step, const TriangleMesh& mesh,
                                const Transform& transform) const {
        auto* places = static_cast<Vector*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, step, RTC_FORMAT_FLOAT3,
                                    sizeof(Vector), mesh.positions.size()));
        check("storing vertices");
        for (std::size_t i = 0; i < mesh.positions.size(); ++i)
            places[i] = toVector(transform.applyPoint(toPoint(mesh.positions[i])));
        return places;
    }
    const std::uint32_t* storeTriangles(RTCGeometry geometry,
                                        const std::vector<std::uint32_t>& corners) const {
        auto* indices = static_cast<std::uint32_t*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                    3 * sizeof(std::uint32_t), corners.size() / 3));
        check("storing triangles");
        std::copy(corners.begin(), corners.end(), indices);
        return indices;
    }
    /// The mesh as a scene of its own, without one where it has no triangles.
    const SharedMesh& share(const TriangleMesh& mesh);
    void release();

    const std::unique_ptr<RTCDeviceTy, decltype(&rtcReleaseDevice)> device_;
    RTCScene scene_ = nullptr;
    std::vector<std::unique_ptr<Part>> parts_;
    std::unordered_map<const TriangleMesh*, SharedMesh> shared_;
};

const SharedMesh& EmbreeSearch::share(const TriangleMesh& mesh) {
    const auto [entry, isNew] = shared_.try_emplace(&mesh);
    SharedMesh& result = entry->second;
    const std::vector<std::uint32_t> triangles =
        isNew ? validTriangles(mesh) : std::vector<std::uint32_t>();
    if (triangles.empty())
        return result;
    RTCGeometry geometry = rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_TRIANGLE);
    result.positions = storeVertices(geometry, 0, mesh, {});
    result.indices = storeTriangles(geometry, triangles);
    rtcCommitGeometry(geometry);
    result.scene = rtcNewScene(device_.get());
    rtcSetSceneFlags(result.scene, RTC_SCENE_FLAG_ROBUST);
    rtcAttachGeometry(result.scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(result.scene);
    check("building the search tree");
    return result;
}

void EmbreeSearch::release() {
    if (scene_)
        rtcReleaseScene(scene_);
    scene_ = nullptr;
    for (const auto& entry : shared_)
        if (entry.second.scene)
            rtcReleaseScene(entry.second.scene);
    shared_.clear();
    parts_.clear();
}

EmbreeSearch::EmbreeSearch() : device_(rtcNewDevice(kDeviceSettings), rtcReleaseDevice) {
    if (!device_)
        throw std::runtime_error("geometry: Embree could not start");
    clear();
}

EmbreeSearch::~EmbreeSearch() {
    release();
}

void EmbreeSearch::clear() {
    release();
    scene_ = rtcNewScene(device_.get());
    rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    check("making a scene");
}

void EmbreeSearch::addMesh(const TriangleMesh& mesh, const Transform& start, const Transform& end,
                           int object) {
    const std::vector<std::uint32_t> triangles = validTriangles(mesh);
    if (triangles.empty())
        return;
    auto part = std::make_unique<Part>();
    part->object = object;
    part->mesh = &mesh;
    part->transform[0] = start;
    part->transform[1] = end;
    part->moving = !(start == end);

    RTCGeometry geometry = rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_TRIANGLE);
    const unsigned steps = part->moving ? 2 : 1;
    rtcSetGeometryTimeStepCount(geometry, steps);
    for (unsigned step = 0; step < steps; ++step)
        part->positions[step] = storeVertices(geometry, step, mesh, part->transform[step]);
    part->indices = storeTriangles(geometry, triangles);
    attach(geometry, std::move(part));
}

void EmbreeSearch::addInstance(const TriangleMesh& mesh, const Transform& start,
                               const Transform& end, int object) {
    const SharedMesh& shared = share(mesh);
    if (!shared.scene)
        return;
    auto part = std::make_unique<Part>();
    part->object = object;
    part->mesh = &mesh;
    part->transform[0] = start;
    part->transform[1] = end;
    part->positions[0] = shared.positions;
    part->indices = shared.indices;
    part->moving = !(start == end);
    part->instanced = true;

    RTCGeometry geometry = rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(geometry, shared.scene);
    const unsigned steps = part->moving ? 2 : 1;
    rtcSetGeometryTimeStepCount(geometry, steps);
    for (unsigned step = 0; step < steps; ++step) {
        const Transform& m = part->transform[step];
        const Vector columns[4] = {m.f[0], m.f[1], m.f[2], toVector(m.offs)};
        rtcSetGeometryTransform(geometry, step, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, columns);
    }
    attach(geometry, std::move(part));
}

void EmbreeSearch::addPrimitive(UserPrimitive& primitive, int object) {
    auto part = std::make_unique<Part>();
    part->object = object;
    part->primitive = &primitive;
    RTCGeometry geometry = rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_USER);
    rtcSetGeometryUserPrimitiveCount(geometry, 1);
    rtcSetGeometryUserData(geometry, part.get());
    rtcSetGeometryBoundsFunction(geometry, primitiveBounds, nullptr);
    rtcSetGeometryIntersectFunction(geometry, primitiveIntersect);
    rtcSetGeometryOccludedFunction(geometry, primitiveOccluded);
    attach(geometry, std::move(part));
}

void EmbreeSearch::commit() {
    rtcCommitScene(scene_);
    check("building the search tree");
}

void describeTriangle(const Part& part, const RTCRayHit& found, const TraceRay& ray,
                      SurfaceHit& hit) {
    const std::uint32_t* corner = part.indices + 3 * std::size_t(found.hit.primID);
    Vector p[3];
    for (int i = 0; i < 3; ++i)
        p[i] = part.corner(corner[i], found.ray.time);
    // From the corners: far more exact than along the ray.
    const double u = found.hit.u, v = found.hit.v, w = 1 - u - v;
    hit.position = toPoint(p[0]) * w + toPoint(p[1]) * u + toPoint(p[2]) * v;
    hit.extent = largest(hit.position);
    for (const Vector& place : p)
        hit.extent = std::max(hit.extent, largest(toPoint(place)));
    const TracePoint way = hit.position - ray.p;
    hit.t = way.x * ray.dir.x + way.y * ray.dir.y + way.z * ray.dir.z;
    hit.geometricNormal = normalize(cross(p[1] - p[0], p[2] - p[0]));
    hit.normal = hit.geometricNormal;

    const TriangleMesh& mesh = *part.mesh;
    const float weights[3] = {static_cast<float>(w), found.hit.u, found.hit.v};
    if (mesh.normals.size() == mesh.positions.size()) {
        Vector n;
        for (int i = 0; i < 3; ++i)
            n += mesh.normals[corner[i]] * weights[i];
        const int step = part.moving && found.ray.time >= 0.5f ? 1 : 0;
        n = normalize(transformNormal(part.transform[step], n));
        if (dot(n, n) > 0.5f)
            hit.normal = dot(n, hit.geometricNormal) < 0 ? -n : n;
    }
    hit.hasUVW = mesh.uvw.size() == mesh.positions.size();
    hit.uvw = {};
    if (hit.hasUVW)
        for (int i = 0; i < 3; ++i)
            hit.uvw += mesh.uvw[corner[i]] * weights[i];
}

bool EmbreeSearch::intersect(const TraceRay& ray, ShadingContext& context, SurfaceHit& hit) const {
    if (empty() || !isFinite(ray))
        return false;
    Query query{{}, &ray, &context, {}};
    rtcInitIntersectContext(&query.base);
    RTCRayHit found{toEmbree(ray), {}};
    found.hit.geomID = found.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &query.base, &found);
    if (found.hit.geomID == RTC_INVALID_GEOMETRY_ID)
        return false;

    const bool instanced = found.hit.instID[0] != RTC_INVALID_GEOMETRY_ID;
    const Part& part = *parts_[instanced ? found.hit.instID[0] : found.hit.geomID];
    hit.object = part.object;
    hit.primitive = part.primitive;
    if (!part.primitive) {
        describeTriangle(part, found, ray, hit);
        return true;
    }
    hit.primitiveHit = query.hit;
    hit.t = query.hit.t;
    hit.position = ray.p + toPoint(ray.dir) * hit.t;
    hit.extent = std::max(largest(hit.position), hit.t);
    hit.geometricNormal = hit.normal = normalize(query.hit.normal);
    hit.hasUVW = false;
    return true;
}

bool EmbreeSearch::occluded(const TraceRay& ray, ShadingContext& context) const {
    if (empty() || !isFinite(ray))
        return false;
    Query query{{}, &ray, &context, {}};
    rtcInitIntersectContext(&query.base);
    RTCRay r = toEmbree(ray);
    rtcOccluded1(scene_, &query.base, &r);
    return r.tfar < 0;
}

}  // namespace

SurfaceSearch* nimbraNewSurfaceSearch() {
    return new EmbreeSearch;
}

}  // namespace nimbra::host
