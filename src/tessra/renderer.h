// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What plug-ins see of a running render: the data of the sequence and of the frame, and the objects
// that the renderer or the sequence answers to by ID.
#pragma once

#include <string>
#include <vector>

#include "tessra/math.h"
#include "tessra/plugin_base.h"
#include "tessra/progress.h"
#include "tessra/thread_manager.h"

namespace TessUtils {

class VolumetricInterface;
class TessraPluginParameter;

inline constexpr int kMaxRenderThreads = 64;
/// `imageSamplerType` of the progressive image sampler.
inline constexpr int kProgressiveSampler = 3;

/// Constant for a whole render. Queried by ID for the camera settings, the units and the like.
class TESSRA_API TessraSequenceData : public PluginBase {
public:
    ProgressCallback* progress = nullptr;  // may be null
    ThreadManager* threadManager = nullptr;
    int threadCount = 1;  // render threads, at most kMaxRenderThreads
    const std::vector<std::string>* distributedHosts = nullptr;  // non-null in a distributed render
    int motionBlurOn = 0;
    int giOn = 0;
    int maxRayIntensityOn = 0;
    int maxTransparencyLevels = 50;
    int imageSamplerType = 0;
    int isInteractive = 0;
};

/// Constant for one frame. Times are in frames of the scene.
struct TessraFrameData {
    double t = 0;           // time of the frame
    double frameStart = 0;  // motion blur interval
    double frameEnd = 0;
    int frameNumber = 0;
    float zDepthBlack = 0;
    float zDepthWhite = 1000;
    TracePoint sceneOffset;  // subtracted from world positions to keep the render near the origin
};

/// The renderer: per-render objects of plug-ins hang on it by addInterface.
class TESSRA_API TessraRenderer : public PluginBase {
public:
    virtual const TessraSequenceData& getSequenceData() const = 0;
    virtual const TessraFrameData& getFrameData() const = 0;
};

/// ID kCameraSettings.
class TESSRA_API CameraSettingsInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kCameraSettings; }
    /// Key 0x71 (113): the camera's own motion blur, -1 where it has none.
    virtual int getValue(int key) = 0;
};
inline constexpr int kCameraMotionBlurKey = 0x71;

/// ID kSceneUnits.
class TESSRA_API SceneUnitsInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kSceneUnits; }
    virtual Vector upDirection() const = 0;
    /// Metres in one scene unit.
    virtual float scale() const = 0;
    /// Seconds in one frame.
    virtual float frameDuration() const = 0;
};

/// ID kScene: the plug-ins of the scene.
class TESSRA_API SceneInterface : public PluginInterface {
public:
    class EnumCallback {
    public:
        virtual ~EnumCallback() = default;
        /// Returning zero ends the enumeration.
        virtual int process(Plugin* plugin) = 0;
    };
    InterfaceID getInterfaceID() const override { return ids::kScene; }
    /// Calls back for each plug-in in scene order; returns the calls made.
    virtual int enumPlugins(EnumCallback* callback) = 0;
    virtual Plugin* findPlugin(const char* name) = 0;
};

/// ID kInteractiveEngine.
class TESSRA_API InteractiveEngineInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kInteractiveEngine; }
    virtual bool isProgressive() const = 0;
    virtual bool isRealtime() const = 0;
};

/// ID kProbabilisticSettings, asked of the sequence.
class TESSRA_API ProbabilisticSettingsInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kProbabilisticSettings; }
    virtual int samples() const = 0;    // of primary rays, 0: off
    virtual int samplesGI() const = 0;  // of GI rays
};

/// ID kVolumetricList: the volumetric effects of the render, in the order in which they joined.
class TESSRA_API VolumetricListInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kVolumetricList; }
    std::vector<VolumetricInterface*> volumetrics;
};

/// ID kFrameSource: a plug-in that reads a sequence of files tells which frame of it is rendered.
class TESSRA_API FrameSourceInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kFrameSource; }
    /// False while no frame is loaded. The time is in frames of the sequence, and between two of
    /// them for a blend. Scene thread, from preFrameBegin to frameEnd.
    virtual bool loadedFrame(double& time) = 0;
};

/// ID kPlanckTable, asked of the renderer: black-body colours by temperature.
class TESSRA_API PlanckTableInterface : public PluginInterface {
public:
    static constexpr int kEntries = 10000;
    InterfaceID getInterfaceID() const override { return ids::kPlanckTable; }
    /// Linear colour of a black body at `kelvin` (0 to 9999), green being its luminance.
    virtual const Color& entry(int kelvin) const = 0;
};

/// The host's mapping of paths between machines: this host has none and answers the path as it is.
TESSRA_API std::string remapPath(const TessraSequenceData& sequence, const std::string& path);
/// Puts the scene's folder before a relative path. Absolute paths (of any system), empty ones and
/// ones that begin with "$env(" stay as they are, and so do all while no folder is set.
TESSRA_API std::string adjustRelativePath(Plugin* plugin, const std::string& path);
/// What relative paths are relative to: the folder of the scene file. Set by the host.
TESSRA_API void setSceneFolder(const std::string& folder);

}  // namespace TessUtils
