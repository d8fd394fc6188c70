// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Finds the volumes that a ray meets and cuts the ray into segments.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <new>

#include "volume/gizmo_split.h"
#include "volume/march.h"

namespace nimbra {

using NMBUtils::Matrix34;
using TessUtils::TracePoint;

namespace {

/// From this many shaders on a tree pays for itself.
constexpr int kTreeThreshold = 11;
/// Up to here the answers of the tree fit on the stack.
constexpr int kStackEntries = 1024;

/// 1 / x, kept finite for an axis that the ray runs across.
float boundedInverse(float x) {
    constexpr float kLimit = 1e18f;
    return std::clamp(1.0f / x, -kLimit, kLimit);
}

/// The ray in the grid space of a shader; false for a grid without extent.
bool carryIntoGrid(RayBlock& ray, const Matrix34& gridFromWorld, const WorldRay& world) {
    ray.origin = toVector(gridFromWorld.applyPoint(world.origin));
    ray.dir = toVector(gridFromWorld.applyVector(world.dir));
    ray.signMask = 0;
    for (int axis = 0; axis < 3; ++axis) {
        ray.invDir[axis] = boundedInverse(ray.dir[axis]);
        ray.signMask |= std::signbit(ray.invDir[axis]) ? 1u << axis : 0u;
    }
    ray.mint = 0;
    ray.maxt = world.length;
    const float squared = dot(ray.dir, ray.dir);
    return squared > 0.0f && std::isfinite(squared);
}

/// Slab test; cuts the ray to the box. T. Kay, J. Kajiya, SIGGRAPH 1986.
bool cutToBox(RayBlock& ray, const TessUtils::Vector& low, const TessUtils::Vector& high) {
    for (int axis = 0; axis < 3; ++axis) {
        const bool negative = (ray.signMask >> axis & 1u) != 0;
        const float nearPlane = negative ? high[axis] : low[axis];
        const float farPlane = negative ? low[axis] : high[axis];
        const float entry = (nearPlane - ray.origin[axis]) * ray.invDir[axis];
        const float exit = (farPlane - ray.origin[axis]) * ray.invDir[axis];
        ray.mint = entry > ray.mint ? entry : ray.mint;
        ray.maxt = exit < ray.maxt ? exit : ray.maxt;
    }
    return ray.mint <= ray.maxt * 1.000001f && ray.maxt - ray.mint >= 1e-6f;
}

bool takesPart(const RayData& rayData, const VolumeShader& shader) {
    if (!rayData.wantColor && (shader.visibility & kNoShadow) != 0)
        return false;
    return (shader.visibility & rayData.illuminator->exclusionMask) == 0;
}

/// Adds the segments of rayData.shader, whose box rayData.ray is cut to.
void addShader(RayData& rayData, const WorldRay& world) {
    const VolumeShader& shader = *rayData.shader;
    Illuminator& illuminator = *rayData.illuminator;
    if (!takesPart(rayData, shader))
        return;
    illuminator.selectShader(shader);
    if ((illuminator.kind & kKindOwnShader) != 0)
        rayData.selfRay = true;
    const bool onlyGI = (illuminator.kind & (kKindGI | kKindAlwaysVisible)) == kKindGI;
    if (onlyGI && (shader.visibility & kVisibleInGI) == 0)
        return;
    if (shader.gizmo)
        splitByGizmo(rayData, world);
    else
        addSegment(rayData);
}

void addEachShader(RayData& rayData, const ShadeQuery& query, const WorldRay& world) {
    for (int i = 0; i < query.count; ++i) {
        rayData.shader = query.shaders[i];
        if (enterGrid(rayData.ray, *rayData.shader, world))
            addShader(rayData, world);
    }
}

[[gnu::noinline]] void addFromTree(RayData& rayData, const ShadeQuery& query,
                                   const WorldRay& world) {
    using Entry = VolumeShaderBBoxIntersectEntry;
    // Plain bytes: clearing the entries would take longer than the ray does.
    alignas(Entry) std::byte onStack[kStackEntries * sizeof(Entry)];
    std::unique_ptr<std::byte[]> onHeap;
    std::byte* bytes = onStack;
    if (query.count > kStackEntries) {
        onHeap.reset(new (std::nothrow) std::byte[query.count * sizeof(Entry)]);
        if (!onHeap)
            return addEachShader(rayData, query, world);
        bytes = onHeap.get();
    }
    Entry* const entries = reinterpret_cast<Entry*>(bytes);
    const int found = rayData.tree->intersect(world.origin, world.dir, world.length, query.time,
                                              entries, query.count);
    for (int i = 0; i < found; ++i) {
        rayData.shader = entries[i].shader;
        rayData.ray = entries[i].ray;
        addShader(rayData, world);
    }
}

}  // namespace

bool enterGrid(RayBlock& ray, const VolumeShader& shader, const WorldRay& world) {
    return carryIntoGrid(ray, shader.gridFromWorldAt(world.time), world) &&
           cutToBox(ray, shader.gridMin, shader.gridMax);
}

void addSegment(RayData& rayData) {
    RaySegment* segment = rayData.pool.take();
    if (!segment)
        return;
    ++rayData.segmentCount;
    const VolumeShader& shader = *rayData.shader;
    const std::uint32_t kind = rayData.illuminator->kind;
    // Past its bounce limit a volume still blocks light, but gives no colour.
    const bool colored =
        rayData.wantColor &&
        ((kind & kKindDiffuse) == 0 || (kind & kKindAlwaysVisible) != 0 ||
         ((shader.visibility & kVisibleInGI) != 0 && rayData.bounceLevel <= shader.bounces));
    initSegment(*segment, rayData.ray, shader, colored);
    if (rayData.probabilistic)
        segment->state |= kSegmentProbabilistic;

    RaySegment** place = &rayData.head;
    if (rayData.wantColor) {
        while (*place && (*place)->tCur <= segment->tCur)
            place = &(*place)->next;
    }
    segment->next = *place;
    *place = segment;
    rayData.gmaxt = std::max(rayData.gmaxt, segment->tEnd);
}

bool BuildSegments(RayData& rayData, const ShadeQuery& query) {
    const TracePoint d = query.rayEnd - query.rayStart;
    const double squared = d.x * d.x + d.y * d.y + d.z * d.z;
    if (!(squared >= 1e-12) || !std::isfinite(squared))
        return true;
    const double worldLength = std::sqrt(squared);
    const WorldRay world{query.rayStart, d * (1.0 / worldLength), static_cast<float>(worldLength),
                         query.time};
    if (rayData.tree && query.count >= kTreeThreshold && rayData.tree->isBuilt())
        addFromTree(rayData, query, world);
    else
        addEachShader(rayData, query, world);
    return rayData.segmentCount == 0;
}

}  // namespace nimbra
