// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Where the container stands, how it moves within the frame and how its content moves in it.
#include <cmath>

#include "cache/frame_data.h"
#include "plugin/sim_frame_load.h"

namespace nimbra {

using namespace TessUtils;
using NMBUtils::Matrix34;

namespace {

Transform composeTransforms(const Transform& outer, const Transform& inner) {
    Transform result;
    for (int axis = 0; axis < 3; ++axis)
        result.f[axis] = outer.applyVector(inner.f[axis]);
    result.offs = outer.applyPoint(inner.offs);
    return result;
}

/// A position to the way that goes with it from `start` to `end`, per second: what a point of the
/// grid does over the interval, seen from the grid's place at its start.
Matrix34 getInstanceMotion(const Matrix34& gridFromWorldStart, const Matrix34& worldFromGridEnd,
                           float seconds) {
    Matrix34 motion = compose(gridFromWorldStart, worldFromGridEnd);
    const Matrix34 still;
    const float rate = seconds > 0 ? 1 / seconds : 0;
    for (int axis = 0; axis < 3; ++axis)
        motion.axis[axis] = (motion.axis[axis] - still.axis[axis]) * rate;
    motion.offset = motion.offset * rate;
    return motion;
}

}  // namespace

Transform NimbraSimPlugin::transformAt(const char* key, double time) const {
    const TessraPluginParameter* value = rowValue(key);
    Transform transform = value ? value->getTransform(0, time) : Transform();
    transform.offs = transform.offs - sceneOffset_;
    return transform;
}

void NimbraSimPlugin::readTransforms(FrameLoad& load) {
    const double t = load.times().t;
    frameStartTransform_ =
        transformAt("node_transform", load.useMotionBlur ? load.times().frameStart : t);
    frameEndTransform_ =
        transformAt("node_transform", load.useMotionBlur ? load.times().frameEnd : t);
}

void NimbraSimPlugin::bindVelocities(NimbraFrameData& frame) {
    for (int axis = 0; axis < 3; ++axis)
        velocity[axis] = frame.getChannelProxy(kVelocityX + axis);
}

void NimbraSimPlugin::followMotion(const FrameLoad& load) {
    NimbraFrameData& frame = *load.frame;
    constexpr int kOrigins[3] = {kAdvectionOriginX, kAdvectionOriginY, kAdvectionOriginZ};
    bool hasOrigin = false;
    for (int axis = 0; axis < 3; ++axis) {
        if (rows_.velocitiesFromUvw)
            bindChannel(&frame, kSlotOrigin + axis, kOrigins[axis]);
        hasOrigin = hasOrigin || frame.hasChannel(kOrigins[axis]);
    }
    bindVelocities(frame);
    setTransforms(gridTransforms_.objectFromGrid, Matrix34::fromTransform(frameStartTransform_),
                  false);
    setTransforms(gridTransforms_.objectFromGrid, Matrix34::fromTransform(frameEndTransform_),
                  true);
    flags &= ~kOriginMotion;
    if (rows_.velocitiesFromUvw && hasOrigin)
        flags |= kOriginMotion;
    useVelocityChannels = !rows_.velocitiesFromUvw || has(kOriginMotion);
}

void NimbraSimPlugin::followWind(const FrameLoad& load) {
    const double frames = load.times().frameEnd - load.times().frameStart;
    instanceMotion = getInstanceMotion(gridFromWorld[0], worldFromGrid[1],
                                       static_cast<float>(frames) * frameDuration);
    moveGridWithVelocity = rows_.windFromMovement != 0;
}

void NimbraSimPlugin::measureCells(const FrameLoad& load) {
    if (load.frame && load.frame->path.empty()) {
        // A made-up grid fills the unit cube of its object.
        int size[3];
        load.frame->getGridSize(size);
        worldCellSize_ =
            length(gridTransforms_.worldFromObject.axis[0]) / static_cast<float>(size[0]);
    } else {
        worldCellSize_ = length(gridTransforms_.worldFromGrid.axis[0]);
    }
    const float cells = 1 / worldCellSize_;
    cellScale = std::isfinite(cells) && cells > 0 ? cells : 1;
}

void NimbraSimPlugin::readVelocityMult(FrameLoad& load) {
    constexpr float kNoVelocity = 1e-6f;
    velocityMult = rows_.velocityMult;
    if (std::fabs(velocityMult) >= kNoVelocity)
        return;
    load.useMotionBlur = false;
    load.useVelocityBlur = false;
    frameStartTransform_ = frameEndTransform_ = transformAt("node_transform", frameTime_);
    setTransforms(gridTransforms_.objectFromGrid, gridTransforms_.worldFromObject, false);
}

void NimbraSimPlugin::readExplicitVelocities(NimbraFrameData& frame) {
    const TessraPluginParameter* row = paramList->getParam("velocities");
    for (int axis = 0; axis < 3; ++axis)
        if (!row || frame.hasChannel(kVelocityX + axis))
            return;
    int size[3];
    frame.getGridSize(size);
    const std::int64_t cells = voxelCount(size);
    if (cells <= 0 || row->getCount(frameTime_) != cells)
        return;
    for (int axis = 0; axis < 3; ++axis) {
        if (!frame.channels[kVelocityX + axis].allocate(size))
            return;
        frame.channelMask |= channelBit(kVelocityX + axis);
    }
    const float scale = 2 * cellScale;
    for (int i = 0; i < static_cast<int>(cells); ++i) {
        const Color v = row->getColor(i, frameTime_);
        for (int axis = 0; axis < 3; ++axis)
            frame.channels[kVelocityX + axis].write(i, v[axis] * scale);
    }
}

void NimbraSimPlugin::placeInstance(const Transform& world, bool atEnd) {
    if (!atEnd)
        gridTransforms_.set(gridTransforms_.gridFromObject, world);
    (atEnd ? frameEndTransform_ : frameStartTransform_) = world;
    if (getRenderer(0))
        setTransforms(gridTransforms_.objectFromGrid, Matrix34::fromTransform(world), atEnd);
}

void NimbraSimPlugin::setInstanceTransform(const Transform& transform, int motionFlag) {
    double time = frameTime_;
    if (movesInFrame_ && renderer_) {
        const TessraFrameData& frame = renderer_->getFrameData();
        time = motionFlag ? frame.frameEnd : frame.frameStart;
    }
    // The instance stands in the world as it is; the offset comes off last.
    Transform own = transformAt("node_transform", time);
    own.offs = own.offs + sceneOffset_;
    Transform world = composeTransforms(transform, own);
    world.offs = world.offs - sceneOffset_;
    placeInstance(world, motionFlag != 0);
}

}  // namespace nimbra
