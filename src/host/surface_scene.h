// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// All surfaces of a frame, and the first of them along a ray.
#pragma once

#include <memory>

#include "tessra/geometry.h"

namespace nimbra::host {

/// Where a ray met a surface. All in world space.
struct SurfaceHit {
    double t = 0;
    TessUtils::TracePoint position;
    /// Unit length; the side follows the winding, not the ray.
    TessUtils::Vector geometricNormal;
    /// Interpolated where the mesh has normals; on the side of geometricNormal.
    TessUtils::Vector normal;
    TessUtils::Vector uvw;
    bool hasUVW = false;
    /// The number that `addMesh` or `addPrimitive` was given.
    int object = 0;
    /// Set for generated primitives, with their own answer.
    TessUtils::UserPrimitive* primitive = nullptr;
    TessUtils::UserPrimitive::Hit primitiveHit;

    /// How far t and position may be off the surface: a ray that starts here has to keep away so
    /// far.
    double tolerance() const;
};

/// Filled on the scene thread, then asked on all render threads. Positions are kept in single
/// precision.
class SurfaceScene {
public:
    SurfaceScene();
    ~SurfaceScene();
    SurfaceScene(const SurfaceScene&) = delete;
    SurfaceScene& operator=(const SurfaceScene&) = delete;

    /// Takes everything out.
    void clear();
    /// Adds a mesh at its places at the start and the end of the frame; `object` comes back with
    /// its hits. Triangles whose indices lie outside of the mesh are left out. The mesh must
    /// outlive the frame.
    void addMesh(const TessUtils::TriangleMesh& mesh, const TessUtils::Transform& start,
                 const TessUtils::Transform& end, int object);
    void addPrimitive(TessUtils::UserPrimitive& primitive, int object);
    /// Builds the search tree. Throws std::bad_alloc or std::runtime_error.
    void commit();
    bool empty() const;

    /// The first surface in (ray.mint, ray.maxt); re-entrant.
    bool intersect(const TessUtils::TraceRay& ray, TessUtils::ShadingContext& context,
                   SurfaceHit& hit) const;
    /// True if anything lies in (ray.mint, ray.maxt).
    bool occluded(const TessUtils::TraceRay& ray, TessUtils::ShadingContext& context) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace nimbra::host
