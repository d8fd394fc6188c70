// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The interface of a volume that rays can be marched through.
#pragma once

#include <cstdint>
#include <memory>

#include "volume/illuminator.h"
#include "volume/ray_segment.h"
#include "volume/voxel_sample.h"

namespace nimbra {

class INmbGridLightCache;

/// What the textures of a volume stand for, as they are numbered everywhere.
enum TextureSlot : int {
    kEmissionTexture = 0,
    kDiffuseTexture = 1,
    kOpacityTexture = 2,
    kSmokeTexture = 3,
    kTextureSlots = 4,
};

/// Const operations are called by all render threads at once. Positions are in grid space: voxels,
/// the centre of voxel i at i. `stepWorld` is the world length of a step.
class INimbraVolRendSampler {
public:
    /// Reads the channels of `mask` (SampleMask). `time` is the ray's time within the frame, 0 to
    /// 1; `filter` 0 nearest voxel, 1 linear, 2 smooth, -1 the volume's own. `velocityOut`, if
    /// given, takes the displacement.
    virtual void sampleVoxel(const TessUtils::Vector& pos, VoxelSample& sample, std::uint32_t mask,
                             TessUtils::Vector* velocityOut, float time, int filter) const = 0;
    /// Light from the volume's own fire.
    virtual TessUtils::Color sampleSelfIllum(const TessUtils::Vector& pos) const = 0;
    virtual TessUtils::Color getEmission(const VoxelSample& sample, float stepWorld) const = 0;
    virtual TessUtils::Color getDiffuse(const VoxelSample& sample) const = 0;
    virtual TessUtils::Color getOpacity(const VoxelSample& sample, float stepWorld) const = 0;
    /// The fire's own opacity; false when it has none here and the smoke's opacity holds.
    virtual bool getFireOpacity(const VoxelSample& sample, float stepWorld,
                                TessUtils::Color& out) const = 0;
    virtual ~INimbraVolRendSampler() = default;
    virtual std::unique_ptr<INmbGridLightCache> createLightCache() const = 0;

    /// The evaluation context of the bound textures: frame time, thread, position, end.
    virtual void beginTextureFrame(double time) const = 0;
    virtual void setTextureThread(int thread) const = 0;
    virtual void setTexturePosition(const TessUtils::Vector& pos) const = 0;
    virtual void endTextures() const = 0;
    /// Texture `index` (TextureSlot) at a position.
    virtual void sampleTexture(TessUtils::Color& out, int index, const TessUtils::Vector& uvw,
                               const TessUtils::Vector& pos) const = 0;
    virtual bool hasTexture(int index) const = 0;
    /// Velocity in world units per second.
    virtual TessUtils::Vector getVelocity(const TessUtils::Vector& pos) const = 0;

    /// Advances the segment to the next step that shows anything and fills the step's opacity and,
    /// on coloured segments, its colour. False: nothing was found up to the segment's end.
    /// `diffuseOut`, if given, takes the diffuse colour of a step that isn't coloured.
    virtual bool stepSegment(RaySegment& segment, Illuminator& illuminator, float time, bool first,
                             TessUtils::Color* diffuseOut) const = 0;
    /// Computes the colour of the interaction point at which the segment stands.
    virtual void shadeAtSample(RaySegment& segment, Illuminator& illuminator,
                               bool probabilistic) const = 0;
    /// Like stepSegment, for opacity alone.
    virtual bool stepSegmentAlpha(RaySegment& segment, Illuminator& illuminator, float time,
                                  bool first) const = 0;
    virtual void reserved() {}
    /// Gives the frame's memory back and sets all settings to their defaults.
    virtual void release() = 0;
};

}  // namespace nimbra
