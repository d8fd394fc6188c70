// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The plug-in that stands for one cache sequence of a scene: it takes the path with its frame
// pattern and the time bend, and answers which frame belongs to a moment.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "cache/time_bend.h"
#include "plugin/sim_interface.h"
#include "tessra/renderer.h"
#include "tessra/tessra_plugin.h"

namespace TessUtils {
class ProgressCallback;
}

namespace nimbra {

class NimbraFrame;

/// "NmbShaderCache". Lifecycle calls come on the scene thread; frames may be asked for on any.
class NimbraCachePlugin : public TessUtils::TessraPlugin,
                          public NimbraSimInterface,
                          public TessUtils::TessraSceneModifierInterface,
                          public TessUtils::FrameSourceInterface {
public:
    explicit NimbraCachePlugin(TessUtils::TessraPluginDesc* desc);
    ~NimbraCachePlugin() override;

    PluginInterface* getInterface(InterfaceID id) override;
    Plugin* getPlugin() override { return this; }
    InterfaceID getInterfaceID() const override { return NimbraSimInterface::getInterfaceID(); }
    const char* getInterfaceName() const override { return NimbraSimInterface::getInterfaceName(); }

    void frameEnd(TessUtils::TessraRenderer* renderer) override;
    void preRenderBegin(TessUtils::TessraRenderer* renderer) override;
    void postRenderEnd(TessUtils::TessraRenderer* renderer) override;
    void preFrameBegin(TessUtils::TessraRenderer* renderer) override;
    void postFrameEnd(TessUtils::TessraRenderer* renderer) override;

    bool loadedFrame(double& time) override;

    const GridTransforms* getGridTransforms() override { return nullptr; }
    void setInstanceTransform(const TessUtils::Transform&, int) override {}
    NimbraFrameData* getFrameByContentTime(int contentTime) override;
    NimbraFrameData* getFrameByTime(double time) override;
    NimbraRenderer* getRenderer(int) override { return nullptr; }
    void prepareDisplacement(std::uint32_t) override {}
    int isValid() override { return 1; }
    int isRenderable() override { return 0; }
    int getChannelBase(int) override { return 0; }
    bool isVisibleFor(const TessUtils::ShadingContext&) override { return false; }
    int getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) override;
    int getNimbraMesh(NimbraMesh& mesh) override;

    /// cache_path as files are looked for: resolved by the host, with environment variables filled
    /// in and network paths spelled with backslashes.
    std::string resolvedPath();

private:
    /// The rows of the table, kept current by the parameter list. Bool rows are ints.
    struct Rows {
        std::string cache_path, usrchmap;
        int velocities_from_uvw = 0, isMayaFluid = 0;
        float grid_size_x = 1, grid_size_y = 1, grid_size_z = 1, cell_size = 1;
        int anim_mode = 0, loop_overlap = 0, blend_method = 0;
        int read_offset = 0, play_at = 0, max_length = 0;
        float play_speed = 1, t2f = 0;
        int TPF = 1000, flip_yz = 0, time_tform = 1, load_nearest = 0, smooth_mask = 0;
    };
    void bindRows();
    void cacheRows(double time);
    TimeBend bendSettings() const;
    /// What every request starts with: the path, the smoothing settings.
    void prepare(double time);
    void readSmoothing(double time);
    /// Finds the channels of a foreign cache whose user gave no mapping; `frame` is the wanted one.
    void fillChannelMap(std::int64_t frame);
    /// Makes the frame of a tick number the held one and says what came of it; `quote` stands
    /// around the path in the message.
    void loadFrame(std::int64_t ticks, const char* quote);
    /// Loads by the rows of the request; says when a file is damaged.
    int loadInto(NimbraFrame& holder, std::int64_t ticks);
    void turnUpAxis();
    /// Where motion blur needs them: velocities of the held frame, made of the next one.
    void makeVelocities(std::int64_t ticks);
    void reportImport(const std::string& warning, const std::string& problem);
    /// Tells the user what a moment between two frames lacks.
    void reportBlend(int status);
    template <class Request>
    NimbraFrameData* guarded(Request&& request);
    void releaseFrames();
    TessUtils::ProgressCallback* progress() const;

    Rows rows_;
    /// The rows are those of the current request's time.
    bool paramsCached_ = false;
    /// Guards the preparation of a frame.
    std::recursive_mutex section_;
    /// A frame was prepared in this render frame. Set last, so that it may be read without the
    /// lock.
    std::atomic<bool> loaded_{false};
    std::unique_ptr<NimbraFrame> frame_;
    TessUtils::TessraRenderer* renderer_ = nullptr;
    /// `resolvedPath` of the current request.
    std::string path_;
    /// Sequence whose channels were looked up in this render, and the mapping that came out.
    std::string channelMapPattern_, foundChannelMap_;
    /// The last warning of an import in this render.
    std::string saidWarning_;
};

}  // namespace nimbra
