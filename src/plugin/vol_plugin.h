// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// "NmbShaderSimVol": the one volumetric effect that the host sees. It collects all containers and
// particle shaders in volumetric mode and marches them together, which is what makes intersecting
// volumes blend by depth.
#pragma once

#include <vector>

#include "foundation/array.h"
#include "plugin/block_pool.h"
#include "tessra/geometry.h"
#include "tessra/renderer.h"
#include "tessra/volumetric.h"
#include "volume/qnd_tree.h"

namespace nimbra {

class NimbraSimInterface;
class VolumeShader;

/// How a render channel of the volumes is shared: with others, unless a container asks for one of
/// its own.
struct VolumeChannelState {
    bool shared = true;
};

class NimbraVolPlugin : public TessUtils::TessraVolumetric,
                        public TessUtils::RenderSettingsInterface,
                        public TessUtils::TessraSceneModifierInterface,
                        public TessUtils::TopLevelPluginInterface,
                        public TessUtils::GeomGenInterface2,
                        public TessUtils::StaticGeomSourceInterface {
public:
    explicit NimbraVolPlugin(TessUtils::TessraPluginDesc* desc);

    PluginInterface* getInterface(InterfaceID id) override;
    Plugin* getPlugin() override { return this; }

    void renderBegin(TessUtils::TessraRenderer* renderer) override;
    void renderEnd(TessUtils::TessraRenderer* renderer) override;
    void setupRender(TessUtils::TessraRenderer* renderer) override;
    void preRenderBegin(TessUtils::TessraRenderer*) override {}
    void postRenderEnd(TessUtils::TessraRenderer*) override {}
    void preFrameBegin(TessUtils::TessraRenderer*) override {}
    void postFrameEnd(TessUtils::TessraRenderer*) override {}
    /// Lists the shaders of the frame.
    void compileGeometry(TessUtils::TessraRenderer* renderer) override;
    void clearGeometry(TessUtils::TessraRenderer* renderer) override;
    TessUtils::StaticGeomInstance* newInstance(TessUtils::TessraRenderer*) override {
        return nullptr;
    }
    void deleteInstance(TessUtils::StaticGeomInstance*) override {}

    void shade(TessUtils::ShadingContext& context) override;
    void shadeTransparency(TessUtils::ShadingContext& context) override { shade(context); }

    // Of the frame; entry i of both lists belongs together.
    NMBUtils::NmbArray<VolumeShader*, int> shaders;
    NMBUtils::NmbArray<NimbraSimInterface*, int> simInterfaces;
    int samples = 0;    // probabilistic samples of primary rays, 0: off
    int samplesGI = 0;  // of all others
    VolumeChannelState normalChannel, zDepthChannel, ageChannel;

private:
    class ActiveShaders;
    void listShadersOf(Plugin* plugin, TessUtils::ProgressCallback* progress);
    void prepareThreads(int threadCount);
    void buildTree(TessUtils::ProgressCallback* progress);
    void findBounds();
    /// False only where the ray passes by all volumes.
    bool mayMeet(const TessUtils::ShadingContext& context) const;
    /// False when no volume takes part; the answer is then unset.
    bool march(TessUtils::ShadingContext& context);

    TessUtils::TessraPluginParameter* forceProbSamples = nullptr;
    TessUtils::TessraPluginParameter* forceProbSamplesGI = nullptr;
    const TessUtils::RenderChannelListInterface* renderChannels_ = nullptr;
    /// What one render thread needs, apart from what others write.
    struct alignas(64) ThreadPool {
        BlockPool blocks;
        float rayTime = 0;  // of the ray that the thread is at
    };
    std::vector<ThreadPool> threadPools;
    QndTree tree_;
    WorldBox bounds_;  // of all shaders' grids; empty: not known
};

}  // namespace nimbra
