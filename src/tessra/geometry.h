// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Geometry that plug-ins bring, and closed bodies that cut volumes.
#pragma once

#include <cstdint>
#include <vector>

#include "tessra/math.h"
#include "tessra/plugin_base.h"
#include "tessra/shading.h"

namespace TessUtils {

class TessraRenderer;

/// Triangles in the object's own space; indices count from 0.
struct TriangleMesh {
    std::vector<Vector> positions;
    std::vector<Vector> normals;         // one a position, or empty
    std::vector<Vector> uvw;             // one a position, or empty
    std::vector<Vector> velocities;      // scene units per second, one a position, or empty
    std::vector<std::uint32_t> indices;  // three a triangle
};

/// A primitive that intersects rays by its own code.
class TESSRA_API UserPrimitive {
public:
    struct Hit {
        double t = 0;
        Vector normal;
        bool valid = false;
    };
    virtual ~UserPrimitive();
    virtual void worldBounds(TracePoint& low, TracePoint& high) const = 0;
    /// The first hit in (ray.mint, ray.maxt); re-entrant.
    virtual Hit intersect(const TraceRay& ray, ShadingContext& context) = 0;
    /// Colour and transparency of a hit.
    virtual void shadeHit(ShadingContext& context, const Hit& hit, VolumeResult& out) = 0;
};

/// A box in world space that stays as it is over the frame.
struct StaticBox {
    TracePoint low, high;  // low above high: empty
};

/// A primitive whose bounds its owner sets for each frame.
template <class Box>
class DynamicPrimitive : public UserPrimitive {
public:
    void worldBounds(TracePoint& low, TracePoint& high) const override {
        low = bounds.low;
        high = bounds.high;
    }
    Box bounds;
};

/// An instance of static geometry that a plug-in created.
class TESSRA_API StaticGeomInstance {
public:
    virtual ~StaticGeomInstance();
    virtual void compile(TessraRenderer* renderer) = 0;
    virtual UserPrimitive* primitive() { return nullptr; }
    virtual const TriangleMesh* mesh() { return nullptr; }
};

/// "EXT_STATIC_GEOM_SOURCE"
class TESSRA_API StaticGeomSourceInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kStaticGeomSource; }
    const char* getInterfaceName() const override { return "EXT_STATIC_GEOM_SOURCE"; }
    /// Null where there is nothing to show; given back to deleteInstance.
    virtual StaticGeomInstance* newInstance(TessraRenderer* renderer) = 0;
    virtual void deleteInstance(StaticGeomInstance* instance) = 0;
    /// The triangles of the current frame in the plug-in's own space, as cutters and fade objects
    /// need them; null if it has none. Given back to releaseStaticMesh before the frame ends.
    virtual const TriangleMesh* getStaticMesh(TessraRenderer*) { return nullptr; }
    virtual void releaseStaticMesh(const TriangleMesh*) {}
};

}  // namespace TessUtils
