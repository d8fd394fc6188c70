// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a user should know about the settings of a container, told once the frame is loaded; some
// settings that can't work are switched off here.
#include <algorithm>
#include <cmath>

#include "cache/frame_data.h"
#include "plugin/probabilistic_samples.h"
#include "plugin/sim_frame_load.h"

namespace nimbra {

using namespace TessUtils;

namespace {

/// The collector of the scene, null without one.
Plugin* findCollector(TessraRenderer* renderer) {
    struct Find : SceneInterface::EnumCallback {
        Plugin* found = nullptr;
        int process(Plugin* plugin) override {
            constexpr PluginID kCollector = 20110223041;
            if (plugin->getPluginDesc() && plugin->getPluginDesc()->getPluginID() == kCollector)
                found = plugin;
            return found == nullptr;
        }
    } find;
    if (auto* scene = queryRender<SceneInterface>(renderer, ids::kScene))
        scene->enumPlugins(&find);
    return find.found;
}

/// Steps through the grid from corner to corner.
double diagonalSteps(const int size[3], float rendstep) {
    const double diagonal = std::sqrt(double(size[0]) * size[0] + double(size[1]) * size[1] +
                                      double(size[2]) * size[2]);
    constexpr double kMost = 2147483647;
    return rendstep > 0 ? std::min(diagonal / rendstep, kMost) : 0;
}

bool lacksVelocity(const NimbraFrameData& frame) {
    return !frame.hasChannel(kVelocityX) || !frame.hasChannel(kVelocityY) ||
           !frame.hasChannel(kVelocityZ);
}

}  // namespace

bool NimbraSimPlugin::isProbabilistic() const {
    TessraPluginParameter* force = nullptr;
    TessraPluginParameter* forceGI = nullptr;
    if (Plugin* volumes = findCollector(renderer_)) {
        auto* rows = static_cast<TessraPluginInterface*>(volumes->getInterface(ids::kTessraPlugin));
        force = rows ? rows->getParameter("force_prob_samples") : nullptr;
        forceGI = rows ? rows->getParameter("force_prob_samples_gi") : nullptr;
    }
    int samples = 0, samplesGI = 0;
    readProbabilisticSamples(renderer_->getSequenceData(), frameTime_, force, forceGI, samples,
                             samplesGI);
    return samples > 0 || samplesGI > 0;
}

void NimbraSimPlugin::reportProblems(const FrameLoad& load) {
    ProgressCallback* const log = progress();
    if (!log)
        return;
    const RenderMode mode = getRenderMode();
    const bool volumetric = mode == kModeVolumetric || mode == kModeVolumetricGeometry;
    const TessraSequenceData& sequence = load.sequence();

    if (load.useVelocityBlur && !paramList->getParam("velocities") && lacksVelocity(*load.frame))
        log->printWarning(
            "[NimbraSimPlugin] Motion blur without velocity channel will not work properly.\n");

    const double levels = diagonalSteps(NimbraRenderer::gridSize, rendstep);
    if (mode == kModeVolumetricGeometry && !load.situation.isProgressive &&
        sequence.maxTransparencyLevels < levels)
        log->printWarning(
            "[NimbraSimPlugin] To get better results with Volumetric Geometry mode rendering, you "
            "may need to increase the Max transparency levels of Tessra to about %d.\n",
            static_cast<int>(levels));

    if (!load.situation.isProgressive && volumetric && sequence.giOn &&
        sequence.maxRayIntensityOn && has(kEmissive) && !has(kExtraLights))
        log->printWarning(
            "[NimbraSimPlugin] Rendering in GI mode without using the Nimbra Emissive Lights will "
            "produce incorrect illumination unless you turn off 'Max ray intens' in Tessra.\n");

    if (has(kLightCache) && volumetric && has(kDiffuse) &&
        !queryRender(load.renderer, ids::kLightCacheEngine) &&
        sequence.imageSamplerType == kProgressiveSampler) {
        if (!load.situation.isRealtime && !toldOfLightCache_) {
            log->printWarning(
                "[NimbraSimPlugin] Using the Progressive sampler with the Nimbra Light Cache will "
                "slow down the rendering considerably. The Nimbra Light Cache will not be used for "
                "this render.\n");
            toldOfLightCache_ = true;
        }
        flags &= ~kLightCache;
    }

    if (volumetric && has(kEmissive) && fire_opacity_mode == kFireVisible && isProbabilistic()) {
        log->printWarning(
            "[NimbraSimPlugin] The 'Fully Visible' Fire Opacity Mode will not work correctly with "
            "Probabilistic Shading. Falling back to 'Use Smoke Opacity' for this render.\n");
        fire_opacity_mode = kFireUsesSmoke;
    }
}

}  // namespace nimbra
