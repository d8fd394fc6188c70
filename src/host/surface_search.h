// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The search for the first surface along a ray, as a module does it: scenes without surfaces do
// without the library behind it, and the memory that loading it takes.
#pragma once

#include <algorithm>

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
    /// The number that was given with what was hit.
    int object = 0;
    /// Set for generated primitives, with their own answer.
    TessUtils::UserPrimitive* primitive = nullptr;
    TessUtils::UserPrimitive::Hit primitiveHit;

    /// Largest coordinate of the place and of what was hit there: what rounding is relative to.
    double extent = 0;

    /// How far from the surface a new ray has to start, so that it doesn't meet it again.
    double offset() const { return 1e-6 * extent + 1e-12; }
    /// How far behind t the same ray has to go on.
    double step() const { return 4e-6 * std::max(extent, t) + 1e-12; }
};

/// Filled on the scene thread, then asked on all render threads. Positions are kept in single
/// precision.
class SurfaceSearch {
public:
    virtual ~SurfaceSearch() = default;
    /// Takes everything out.
    virtual void clear() = 0;
    /// Adds a mesh at its places at the start and the end of the frame; `object` comes back with
    /// its hits. Triangles whose indices lie outside of the mesh are left out. The mesh must
    /// outlive the frame.
    virtual void addMesh(const TessUtils::TriangleMesh& mesh, const TessUtils::Transform& start,
                         const TessUtils::Transform& end, int object) = 0;
    /// The same for a mesh that is added several times: its triangles and their tree are kept once.
    /// A little slower to trace.
    virtual void addInstance(const TessUtils::TriangleMesh& mesh, const TessUtils::Transform& start,
                             const TessUtils::Transform& end, int object) = 0;
    virtual void addPrimitive(TessUtils::UserPrimitive& primitive, int object) = 0;
    /// Builds the search tree. Throws std::bad_alloc or std::runtime_error.
    virtual void commit() = 0;
    virtual bool empty() const = 0;

    /// The first surface in (ray.mint, ray.maxt); re-entrant.
    virtual bool intersect(const TessUtils::TraceRay& ray, TessUtils::ShadingContext& context,
                           SurfaceHit& hit) const = 0;
    /// True if anything lies in (ray.mint, ray.maxt).
    virtual bool occluded(const TessUtils::TraceRay& ray,
                          TessUtils::ShadingContext& context) const = 0;
};

/// What the module exports, under this name: a search, to be deleted by the caller. Throws.
extern "C" __attribute__((visibility("default"))) SurfaceSearch* nimbraNewSurfaceSearch();

}  // namespace nimbra::host
