// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One frame of a grid container, ready to be marched through: settings, tables, channels and
// transforms. Knows nothing of the host.
#pragma once

#include <cstdint>
#include <memory>

#include "cache/grid_channel.h"
#include "foundation/matrix34.h"
#include "volume/light_cache.h"
#include "volume/vol_rend_sampler.h"

namespace nimbra {

class GizmoObject;
class NimbraFrameData;

/// Bits of VolumeShader::flags.
enum ShaderFlags : std::uint32_t {
    kEmissive = 0x1,
    kDiffuse = 0x2,
    kHeatHaze = 0x4,
    kSolid = 0x8,
    kVolumetric = 0x10,
    kDisplaced = 0x20,
    kTexEmissive = 0x40,
    kTexDiffuse = 0x80,
    kTexOpacity = 0x100,
    kTexSmoke = 0x200,
    kLightCache = 0x400,
    kJitter = 0x800,
    kHasGrid = 0x1000,
    kModEmissive = 0x2000,
    kModDiffuse = 0x4000,
    kModOpacity = 0x8000,
    kProbBounces = 0x10000,
    kInvertGizmo = 0x40000,
    kMediumFog = 0x80000,
    kInteractive = 0x200000,
    kProbPrimary = 0x400000,
    kOriginMotion = 0x800000,
    kExtraLights = 0x1000000,
};
inline constexpr std::uint32_t kTextureFlags = kTexEmissive | kTexDiffuse | kTexOpacity | kTexSmoke;

/// Bits of VolumeShader::visibility.
enum ShaderVisibility : std::uint32_t {
    kVisibleInGI = 0x1,
    kReceivesGI = 0x2,
    kNoShadow = 0x4,
    kGeneratesCaustics = 0x8,
    kReceivesCaustics = 0x10,
    kHiddenFromCamera = 0x20,
    kHiddenFromReflections = 0x40,
    kHiddenFromRefractions = 0x80,
    kHiddenFromGI = 0x100,
};

/// Values of fire_opacity_mode.
enum FireOpacityMode : int { kFireUsesSmoke = 0, kFireVisible = 1, kFireOwnOpacity = 2 };

/// Values of noscatter.
enum ScatterMode : int {
    kScatterRayTraced = 0,
    kScatterDisabled = 1,
    kScatterApproximate = 2,
    kScatterApproximateShadows = 3,
};

/// Slots of VolumeShader::channels.
enum ChannelSlot : int {
    kSlotE = 0,
    kSlotD = 1,
    kSlotT = 2,
    kSlotS = 3,
    kSlotColor = 4,   // three
    kSlotOrigin = 8,  // three: where the voxel's content came from
    kSlotCount = 11,
};

/// Settings that a frame load takes from the container's parameters, under the parameters' names.
struct VolumeSettings {
    int sampler = 2;
    TessUtils::Color simpleColor;
    float surflevel = 1500;
    float hhfactor = 1e-5f;
    float smoketransp = -0.693147f;  // density per world unit, <= 0
    float stoptransp = 0.01f;        // a ray ends below this transmittance
    float skiptransp = 0.01f;        // opacity per world unit of steps that count as empty
    float rendstep = 0.8f;           // in cells
    float rendshadstep = 2;          // in cells
    float difmul = 1;
    float transfext = 1;
    float transfown = 1;
    int fire_opacity_mode = 0;
    float softb = 0;  // in cells
    float displmul = 1;
    float play_speed = 1;
    float frameDuration = 1.0f / 30;  // seconds
    float bias = 0;
    int noscatter = 2;
    float brdfscatter = 1;
    float giMultiplier = 1;        // of colour on diffuse rays
    float shadowDensityScale = 1;  // of opacity on steps without colour
    float cell_aspect[3] = {1, 1, 1};
    float cellScale = 1;  // cells per world unit
    int bounces = 0;
    int displ2d = 0;
    int volnorm = 0;
    int volzdepth = 0;
    float subred = 0;
    bool selfShadowed = false;
    float gridReductInv = 1;
    float self_illum_map_min_pow = 0.1f;
    int al_decay = 2;
    // Normalisation of e, d, t, s: value * scale + offset.
    float inputOffset[4] = {0, 0, 0, 0};
    float inputScale[4] = {1, 1, 1, 1};
    std::uint32_t wrapFlags = 0;   // kSampleWrapX and so on
    std::uint32_t sampleMask = 0;  // what a coloured step reads beside opacity
    bool useGridColor = false;
    float shad_strength = 1;
    bool mbgrid = false;
    int mbsmooth = 3;
    int optvolpass = 1;
    bool fadebylevel = false;
    float displfade = 0;
    bool fadebyvel = false;
    float displvelfade = 0;
    bool usefadeobj = false;
    float displgeomfade = 0;
};

/// Written while a frame is loaded and constant from the frame's begin to its end, but for the
/// contents of the light cache.
class VolumeShader : public INimbraVolRendSampler, public VolumeSettings {
public:
    using Illuminator = nimbra::Illuminator;

    VolumeShader();
    ~VolumeShader() override;
    VolumeShader(const VolumeShader&) = delete;
    VolumeShader& operator=(const VolumeShader&) = delete;

    void sampleVoxel(const TessUtils::Vector& pos, VoxelSample& sample, std::uint32_t mask,
                     TessUtils::Vector* velocityOut, float time, int filter) const final;
    TessUtils::Color sampleSelfIllum(const TessUtils::Vector& pos) const override;
    TessUtils::Color getEmission(const VoxelSample& sample, float stepWorld) const final;
    TessUtils::Color getDiffuse(const VoxelSample& sample) const final;
    TessUtils::Color getOpacity(const VoxelSample& sample, float stepWorld) const final;
    bool getFireOpacity(const VoxelSample& sample, float stepWorld,
                        TessUtils::Color& out) const final;
    std::unique_ptr<INmbGridLightCache> createLightCache() const override;
    void beginTextureFrame(double time) const override;
    void setTextureThread(int thread) const override;
    void setTexturePosition(const TessUtils::Vector& pos) const override;
    void endTextures() const override;
    void sampleTexture(TessUtils::Color& out, int index, const TessUtils::Vector& uvw,
                       const TessUtils::Vector& pos) const override;
    bool hasTexture(int index) const override;
    TessUtils::Vector getVelocity(const TessUtils::Vector& pos) const override;
    bool stepSegment(RaySegment& segment, Illuminator& illuminator, float time, bool first,
                     TessUtils::Color* diffuseOut) const override;
    void shadeAtSample(RaySegment& segment, Illuminator& illuminator,
                       bool probabilistic) const override;
    bool stepSegmentAlpha(RaySegment& segment, Illuminator& illuminator, float time,
                          bool first) const override;
    void release() override;

    /// Gives the shader a grid of that many cells (negative: 0) and a light cache for it. Without
    /// memory for the cache the shader goes on without one and sets outOfMemory.
    void setGridSize(const int size[3]);
    /// Points a channel slot at the frame's channel; empties it if the frame lacks the channel.
    void bindChannel(NimbraFrameData* frame, int slot, int channel);
    /// Derives all matrices for the start and the end of the frame; with `secondTime` for its end
    /// only, which makes the shader a moving one if they differ.
    void setTransforms(const NMBUtils::Matrix34& gridToObject,
                       const NMBUtils::Matrix34& objectToWorld, bool secondTime);
    /// The cutter and its place in the world at the frame's start and end; null takes it off.
    void setGizmo(const GizmoObject* object, const NMBUtils::Matrix34& worldFromGizmoStart,
                  const NMBUtils::Matrix34& worldFromGizmoEnd);
    /// All of VolumeSettings to its defaults.
    void setDefaults();
    void releaseVolumeShaderInternal();

    bool has(std::uint32_t flag) const { return (flags & flag) != 0; }
    NMBUtils::Matrix34 gridFromWorldAt(float time) const;
    /// The colour of the accepted step at which the segment stands.
    void shadeVoxel(RaySegment& segment, Illuminator& illuminator, bool probabilistic,
                    const VoxelSample& sample) const;

    std::uint32_t visibility = 3;
    std::uint32_t flags = 0x80C00;
    // Borrowed tables of kLutEntries; null: none. Colours are RGB triples.
    const float* emissionTable = nullptr;
    const float* fireOpacityTable = nullptr;
    const float* diffuseTable = nullptr;
    const float* opacityTable = nullptr;

    bool moving = false;  // the transform differs between the start and the end of the frame
    TessUtils::Vector gridMin, gridMax;
    int gridSize[3] = {0, 0, 0};
    std::unique_ptr<INmbGridLightCache> lightCache;

    /// One bit per voxel, x fastest, set where no step can show anything; none when the count is 0.
    std::int64_t emptyMapCount = 0;
    std::unique_ptr<std::uint32_t[]> emptyMapBits;

    GridChannelProxy<float> channels[kSlotCount];
    bool sameShape = true;  // all loaded channels have cells, as many on each axis

    // Of the frame's start and end.
    NMBUtils::Matrix34 gridFromWorld[2], worldFromGrid[2];
    NMBUtils::Matrix34 worldNormalFromGrid[2];

    const GizmoObject* gizmo = nullptr;
    bool gizmoMoving = false;
    NMBUtils::Matrix34 gizmoFromWorld[2];

    bool outOfMemory = false;

private:
    float smokeFromTexture(const TessUtils::Vector& pos) const;
    /// Adds the light that the step scatters, `q` being its diffuse colour times its opacity.
    void illuminateStep(bool useCache, RaySegment& segment, Illuminator& illuminator,
                        const TessUtils::Color& q) const;
    void lightFromCache(RaySegment& segment, Illuminator& illuminator,
                        const TessUtils::Color& q) const;
    void lightFromHost(RaySegment& segment, Illuminator& illuminator,
                       const TessUtils::Color& q) const;
};

}  // namespace nimbra
