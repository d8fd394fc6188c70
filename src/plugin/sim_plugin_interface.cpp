// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What other plug-ins ask of a container: its frame, its shader, what its inputs are based on and
// which rays see it.
#include "plugin/sim_plugin.h"

namespace nimbra {

using namespace TessUtils;

NimbraFrameData* NimbraSimPlugin::getFrameByContentTime(int contentTime) {
    return rows_.enabled && cacheInterface_ ? cacheInterface_->getFrameByContentTime(contentTime)
                                            : nullptr;
}

NimbraFrameData* NimbraSimPlugin::getFrameByTime(double time) {
    return rows_.enabled && cacheInterface_ ? cacheInterface_->getFrameByTime(time) : nullptr;
}

int NimbraSimPlugin::getFrameIndices(double time, bool bend, float* loopBlend, int* loopFrame) {
    return rows_.enabled && cacheInterface_
               ? cacheInterface_->getFrameIndices(time, bend, loopBlend, loopFrame)
               : 0;
}

NimbraRenderer* NimbraSimPlugin::getRenderer(int index) {
    return index == 0 && rows_.enabled && has(kHasGrid) ? this : nullptr;
}

int NimbraSimPlugin::getChannelBase(int which) {
    constexpr int kSmokeChannel = 2;
    switch (which) {
        case 0:
            return getInt("earg");
        case 1:
            return getInt("darg");
        case 2: {
            const int targ = getInt("targ");
            return targ == 0 ? kSmokeChannel : targ;
        }
        case 3:
            return getInt("sarg");
        default:
            return -1;
    }
}

// Displacement needs a pass of its own before the first ray, which this version doesn't have.
void NimbraSimPlugin::prepareDisplacement(std::uint32_t) {}

int NimbraSimPlugin::getNimbraMesh(NimbraMesh&) {
    return 0;
}

bool NimbraSimPlugin::isVisibleFor(const ShadingContext& context) {
    const TraceRay& ray = context.ray;
    if (ray.flags & kRayShadow) {
        if (visibility & kNoShadow)
            return false;
        return rows_.selfShadow != 0 || ray.light != static_cast<const Plugin*>(this);
    }
    if (!(ray.flags & kRayPath))
        return true;
    const bool hidden = ((visibility & kHiddenFromCamera) && ray.depth == 0) ||
                        ((visibility & kHiddenFromReflections) && (ray.flags & kRayReflection)) ||
                        ((visibility & kHiddenFromRefractions) && (ray.flags & kRayRefraction)) ||
                        ((visibility & kHiddenFromGI) && (ray.flags & kRayGI));
    return !hidden;
}

void NimbraSimPlugin::readVisibility() {
    const struct {
        const char* row;
        std::uint32_t bit;
        bool bitWhenOn;
    } kRows[] = {
        {"generate_gi", kVisibleInGI, true},
        {"receive_gi", kReceivesGI, true},
        {"generate_caust", kGeneratesCaustics, true},
        {"receive_caust", kReceivesCaustics, true},
        {"shadows_visibility", kNoShadow, false},
        {"camera_visibility", kHiddenFromCamera, false},
        {"reflections_visibility", kHiddenFromReflections, false},
        {"refractions_visibility", kHiddenFromRefractions, false},
        {"gi_visibility", kHiddenFromGI, false},
    };
    visibility = 0;
    for (const auto& row : kRows)
        if ((getInt(row.row) != 0) == row.bitWhenOn)
            visibility |= row.bit;
    giMultiplier = getFloat("gen_gi_mult");
    giReceived = getFloat("rec_gi_mult");
    lightScale = getFloat("caust_mult");
}

void NimbraSimPlugin::readLightLinks() {
    lightLinks.clear();
    const TessraPluginParameter* row = paramList->getParam("lightlinks");
    if (!row)
        return;
    constexpr int kUsualCount = 100;
    lightLinks.reserve(kUsualCount);
    const int count = row->getCount(frameTime_);
    for (int i = 0; i < (count < 0 ? 1 : count); ++i) {
        PluginBase* light = row->getObject(i);
        lightLinks.push_back(light && light->getInterface(ids::kLight) ? light : nullptr);
    }
}

}  // namespace nimbra
