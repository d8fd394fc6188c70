// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Sources of particles: plug-ins that hand a particle system over as lists, one entry a particle.
// Used on the scene thread. The order of the operations is part of the contract.
#pragma once

#include <cstdint>
#include <vector>

#include "tessra/math.h"
#include "tessra/plugin_base.h"

namespace TessUtils {

/// Bits of PerParticleDataSourceInterface::getChannels.
enum PerParticleChannel : std::uint32_t {
    kPerParticlePositions = 1,
    kPerParticleVelocities = 2,
    kPerParticleSizes = 4,
    kPerParticleIds = 8,
};

/// The lists of getChannels; those that aren't asked for stay as they are.
struct PerParticleChannels {
    std::vector<Vector> positions;
    std::vector<Vector> velocities;
    std::vector<float> sizes;
    std::vector<std::int64_t> ids;
};

/// "EXT_PER_PARTICLE_SOURCE_DATA". Particles count from 1: entry 0 of each list is a filler of
/// zeros, so that a list has one entry more than there are particles. Lists are replaced. Positions
/// and velocities are in scene units, velocities a second; PerParticleDataSourceInterface2 tells in
/// which space.
class TESSRA_API PerParticleDataSourceInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kPerParticleData; }
    const char* getInterfaceName() const override { return "EXT_PER_PARTICLE_SOURCE_DATA"; }

    /// Entries of the lists at that time: the particles and the filler.
    virtual int getCount(double time) = 0;
    virtual void getPositions(double time, std::vector<Vector>& out) = 0;
    virtual void getVelocities(double time, std::vector<Vector>& out) = 0;
    virtual void getSizes(double time, std::vector<float>& out) = 0;
    /// Empty, even without the filler, when particles have no IDs.
    virtual void getIds(double time, std::vector<std::int64_t>& out) = 0;
    /// Geometry that particles carry: the objects, the particles' transforms, and which object each
    /// particle has. All empty for particles that are points.
    virtual void getInstances(double time, std::vector<PluginBase*>& objects,
                              std::vector<Transform>& transforms, std::vector<int>& which) = 0;
    /// Several lists in one pass; `mask` of PerParticleChannel bits. A list of sizes or IDs that
    /// the particles don't have comes out empty.
    virtual void getChannels(PerParticleChannels& out, double time, std::uint32_t mask) = 0;
    /// Ages in the source's unit of time.
    virtual void getAges(double time, std::vector<float>& out) = 0;
};

/// "EXT_PER_PARTICLE_SOURCE_DATA2"
class TESSRA_API PerParticleDataSourceInterface2 : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kPerParticleData2; }
    const char* getInterfaceName() const override { return "EXT_PER_PARTICLE_SOURCE_DATA2"; }

    /// The positions stand in world space: the source's place in the scene doesn't move them.
    virtual bool isInWorldSpace() = 0;
};

}  // namespace TessUtils
