// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/remap_plugins.h"

#include <algorithm>
#include <cmath>

#include "host/parameter_view.h"
#include "tessra/renderer.h"

namespace nimbra::host {

using namespace TessUtils;

KnotCurve::KnotCurve(std::vector<Knot> knots, KnotInterpolation interpolation)
    : knots_(std::move(knots)), interpolation_(interpolation) {
    std::stable_sort(knots_.begin(), knots_.end(),
                     [](const Knot& a, const Knot& b) { return a.x < b.x; });
    const std::size_t n = knots_.size();
    if (interpolation_ != KnotInterpolation::Smooth || n < 2)
        return;
    std::vector<float> secants(n - 1);
    for (std::size_t i = 0; i + 1 < n; ++i) {
        const float width = knots_[i + 1].x - knots_[i].x;
        secants[i] = width > 0 ? (knots_[i + 1].y - knots_[i].y) / width : 0;
    }
    slopes_.resize(n);
    slopes_.front() = secants.front();
    slopes_.back() = secants.back();
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const float a = secants[i - 1], b = secants[i];
        // The harmonic mean stays within three times either secant, which keeps the cubic monotone.
        slopes_[i] = a * b > 0 ? 2 * a * b / (a + b) : 0;
    }
}

float KnotCurve::eval(float x) const {
    if (knots_.empty())
        return 0;
    // The first knot to the right of x; NaN comes out at the first knot.
    const auto right = std::upper_bound(knots_.begin(), knots_.end(), x,
                                        [](float at, const Knot& knot) { return at < knot.x; });
    if (right == knots_.begin() || std::isnan(x))
        return knots_.front().y;
    const Knot& a = right[-1];
    if (right == knots_.end() || interpolation_ == KnotInterpolation::Step)
        return a.y;
    const Knot& b = *right;
    const float width = b.x - a.x;
    const float t = (x - a.x) / width;
    if (interpolation_ == KnotInterpolation::Linear)
        return a.y + (b.y - a.y) * t;
    const auto index = static_cast<std::size_t>(right - knots_.begin());
    const float t2 = t * t, t3 = t2 * t;
    return a.y * (2 * t3 - 3 * t2 + 1) + b.y * (3 * t2 - 2 * t3) +
           width * (slopes_[index - 1] * (t3 - 2 * t2 + t) + slopes_[index] * (t3 - t2));
}

namespace {

void addKnotRows(TessraParameterListDesc& table) {
    table.addParamFloat("positions", 0, 0, "Where the knots are");
    table.addParamInt("interpolation", static_cast<int>(KnotInterpolation::Linear), -1,
                      "How values between two knots come about", "enum=(0:Step;1:Linear;2:Smooth)");
}

int listCount(const TessraPluginParameter* list, double time) {
    return list ? std::max(list->getCount(time), 0) : 0;
}

/// Knots in the shorter of the two lists.
int knotCount(const TessraPluginParameter* positions, const TessraPluginParameter* values,
              double time) {
    return std::min(listCount(positions, time), listCount(values, time));
}

void warnOfLengths(TessraPlugin& plugin, const char* kind, const char* valuesRow,
                   TessraRenderer* renderer) {
    const double time = renderer->getFrameData().t;
    const int positions = listCount(plugin.getParameter("positions"), time);
    const int values = listCount(plugin.getParameter(valuesRow), time);
    ProgressCallback* progress = renderer->getSequenceData().progress;
    if (positions != values && progress)
        progress->printWarning("[%s] '%s' has %d positions and %d %s, the shorter list counts\n",
                               kind, plugin.getPluginName(), positions, values, valuesRow);
}

// The scene's values can be read at any time through a plug-in that isn't const for other reasons.
ParameterView viewOf(const TessraPlugin& plugin, double time) {
    return {const_cast<TessraPlugin&>(plugin), time};
}

KnotInterpolation interpolationOf(const ParameterView& view) {
    return static_cast<KnotInterpolation>(view.getInt("interpolation"));
}

}  // namespace

HostPluginInfo CurvePlugin::info() {
    return {"TessraCurve",
            2026010110,
            HostCategory::Curve,
            "A curve through knots, for parameters that take one.",
            {ids::kFloatRemap}};
}

void CurvePlugin::defineParameters(TessraParameterListDesc& table) {
    addKnotRows(table);
    table.addParamFloat("values", 0, 0, "The curve's value at each position");
}

CurvePlugin::CurvePlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {}

PluginInterface* CurvePlugin::getInterface(InterfaceID id) {
    if (id == ids::kFloatRemap)
        return static_cast<FloatRemapInterface*>(this);
    return TessraPlugin::getInterface(id);
}

void CurvePlugin::renderBegin(TessraRenderer* renderer) {
    TessraPlugin::renderBegin(renderer);
    warnOfLengths(*this, "TessraCurve", "values", renderer);
}

float CurvePlugin::evalFloat(float x, double time) const {
    std::lock_guard lock(mutex_);
    if (cachedTime_ != time) {
        const ParameterView view = viewOf(*this, time);
        const auto* positions = view.find("positions");
        const auto* values = view.find("values");
        std::vector<KnotCurve::Knot> knots;
        knots.reserve(static_cast<std::size_t>(knotCount(positions, values, time)));
        for (int i = 0; i < knotCount(positions, values, time); ++i)
            knots.push_back({positions->getFloat(i, time), values->getFloat(i, time)});
        curve_ = KnotCurve(std::move(knots), interpolationOf(view));
        cachedTime_ = time;
    }
    return curve_.eval(x);
}

HostPluginInfo GradientPlugin::info() {
    return {"TessraGradient",
            2026010111,
            HostCategory::Curve,
            "A colour ramp through knots, for parameters that take one.",
            {ids::kColorRemap}};
}

void GradientPlugin::defineParameters(TessraParameterListDesc& table) {
    addKnotRows(table);
    table.addParamColor("colors", {}, 0, "The colour at each position");
}

GradientPlugin::GradientPlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {}

PluginInterface* GradientPlugin::getInterface(InterfaceID id) {
    if (id == ids::kColorRemap)
        return static_cast<ColorRemapInterface*>(this);
    return TessraPlugin::getInterface(id);
}

void GradientPlugin::renderBegin(TessraRenderer* renderer) {
    TessraPlugin::renderBegin(renderer);
    warnOfLengths(*this, "TessraGradient", "colors", renderer);
}

Color GradientPlugin::evalColor(float x, double time) const {
    std::lock_guard lock(mutex_);
    if (cachedTime_ != time) {
        const ParameterView view = viewOf(*this, time);
        const auto* positions = view.find("positions");
        const auto* colors = view.find("colors");
        std::vector<KnotCurve::Knot> knots[3];
        for (int i = 0; i < knotCount(positions, colors, time); ++i) {
            const Color color = colors->getColor(i, time);
            for (int c = 0; c < 3; ++c)
                knots[c].push_back({positions->getFloat(i, time), color[c]});
        }
        for (int c = 0; c < 3; ++c)
            channels_[c] = KnotCurve(std::move(knots[c]), interpolationOf(view));
        cachedTime_ = time;
    }
    return {channels_[0].eval(x), channels_[1].eval(x), channels_[2].eval(x)};
}

}  // namespace nimbra::host
