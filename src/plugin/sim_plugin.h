// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The grid container of a scene: ties a cache to a shader and prepares the shader for each frame.
// It doesn't render by itself; the plug-in of its render mode marches, intersects or meshes it.
#pragma once

#include "plugin/render_situation.h"
#include "plugin/sim_interface.h"
#include "plugin/sim_params.h"
#include "tessra/tessra_plugin.h"
#include "volume/grid_transforms.h"
#include "volume/lut_holder.h"
#include "volume/nimbra_params.h"
#include "volume/nimbra_renderer.h"

namespace nimbra {

/// How a container is rendered.
enum RenderMode : int {
    kModeVolumetric = 0,
    kModeVolumetricGeometry = 1,
    kModeHeatHaze = 2,
    kModeIsosurface = 3,
    kModeMesh = 4,
    kModeOceanMesh = 5,
};

class NimbraSimPlugin : public TessUtils::TessraPlugin,
                        public TessUtils::TessraSceneModifierInterface,
                        public TessUtils::TopLevelPluginInterface,
                        public NimbraRenderer,
                        public NimbraSimInterface,
                        public NimbraParams,
                        public NimbraVolumeRenderLUTholder {
public:
    explicit NimbraSimPlugin(TessUtils::TessraPluginDesc* desc);
    ~NimbraSimPlugin() override;

    PluginInterface* getInterface(InterfaceID id) override;
    Plugin* getPlugin() override { return this; }

    // Life of a render, on the scene thread.
    void preRenderBegin(TessUtils::TessraRenderer* renderer) override;
    void renderBegin(TessUtils::TessraRenderer* renderer) override;
    /// Turns the parameters and the cache's frame into a shader that is ready to be marched.
    void preFrameBegin(TessUtils::TessraRenderer* renderer) override;
    void frameBegin(TessUtils::TessraRenderer* renderer) override;
    void postFrameEnd(TessUtils::TessraRenderer* renderer) override;
    void postRenderEnd(TessUtils::TessraRenderer* renderer) override;

    // NimbraSimInterface.
    const GridTransforms* getGridTransforms() override { return &gridTransforms_; }
    void setInstanceTransform(const TessUtils::Transform& transform, int motionFlag) override;
    NimbraFrameData* getFrameByContentTime(int contentTime) override;
    NimbraFrameData* getFrameByTime(double time) override;
    NimbraRenderer* getRenderer(int index) override;
    void prepareDisplacement(std::uint32_t flags) override;
    int isValid() override { return 1; }
    int isRenderable() override { return rows_.render; }
    int getChannelBase(int which) override;
    bool isVisibleFor(const TessUtils::ShadingContext& context) override;
    int getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) override;
    int getNimbraMesh(NimbraMesh& mesh) override;

    // NimbraParams.
    int getInt(const char* key) const override;
    float getFloat(const char* key) const override;
    TessUtils::Color getColor(const char* key) const override;
    bool hasTexture(int slot) const override { return NimbraRenderer::hasTexture(slot); }
    float getDensityScale(const NimbraFrameData* frame) const override;

    /// Which way of rendering the parameters ask for.
    RenderMode getRenderMode() const;

    /// Of the current frame: metres in a scene unit, times the container's own scale of time.
    float timeScale() const { return timeScale_; }
    int sceneUpAxis() const { return sceneUpAxis_; }
    /// Edge of a cell in scene units.
    float worldCellSize() const { return worldCellSize_; }

private:
    struct FrameLoad;

    // The steps of preFrameBegin, in their order.
    void clearFrame();
    bool acquireCache();
    void loadFrame(FrameLoad& load);
    void buildTables(const FrameLoad& load);
    void warnOfLocalPath(const FrameLoad& load);
    void findObjectSpace(FrameLoad& load);
    void readSettings(const FrameLoad& load);
    void readVisibility();
    void readTransforms(FrameLoad& load);
    void readUnits(FrameLoad& load);
    void followMotion(const FrameLoad& load);
    void followWind(const FrameLoad& load);
    void measureCells(const FrameLoad& load);
    void readVelocityMult(FrameLoad& load);
    void readLateRows(const FrameLoad& load);
    void setRenderFlags(const FrameLoad& load);
    void reportProblems(const FrameLoad& load);

    void joinCollector(TessUtils::TessraRenderer* renderer);
    void bindVelocities(NimbraFrameData& frame);
    void placeInstance(const TessUtils::Transform& world, bool atEnd);
    void readExplicitVelocities(NimbraFrameData& frame);
    void readLightLinks();
    bool isProbabilistic() const;
    /// The scene's value of a row or else its default; null if there is no such row.
    const TessUtils::TessraPluginParameter* rowValue(const char* key) const;
    /// A transform row at a time, with the world brought near the origin.
    TessUtils::Transform transformAt(const char* key, double time) const;
    TessUtils::ProgressCallback* progress() const;

    SimParams rows_;
    NimbraSimInterface* cacheInterface_ = nullptr;  // from preFrameBegin on
    TessUtils::TessraRenderer* renderer_ = nullptr;
    double frameTime_ = 0;  // at which rows are read by name
    TessUtils::TracePoint sceneOffset_;
    bool toldOfLightCache_ = false;  // that it isn't used, once a render
    bool movesInFrame_ = false;      // the container is placed at both ends of the motion interval
    TessUtils::Transform frameStartTransform_, frameEndTransform_;
    GridTransforms gridTransforms_;
    float timeScale_ = 1;
    int sceneUpAxis_ = 1;
    float worldCellSize_ = 1;
};

}  // namespace nimbra
