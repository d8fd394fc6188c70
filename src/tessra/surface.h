// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What shading can ask of the object that a ray hit, beyond its triangles.
#pragma once

#include <array>
#include <cstdint>

#include "tessra/geometry.h"
#include "tessra/texture.h"

namespace TessUtils {

/// ID kGeomMesh: the mesh that a plug-in's geometry is made of.
class TESSRA_API GeomMeshInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kGeomMesh; }
    /// The mesh of the current frame in the plug-in's own space; null if there is none. Owned by
    /// the plug-in.
    virtual const TriangleMesh* getMeshData(TessraRenderer* renderer) = 0;
};

/// What a particle tells of itself to the shading of the instance that stands for it.
struct InstanceParticleData {
    std::int64_t id = 0;
    float age = 0;       // seconds
    Vector velocity;     // scene units per second, in world space
    float lifespan = 0;  // seconds; 0: not known
};

/// "EXT_GEOM_PARTICLE_DATA": per-particle data of an instance.
class TESSRA_API GeomParticleDataInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kGeomParticleData; }
    const char* getInterfaceName() const override { return "EXT_GEOM_PARTICLE_DATA"; }
    /// False when the instance stands for no particle; `out` is left alone then.
    virtual bool getParticleData(InstanceParticleData& out) const = 0;
};

/// Sixteen bytes that a scene gives to an object, opaque to plug-ins.
using UserAttributes = std::array<std::uint8_t, 16>;

/// "RTUserAttrData"
class TESSRA_API RTUserAttrData : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kUserAttrData; }
    const char* getInterfaceName() const override { return "RTUserAttrData"; }
    virtual const UserAttributes& getUserAttributes() const = 0;
};

/// "EXT_MAPPED_SURFACE": a surface that textures can be laid on.
class TESSRA_API MappedSurface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kMappedSurface; }
    const char* getInterfaceName() const override { return "EXT_MAPPED_SURFACE"; }
    /// The mapping around a point: `offs` holds its coordinates, the axes how they change along
    /// the axes of the world. Channels count from 0; the identity where there is no such channel.
    virtual Transform getLocalUVWTransform(const TextureContext& context, int channel) const = 0;
};

/// An object whose 3D textures go by a place of their own, as where a deformed surface lay before.
class TESSRA_API MappedPointInterface : public PluginInterface {
public:
    static constexpr InterfaceID kID = 0x77915061;
    InterfaceID getInterfaceID() const override { return kID; }
    /// False where the object has no other place than the context's own.
    virtual bool getMappedPoint(const TextureContext& context, TracePoint& out) const = 0;
};

}  // namespace TessUtils
