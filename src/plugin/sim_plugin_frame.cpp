// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Loading a frame: from the parameters and the cache to a shader with grid, tables and settings.
// The order of the steps matters, and so does the order of the messages.
#include "cache/env_path.h"
#include "cache/frame_data.h"
#include "plugin/empty_grid.h"
#include "plugin/sim_frame_load.h"
#include "plugin/sim_tables.h"
#include "volume/settings.h"

namespace nimbra {

using namespace TessUtils;
using NMBUtils::Matrix34;

void NimbraSimPlugin::preFrameBegin(TessraRenderer* renderer) {
    renderer_ = renderer;
    sceneOffset_ = renderer->getFrameData().sceneOffset;
    clearFrame();
    if (!rows_.enabled)
        return;
    FrameLoad load(renderer);
    if (!acquireCache())
        return;
    loadFrame(load);
    if (!rows_.mesher)
        buildTables(load);
    warnOfLocalPath(load);
    findObjectSpace(load);
    readSettings(load);
    readVisibility();
    readTransforms(load);
    readUnits(load);
    if (load.useVelocityBlur)
        followMotion(load);
    measureCells(load);
    readVelocityMult(load);
    movesInFrame_ = load.useMotionBlur;
    readLateRows(load);
    setRenderFlags(load);
    reportProblems(load);
}

void NimbraSimPlugin::clearFrame() {
    frameTime_ = renderer_->getFrameData().t;
    paramList->cacheParams(frameTime_);
    cacheInterface_ = nullptr;
    if (has(kHasGrid))
        NimbraRenderer::release();
    lightLinks.clear();
    for (int& cells : NimbraVolumeRenderLUTholder::gridSize)
        cells = 0;
    TextureInterface* const connected[kTextureSlots] = {rows_.etex, rows_.dtex, rows_.ttex,
                                                        rows_.stex};
    for (int slot = 0; slot < kTextureSlots; ++slot)
        textures[slot] = connected[slot];
}

bool NimbraSimPlugin::acquireCache() {
    ProgressCallback* const log = progress();
    if (!rows_.cache) {
        if (log)
            log->printWarning("[NimbraSimPlugin] No Nimbra cache specified.\n");
        return false;
    }
    cacheInterface_ = static_cast<NimbraSimInterface*>(rows_.cache->getInterface(ids::kNimbraSim));
    if (!cacheInterface_ && log)
        log->printWarning("[NimbraSimPlugin] Unable to acquire the Nimbra cache interface.\n");
    return cacheInterface_ != nullptr;
}

void NimbraSimPlugin::loadFrame(FrameLoad& load) {
    const char* missing = "[NimbraSimPlugin] No simulation data for frame time %g!\n";
    double wanted = load.times().t;
    if (rows_.contentTime != -1) {
        missing = "[NimbraSimPlugin] No simulation data for content time %g!\n";
        wanted = rows_.contentTime;
        load.frame = cacheInterface_->getFrameByContentTime(rows_.contentTime);
    } else if (load.situation.isInteractiveAny()) {
        wanted = load.times().frameNumber;
        load.frame = cacheInterface_->getFrameByContentTime(load.times().frameNumber);
    } else {
        load.frame = cacheInterface_->getFrameByTime(wanted);
    }
    ProgressCallback* const log = progress();
    if (!log)
        return;
    if (!load.frame) {
        // One of the two literals above.
        log->printInfo(missing, wanted);
        return;
    }
    int size[3];
    load.frame->getGridSize(size);
    // A single file needn't have a number.
    const int number = load.frame->frameNumber;
    log->printInfo("[NimbraSimPlugin] grid %dx%dx%d, cache index %d.\n", size[0], size[1], size[2],
                   number == NimbraFrameData::kNoFrame ? 0 : number);
}

void NimbraSimPlugin::buildTables(const FrameLoad& load) {
    buildShadingTables(
        *this, {rows_, *this, *paramList, load.frame, frameTime_, load.situation.isInteractiveAny(),
                queryRender<PlanckTableInterface>(load.renderer, ids::kPlanckTable)});
}

void NimbraSimPlugin::warnOfLocalPath(const FrameLoad& load) {
    ProgressCallback* const log = progress();
    if (!log || !load.sequence().distributedHosts || !load.frame)
        return;
    const std::string& path = load.frame->path;
    if (path.empty() || isNetworkPath(path))
        return;
    log->printWarning(
        "[NimbraCachePlugin] You are using local machine Input path for distributed rendering:\n");
    log->printWarning("%s\n", path.c_str());
    log->printWarning(
        "[NimbraCachePlugin] Please share the caches on a network location and adjust you Input "
        "path.\n");
}

void NimbraSimPlugin::findObjectSpace(FrameLoad& load) {
    if (load.frame) {
        float tm[12];
        load.frame->getTransform(tm);
        load.gridFromObject = Matrix34::fromFloats(tm);
        return;
    }
    EmptyGrid grid;
    if (!readEmptyGridSettings(rows_.cache, frameTime_, grid))
        return;
    load.gridFromObject = grid.gridFromObject;
    for (int axis = 0; axis < 3; ++axis)
        NimbraVolumeRenderLUTholder::gridSize[axis] = grid.size[axis];
}

void NimbraSimPlugin::readSettings(const FrameLoad& load) {
    gridTransforms_.set(load.gridFromObject, transformAt("node_transform", frameTime_));
    readVolumeSettings(*this, {*this, load.frame, *this, gridTransforms_});
}

void NimbraSimPlugin::readUnits(FrameLoad& load) {
    load.useVelocityBlur = load.useMotionBlur && load.frame;
    timeScale_ = load.situation.unitScale * rows_.unitScale;
    sceneUpAxis_ = load.situation.upAxis;
}

void NimbraSimPlugin::readLateRows(const FrameLoad& load) {
    subred = getFloat("lightcachesr");
    brdfscatter = getFloat("brdfscatter");
    shadowDensityScale = rows_.shadowOpacity;
    const TessraPluginParameter* aspect = rowValue("cell_aspect");
    if (aspect && aspect->getCount(frameTime_) == 3)
        for (int axis = 0; axis < 3; ++axis)
            cell_aspect[axis] = aspect->getFloat(axis, frameTime_);
    constexpr float kShortestFrame = 0.001f;
    if (rows_.frameDuration > kShortestFrame)
        frameDuration = rows_.frameDuration;
    else if (load.situation.frameDuration > 0)
        frameDuration = load.situation.frameDuration;
    if (load.frame) {
        readExplicitVelocities(*load.frame);
        if (load.useVelocityBlur) {
            bindVelocities(*load.frame);
            followWind(load);
        }
    }
    readLightLinks();
}

void NimbraSimPlugin::setRenderFlags(const FrameLoad& load) {
    if (load.situation.isProgressive)
        flags |= kInteractive;
    if (rows_.mesher && rows_.displacement && displmul != 0 && rows_.displ2)
        flags |= kDisplaced;
}

}  // namespace nimbra
