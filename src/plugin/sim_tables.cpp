// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/sim_tables.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "cache/frame_data.h"
#include "foundation/ramps.h"
#include "plugin/sim_params.h"
#include "tessra/renderer.h"
#include "tessra/texture.h"
#include "volume/lut_holder.h"
#include "volume/nimbra_params.h"
#include "volume/volume_shader.h"

namespace nimbra {

namespace {

using namespace TessUtils;
using NMBUtils::KolRamps;
using NMBUtils::RenderDiagramSamplerStandAlone;
using NMBUtils::RenderGradientSamplerStandAlone;

/// What an input is based on, beside a channel of the grid.
enum TableInput : int { kNoRamp = -1, kGridColor = -2 };

/// Values of "earg", "darg" and "targ" that name no channel.
enum BasedOn : int { kDisabled = 0, kTexture = 4, kFireRGB = 5, kSimpleColor = 5, kDiffuseRGB = 6 };

int fireInput(int earg) {
    if (earg == kDisabled || earg == kTexture)
        return kNoRamp;
    return earg == kFireRGB ? kGridColor : earg;
}

int diffuseInput(int darg) {
    if (darg == kDisabled || darg == kTexture || darg == kSimpleColor)
        return kNoRamp;
    return darg == kDiffuseRGB ? kGridColor : darg;
}

int opacityInput(int targ) {
    constexpr int kSmokeChannel = 2;
    if (targ == kTexture)
        return kNoRamp;
    return targ == kDisabled ? kSmokeChannel : targ;
}

/// The range of a channel. Cells that a sparse grid doesn't store read 0, so that the range of a
/// sparse grid takes in 0 as well.
LutRange channelRange(NimbraFrameData* frame, int channel) {
    float range[2] = {0, 1};
    if (!frame || !frame->getChannelMinAndSpan(channel, range))
        return {};
    const GridChannelProxy<float>& proxy = frame->getChannelProxy(channel);
    if (proxy.storage && proxy.storage->kind != 0) {
        const float low = std::min(range[0], 0.0f);
        range[1] = std::max(range[0] + range[1], 0.0f) - low;
        range[0] = low;
    }
    return std::isfinite(range[0]) && std::isfinite(range[1]) ? LutRange{range[0], range[1]}
                                                              : LutRange{};
}

class TableBuilder {
public:
    TableBuilder(NimbraVolumeRenderLUTholder& tables, const ShadingTableSource& source)
        : tables_(tables), s_(source), raw_(source.rows.normalizedPositions != 0) {}

    void build() {
        densityScale_ = s_.params.getDensityScale(s_.frame);
        emission();
        diffuse();
        opacity();
    }

private:
    void emission();
    void diffuse();
    void opacity();
    void emissionFromCurve(int channel);

    LutRange range(int channel, float offset, float scale) const {
        return raw_ ? LutRange{offset, scale} : channelRange(s_.frame, channel);
    }

    /// Entries of a row that the scene set; a single value counts as a list of one.
    int entries(const char* name) const {
        const TessraPluginParameter* row = s_.list.getParam(name);
        if (!row)
            return 0;
        const int count = row->getCount(s_.time);
        return count < 0 ? 1 : count;
    }
    std::vector<float> floats(const char* name, int limit = INT32_MAX) const {
        std::vector<float> values(static_cast<std::size_t>(std::min(entries(name), limit)));
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = s_.list.getParam(name)->getFloat(static_cast<int>(i), s_.time);
        return values;
    }
    std::vector<int> ints(const char* name) const {
        std::vector<int> values(static_cast<std::size_t>(entries(name)));
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = s_.list.getParam(name)->getInt(static_cast<int>(i), s_.time);
        return values;
    }
    std::vector<Color> colors(const char* name, int limit = INT32_MAX) const {
        std::vector<Color> values(static_cast<std::size_t>(std::min(entries(name), limit)));
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = s_.list.getParam(name)->getColor(static_cast<int>(i), s_.time);
        return values;
    }

    void makeCurve(RenderDiagramSamplerStandAlone& curve, const char* positions, const char* values,
                   const char* interpolations, PluginBase* remap) const;
    void makeGradient(RenderGradientSamplerStandAlone& gradient, const char* positions,
                      const char* values, PluginBase* remap) const;

    NimbraVolumeRenderLUTholder& tables_;
    const ShadingTableSource& s_;
    const bool raw_;
    float densityScale_ = 1;
};

void TableBuilder::makeCurve(RenderDiagramSamplerStandAlone& curve, const char* positions,
                             const char* values, const char* interpolations,
                             PluginBase* remap) const {
    curve.time = s_.time;
    if (remap)
        curve.host = static_cast<FloatRemapInterface*>(remap->getInterface(ids::kFloatRemap));
    const std::vector<float> xs = floats(positions), ys = floats(values);
    const std::vector<int> types = ints(interpolations);
    KolRamps::makeCurve(curve, xs.data(), static_cast<int>(xs.size()), ys.data(),
                        static_cast<int>(ys.size()), types.data(), static_cast<int>(types.size()));
}

void TableBuilder::makeGradient(RenderGradientSamplerStandAlone& gradient, const char* positions,
                                const char* values, PluginBase* remap) const {
    gradient.time = s_.time;
    if (remap)
        gradient.host = static_cast<ColorRemapInterface*>(remap->getInterface(ids::kColorRemap));
    const std::vector<float> xs = floats(positions);
    const std::vector<Color> keys = colors(values);
    KolRamps::makeGradient(gradient, xs.data(), static_cast<int>(xs.size()), keys.data(),
                           static_cast<int>(keys.size()));
}

void TableBuilder::emission() {
    const int channel = fireInput(s_.params.getInt("earg"));
    tables_.eRange = range(channel, s_.rows.ecolorOffset, s_.rows.ecolorScale);
    if (channel < 0)
        return;
    emissionFromCurve(channel);
    const std::vector<Color> plain = colors("ecolor", kLutEntries);
    const float scale =
        s_.params.getFloat("emult") * fireBrightnessRatio(s_.params, s_.interactive);
    tables_.setEmissionList(plain.data(), static_cast<int>(plain.size()), scale);
}

void TableBuilder::emissionFromCurve(int channel) {
    EmissionTableSettings settings;
    settings.rawIndex = raw_;
    settings.blackbodyMode = channel;
    settings.blackbody = s_.params.getFloat("blackbody");
    settings.physMult = fireBrightnessRatio(s_.params, s_.interactive);
    settings.emult = s_.params.getFloat("emult");
    settings.tmultFireOpacity = s_.params.getFloat("etmult");
    settings.fireOpacityScale = densityScale_;
    settings.fireOpacityMode = s_.params.getInt("fire_opacity_mode");
    std::vector<float> luminance;
    if (settings.blackbody != -1.0f && s_.planck) {
        luminance.resize(kPlanckEntries);
        for (int kelvin = 0; kelvin < kPlanckEntries; ++kelvin)
            luminance[static_cast<std::size_t>(kelvin)] = s_.planck->entry(kelvin).g;
        settings.planckLuminance = luminance.data();
    }
    RenderDiagramSamplerStandAlone curve;
    curve.channel = channel;
    makeCurve(curve, "elum_positions", "elum_values", "elum_interpolations", s_.rows.elumRemap);
    RenderGradientSamplerStandAlone gradient;
    makeGradient(gradient, "ecolor_positions", "ecolor_colors", s_.rows.ecolorRemap);
    tables_.buildEmissionTable(curve, gradient, settings);
}

void TableBuilder::diffuse() {
    const int channel = diffuseInput(s_.params.getInt("darg"));
    tables_.dRange = range(channel, s_.rows.dcolorOffset, s_.rows.dcolorScale);
    if (channel < 0)
        return;
    const std::vector<Color> plain = colors("dcolor", kLutEntries);
    if (!plain.empty()) {
        tables_.setDiffuseList(plain.data(), static_cast<int>(plain.size()));
        return;
    }
    RenderGradientSamplerStandAlone gradient;
    makeGradient(gradient, "dcolor_positions", "dcolor_colors", s_.rows.dcolorRemap);
    tables_.buildDiffuseTable(gradient, raw_);
}

void TableBuilder::opacity() {
    const int channel = opacityInput(s_.params.getInt("targ"));
    tables_.tRange = range(channel, s_.rows.transpOffset, s_.rows.transpScale);
    if (channel < 0)
        return;
    const bool invert = s_.params.getInt("transpmode") != 0;
    const float tmult = s_.params.getFloat("tmult");
    const std::vector<float> plain = floats("transp", kLutEntries);
    if (!plain.empty()) {
        tables_.setOpacityList(plain.data(), static_cast<int>(plain.size()), invert, tmult,
                               densityScale_);
        return;
    }
    RenderDiagramSamplerStandAlone curve;
    curve.kind = NMBUtils::kOpacityCurve;
    curve.channel = channel;
    makeCurve(curve, "transp_positions", "transp_values", "transp_interpolations",
              s_.rows.transpRemap);
    tables_.buildOpacityTable(curve, raw_, invert, tmult * densityScale_);
}

}  // namespace

float fireBrightnessRatio(const NimbraParams& params, bool interactive) {
    if (params.getInt("fire_opacity_mode") != kFireVisible || interactive)
        return 1;
    constexpr float kWithoutBlackBody = 0.01f;
    const float etmult = params.getFloat("etmult");
    return params.getFloat("blackbody") == -1.0f ? etmult * kWithoutBlackBody : etmult;
}

void buildShadingTables(NimbraVolumeRenderLUTholder& tables, const ShadingTableSource& source) {
    TableBuilder(tables, source).build();
}

}  // namespace nimbra
