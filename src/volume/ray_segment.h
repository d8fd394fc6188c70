// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The state of one ray on its way through all volumes.
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

#include "cache/grid_samplers.h"
#include "tessra/math.h"

namespace nimbra {

class Illuminator;
class ShaderTree;
class VolumeShader;

enum SegmentState : std::uint32_t {
    kSegmentFinished = 0x1,       // the end of the stretch has been reached
    kSegmentColored = 0x2,        // gives colour, not only opacity
    kSegmentProbabilistic = 0x8,  // of the probabilistic colour loop
    // Bits 0x4 and 0x10 are for shaders with steps of their own.
    kSegmentStuck = 0x100,  // finished because it took steps without end
};

/// A ray in the grid space of a shader (voxels), and its span inside the grid's box. The parameter
/// is the distance along the world ray: `dir` is the unit world direction carried into grid space,
/// not normalised.
struct RayBlock {
    TessUtils::Vector origin, dir, invDir;
    std::uint32_t signMask;  // bit per axis: invDir is negative
    float mint, maxt;
};

/// What all steps of a segment have in common, settled at its first step.
struct StepPlan {
    bool ready;
    bool prob;       // looks for one random interaction point instead of blending
    bool emissive;   // the shader has fire
    bool ownFire;    // whose opacity comes from a table of its own
    bool gray;       // smoke alone decides the opacity, read from one channel
    bool plain;      // and nothing else is looked at
    bool gridColor;  // diffuse colour is what the grid's colour channels hold
    std::uint8_t filter;
    std::uint32_t mask;   // of the channels to read
    float clearBelow;     // opacity up to which a step shows nothing
    SampleKernel kernel;  // for `filter`
};

/// One stretch of a ray inside one shader. Its progress is all here, so that it can be suspended
/// between any two steps.
struct RaySegment {
    std::uint32_t state;
    std::uint32_t signMask;
    const VolumeShader* shader;
    RaySegment* next;  // in the ray's list
    StepPlan plan;
    float dirLength, dirLengthInv;
    float stepT;             // length of a step as a ray parameter
    float stepLength;        // world length of a step
    float worldScale;        // world length of one voxel along the ray
    float tCur, tEnd;        // reached parameter, last parameter
    TessUtils::Color color;  // of the last step
    TessUtils::Color alpha;  // opacity of the last step
    TessUtils::Vector origin, dir, invDir;
    float threshold;              // of probabilistic marching
    TessUtils::Color throughput;  // of probabilistic marching
    TessUtils::Vector samplePos;  // grid position of the last accepted step
    float stepWorld;              // world length of the last accepted step
    float hitFlag;                // 1: the last step's opacity is the fire's own
    float invAlpha;               // 1 / alpha.r, 0 for a clear step
    float time;                   // of the ray within the frame, 0 to 1
};
static_assert(std::is_trivially_destructible_v<RaySegment>);

/// Sets up a zeroed segment for a ray inside `shader`'s grid.
void initSegment(RaySegment& segment, const RayBlock& ray, const VolumeShader& shader,
                 bool colored);

/// Segments of one ray, given back all at once. The first 16 need no allocation.
class SegmentPool {
public:
    static constexpr int kBlock = 16;

    SegmentPool() = default;
    SegmentPool(const SegmentPool&) = delete;
    SegmentPool& operator=(const SegmentPool&) = delete;
    /// A zeroed segment, or null without memory.
    RaySegment* take();

private:
    struct Block {
        std::unique_ptr<Block> next;
        alignas(RaySegment) unsigned char bytes[kBlock * sizeof(RaySegment)];
    };
    alignas(RaySegment) unsigned char first[kBlock * sizeof(RaySegment)];
    std::unique_ptr<Block> blocks;  // newest first, after `first`
    int used = 0;                   // in the newest block
};

/// The state of one ray while its segments are built and consumed.
struct RayData {
    bool wantColor = false;      // false: a transparency query
    bool probabilistic = false;  // colour by random interaction points
    bool selfRay = false;        // it left one of the shaders it runs through
    int bounceLevel = 0;
    int segmentCount = 0;
    Illuminator* illuminator = nullptr;
    const VolumeShader* shader = nullptr;  // the one being set up
    const ShaderTree* tree = nullptr;
    RayBlock ray{};              // as `shader` sees it
    RaySegment* head = nullptr;  // by increasing tCur on colour rays
    float gmaxt = 0;             // the largest tEnd
    SegmentPool pool;
};

}  // namespace nimbra
