// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What everything that can supply a frame of a simulation offers to the other plug-ins: grid
// containers, caches and particle shaders.
#pragma once

#include <cstdint>

#include "tessra/math.h"
#include "tessra/plugin_base.h"

namespace TessUtils {
class ShadingContext;
}

namespace nimbra {

class GridTransforms;
class NimbraFrameData;
class NimbraRenderer;

/// What getNimbraMesh fills.
struct NimbraMesh {
    std::int32_t vertexCount = 0;
    std::int32_t faceCount = 0;
};

/// The time that means "the frame that is loaded now".
inline constexpr double kLoadedFrameTime = 1e18;

/// ID kNimbraSim, "NmbShaderSimInterface". Frames, renderers and records stay the property of the
/// plug-in that gives them, and hold until the end of its frame. The order of the operations is
/// part of the contract.
/// The frame operations are called on the scene thread, but for `getFrameByTime(kLoadedFrameTime)`,
/// `getRenderer`, `getChannelBase` and `isVisibleFor`, which only read and may be called by render
/// threads.
class NimbraSimInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return TessUtils::ids::kNimbraSim; }
    const char* getInterfaceName() const override { return "NmbShaderSimInterface"; }

    /// Matrices between grid, object and world of the frame; null where there is no container.
    virtual const GridTransforms* getGridTransforms() = 0;
    /// Moves the container to the place of an instance. `motionFlag` 1: `transform` is that of the
    /// end of the motion interval, 0: of its start (and of the whole where nothing moves).
    virtual void setInstanceTransform(const TessUtils::Transform& transform, int motionFlag) = 0;
    /// The frame with that content time, in ticks of the cache and past any time bend; null when
    /// there is none.
    virtual NimbraFrameData* getFrameByContentTime(int contentTime) = 0;
    /// The frame for a time of the scene; null when there is none.
    virtual NimbraFrameData* getFrameByTime(double time) = 0;
    /// The shaders to march, counted from 0 until null.
    virtual NimbraRenderer* getRenderer(int index) = 0;
    /// Prepares the displacement once, whichever of many threads asks first. Bit 0 of `flags`: no.
    virtual void prepareDisplacement(std::uint32_t flags) = 0;
    virtual int isValid() = 0;
    virtual void reserved1() {}
    virtual void reserved2() {}
    virtual void reserved3() {}
    /// Not 0 if the container shows at all.
    virtual int isRenderable() = 0;
    /// What a shading input is based on: 0 fire, 1 smoke colour, 2 smoke opacity, 3 surface;
    /// -1 for other inputs.
    virtual int getChannelBase(int which) = 0;
    /// Whether the ray of the context may see the container.
    virtual bool isVisibleFor(const TessUtils::ShadingContext& context) = 0;
    /// The tick number that a time of the scene stands for, with the time bend applied if `bend`.
    /// `loopBlend` takes the weight of the overlapped frame in a loop (-1: none) and `loopFrame`
    /// its number; both may be null.
    virtual int getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) = 0;
    /// Fills `mesh` with the surface of the frame; 0 (and no faces) when there is none.
    virtual int getNimbraMesh(NimbraMesh& mesh) = 0;
};

}  // namespace nimbra
