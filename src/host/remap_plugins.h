// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Host plug-ins "TessraCurve" and "TessraGradient": curves and colour ramps that a scene draws.
#pragma once

#include <limits>
#include <mutex>
#include <vector>

#include "host/host_plugin.h"
#include "tessra/texture.h"

namespace nimbra::host {

enum class KnotInterpolation { Step = 0, Linear = 1, Smooth = 2 };

/// A curve through knots in rising order of x. Before the first and behind the last knot it keeps
/// their values; without knots it is 0. Smooth is the cubic of Fritsch and Carlson ("Monotone
/// piecewise cubic interpolation", 1980), which never overshoots its knots.
class KnotCurve {
public:
    struct Knot {
        float x, y;
    };
    KnotCurve() = default;
    /// Knots in any order; of knots at the same x the later one counts to the right of it.
    KnotCurve(std::vector<Knot> knots, KnotInterpolation interpolation);
    float eval(float x) const;

private:
    std::vector<Knot> knots_;
    std::vector<float> slopes_;  // of Smooth, one a knot
    KnotInterpolation interpolation_ = KnotInterpolation::Linear;
};

class CurvePlugin final : public TessUtils::TessraPlugin, public TessUtils::FloatRemapInterface {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit CurvePlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    InterfaceID getInterfaceID() const override { return FloatRemapInterface::getInterfaceID(); }
    const char* getInterfaceName() const override { return "TessraCurve"; }
    PluginInterface* getInterface(InterfaceID id) override;
    void renderBegin(TessUtils::TessraRenderer* renderer) override;
    /// Thread-safe. Good before frameBegin too, since it reads the scene's values for `time`.
    float evalFloat(float x, double time) const override;

private:
    mutable std::mutex mutex_;
    mutable double cachedTime_ = std::numeric_limits<double>::quiet_NaN();
    mutable KnotCurve curve_;
};

class GradientPlugin final : public TessUtils::TessraPlugin, public TessUtils::ColorRemapInterface {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit GradientPlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    InterfaceID getInterfaceID() const override { return ColorRemapInterface::getInterfaceID(); }
    const char* getInterfaceName() const override { return "TessraGradient"; }
    PluginInterface* getInterface(InterfaceID id) override;
    void renderBegin(TessUtils::TessraRenderer* renderer) override;
    /// Thread-safe, as evalFloat of a curve.
    TessUtils::Color evalColor(float x, double time) const override;

private:
    mutable std::mutex mutex_;
    mutable double cachedTime_ = std::numeric_limits<double>::quiet_NaN();
    mutable KnotCurve channels_[3];
};

}  // namespace nimbra::host
