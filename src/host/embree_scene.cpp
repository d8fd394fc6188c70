// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The search for surfaces, by Embree. Nothing else of the host knows of it.
#include <embree3/rtcore.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/surface_scene.h"

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

/// One geometry of the scene; its number is its place in State::parts.
struct Part {
    int object = 0;
    const TriangleMesh* mesh = nullptr;
    UserPrimitive* primitive = nullptr;
    Transform transform[2];
    const Vector* positions[2] = {nullptr, nullptr};  // in world space
    const std::uint32_t* indices = nullptr;
    bool moving = false;
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

}  // namespace

struct SurfaceScene::State {
    RTCDevice device = nullptr;
    RTCScene scene = nullptr;
    std::vector<std::unique_ptr<Part>> parts;

    ~State() {
        if (scene)
            rtcReleaseScene(scene);
        if (device)
            rtcReleaseDevice(device);
    }
    /// Turns what Embree noted of this thread into an exception.
    void check(const char* what) const {
        const RTCError error = rtcGetDeviceError(device);
        if (error == RTC_ERROR_OUT_OF_MEMORY)
            throw std::bad_alloc();
        if (error != RTC_ERROR_NONE)
            throw std::runtime_error(std::string("geometry: ") + what + " failed (Embree error " +
                                     std::to_string(static_cast<int>(error)) + ")");
    }
    void attach(RTCGeometry geometry, unsigned number) const {
        rtcCommitGeometry(geometry);
        rtcAttachGeometryByID(scene, geometry, number);
        rtcReleaseGeometry(geometry);
        check("adding an object");
    }
};

SurfaceScene::SurfaceScene() : state_(std::make_unique<State>()) {
    state_->device = rtcNewDevice(kDeviceSettings);
    if (!state_->device)
        throw std::runtime_error("geometry: Embree could not start");
    clear();
}

SurfaceScene::~SurfaceScene() = default;

void SurfaceScene::clear() {
    if (state_->scene)
        rtcReleaseScene(state_->scene);
    state_->parts.clear();
    state_->scene = rtcNewScene(state_->device);
    rtcSetSceneFlags(state_->scene, RTC_SCENE_FLAG_ROBUST);
    state_->check("making a scene");
}

void SurfaceScene::addMesh(const TriangleMesh& mesh, const Transform& start, const Transform& end,
                           int object) {
    auto part = std::make_unique<Part>();
    part->object = object;
    part->mesh = &mesh;
    part->transform[0] = start;
    part->transform[1] = end;
    part->moving = !(start == end);

    const std::size_t count = mesh.positions.size();
    std::vector<std::uint32_t> valid;
    valid.reserve(mesh.indices.size());
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const std::uint32_t* corner = &mesh.indices[i];
        if (corner[0] < count && corner[1] < count && corner[2] < count)
            valid.insert(valid.end(), corner, corner + 3);
    }
    if (valid.empty())
        return;

    RTCGeometry geometry = rtcNewGeometry(state_->device, RTC_GEOMETRY_TYPE_TRIANGLE);
    const int steps = part->moving ? 2 : 1;
    rtcSetGeometryTimeStepCount(geometry, static_cast<unsigned>(steps));
    for (int step = 0; step < steps; ++step) {
        auto* places = static_cast<Vector*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, static_cast<unsigned>(step),
                                    RTC_FORMAT_FLOAT3, sizeof(Vector), count));
        state_->check("storing vertices");
        for (std::size_t i = 0; i < count; ++i)
            places[i] = toVector(part->transform[step].applyPoint(toPoint(mesh.positions[i])));
        part->positions[step] = places;
    }
    auto* indices = static_cast<std::uint32_t*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                3 * sizeof(std::uint32_t), valid.size() / 3));
    state_->check("storing triangles");
    std::copy(valid.begin(), valid.end(), indices);
    part->indices = indices;

    state_->parts.push_back(std::move(part));
    state_->attach(geometry, static_cast<unsigned>(state_->parts.size() - 1));
}

void SurfaceScene::addPrimitive(UserPrimitive& primitive, int object) {
    auto part = std::make_unique<Part>();
    part->object = object;
    part->primitive = &primitive;
    RTCGeometry geometry = rtcNewGeometry(state_->device, RTC_GEOMETRY_TYPE_USER);
    rtcSetGeometryUserPrimitiveCount(geometry, 1);
    rtcSetGeometryUserData(geometry, part.get());
    rtcSetGeometryBoundsFunction(geometry, primitiveBounds, nullptr);
    rtcSetGeometryIntersectFunction(geometry, primitiveIntersect);
    rtcSetGeometryOccludedFunction(geometry, primitiveOccluded);
    state_->parts.push_back(std::move(part));
    state_->attach(geometry, static_cast<unsigned>(state_->parts.size() - 1));
}

void SurfaceScene::commit() {
    rtcCommitScene(state_->scene);
    state_->check("building the search tree");
}

bool SurfaceScene::empty() const {
    return state_->parts.empty();
}

namespace {

void describeTriangle(const Part& part, const RTCRayHit& found, const TraceRay& ray,
                      SurfaceHit& hit) {
    const std::uint32_t* corner = part.indices + 3 * std::size_t(found.hit.primID);
    Vector p[3];
    for (int i = 0; i < 3; ++i) {
        p[i] = part.positions[0][corner[i]];
        if (part.moving)
            p[i] = mix(p[i], part.positions[1][corner[i]], found.ray.time);
    }
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

}  // namespace

bool SurfaceScene::intersect(const TraceRay& ray, ShadingContext& context, SurfaceHit& hit) const {
    if (empty() || !isFinite(ray))
        return false;
    Query query{{}, &ray, &context, {}};
    rtcInitIntersectContext(&query.base);
    RTCRayHit found{toEmbree(ray), {}};
    found.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(state_->scene, &query.base, &found);
    if (found.hit.geomID == RTC_INVALID_GEOMETRY_ID)
        return false;

    const Part& part = *state_->parts[found.hit.geomID];
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

bool SurfaceScene::occluded(const TraceRay& ray, ShadingContext& context) const {
    if (empty() || !isFinite(ray))
        return false;
    Query query{{}, &ray, &context, {}};
    rtcInitIntersectContext(&query.base);
    RTCRay r = toEmbree(ray);
    rtcOccluded1(state_->scene, &query.base, &r);
    return r.tfar < 0;
}

}  // namespace nimbra::host
