// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Renders small scenes through the whole host, with plug-ins of known optics: "Slab", a box of
// constant extinction and emission, and "Ball", a sphere that intersects by its own code.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <mutex>

#include "host/fake_library.h"
#include "host/host_plugin.h"
#include "host/path_tracer.h"
#include "tessra/geometry.h"
#include "tessra/light.h"
#include "tessra/renderer.h"
#include "tessra/volumetric.h"

namespace nimbra::host::test {

using namespace TessUtils;

/// A ray that a slab was asked for.
struct VolumeCall {
    TraceRay ray;
    bool transparencyOnly = false;
    bool hasLights = false;
};

/// What happens inside of slabs.
struct SlabRecord {
    std::mutex mutex;
    std::vector<VolumeCall> calls;
    /// Run by every slab that answers a colour.
    std::function<void(ShadingContext&)> onShade;
};

inline SlabRecord& slabRecord() {
    static SlabRecord record;
    return record;
}

/// Extinction and emission per unit length between two corners.
class Slab final : public TessraVolumetric, public RenderSettingsInterface {
public:
    static HostPluginInfo info() {
        return {"Slab", 0x51AB, HostCategory::Geometry, "", {ids::kVolumetric}};
    }
    static void defineParameters(TessraParameterListDesc& t) {
        t.addParam("low", paramtype_vector);
        t.addParam("high", paramtype_vector);
        t.addParamColor("extinction", {});
        t.addParamColor("emission", {});
        t.addParamPlugin("lights", ids::kLight, 0);
    }
    explicit Slab(TessraPluginDesc* desc) : TessraVolumetric(desc) {
        newest() = this;
        addInterface(static_cast<RenderSettingsInterface*>(this), false);
        paramList->setParamCache("extinction", &extinction_);
        paramList->setParamCache("emission", &emission_);
        paramList->setParamCache("lights", &lights);
    }

    Plugin* getPlugin() override { return this; }
    void setupRender(TessraRenderer* renderer) override {
        dynamic_cast<VolumetricListInterface*>(renderer->getInterface(ids::kVolumetricList))
            ->volumetrics.push_back(this);
    }
    void frameBegin(TessraRenderer* renderer) override {
        TessraVolumetric::frameBegin(renderer);
        low_ = paramList->getParam("low")->getVector(0, 0);
        high_ = paramList->getParam("high")->getVector(0, 0);
    }
    void shade(ShadingContext& context) override {
        answer(context, false);
        if (slabRecord().onShade)
            slabRecord().onShade(context);
    }
    void shadeTransparency(ShadingContext& context) override { answer(context, true); }

    /// The slab that was made last.
    static Slab*& newest() {
        static Slab* slab = nullptr;
        return slab;
    }

    TessraPluginList lights;

private:
    void answer(ShadingContext& context, bool transparencyOnly) {
        {
            std::lock_guard lock(slabRecord().mutex);
            slabRecord().calls.push_back(
                {context.ray, transparencyOnly, context.lights != nullptr});
        }
        const TraceRay& ray = context.ray;
        double from = ray.mint, to = ray.maxt;
        for (int axis = 0; axis < 3; ++axis) {
            const double inverse = 1 / double(ray.dir[axis]);
            const double a = (low_[axis] - ray.p[axis]) * inverse;
            const double b = (high_[axis] - ray.p[axis]) * inverse;
            from = std::max(from, std::min(a, b));
            to = std::min(to, std::max(a, b));
        }
        const double length = std::max(to - from, 0.0);
        auto& result = context.volumeResult;
        for (int c = 0; c < 3; ++c) {
            const double t = std::exp(-double(extinction_[c]) * length);
            result.transparency.color[c] = static_cast<float>(t);
            const double share = extinction_[c] > 0 ? (1 - t) / extinction_[c] : length;
            result.color.color[c] = transparencyOnly ? 0 : static_cast<float>(emission_[c] * share);
        }
    }

    Vector low_, high_;
    Color extinction_, emission_;
};

/// A sphere of radius 1 around the origin: emits its normal's z, half transparent.
class Ball final : public TessraPlugin, public StaticGeomSourceInterface {
public:
    static HostPluginInfo info() {
        return {"Ball", 0xBA11, HostCategory::Geometry, "", {ids::kStaticGeomSource}};
    }
    static void defineParameters(TessraParameterListDesc&) {}
    explicit Ball(TessraPluginDesc* desc) : TessraPlugin(desc) {
        addInterface(static_cast<StaticGeomSourceInterface*>(this), false);
    }
    Plugin* getPlugin() override { return this; }
    StaticGeomInstance* newInstance(TessraRenderer*) override { return new Instance; }
    void deleteInstance(StaticGeomInstance* instance) override { delete instance; }

private:
    struct Instance final : StaticGeomInstance, UserPrimitive {
        void compile(TessraRenderer*) override {}
        UserPrimitive* primitive() override { return this; }
        void worldBounds(TracePoint& low, TracePoint& high) const override {
            low = {-1, -1, -1};
            high = {1, 1, 1};
        }
        Hit intersect(const TraceRay& ray, ShadingContext&) override {
            double b = 0, c = -1;
            for (int axis = 0; axis < 3; ++axis) {
                b += ray.p[axis] * ray.dir[axis];
                c += ray.p[axis] * ray.p[axis];
            }
            const double root = std::sqrt(b * b - c);  // NaN beside the ball
            for (const double t : {-b - root, -b + root})
                if (t > ray.mint && t < ray.maxt)
                    return {t, toVector(ray.p + toPoint(ray.dir) * t), true};
            return {};
        }
        void shadeHit(ShadingContext&, const Hit& hit, VolumeResult& out) override {
            out.color.color = {hit.normal.z, hit.normal.z, hit.normal.z};
            out.transparency.color = {0.5f, 0.5f, 0.5f};
        }
    };
};

/// A context that no tracer made.
class PlainContext final : public ShadingContext {};

/// Scenes given as the inside of a JSON object. Every pixel looks exactly through its centre.
class TracerFixture : public ::testing::Test {
protected:
    struct Output final : FrameOutput {
        FrameBuffer pixels;
        bool write(const FinishedFrame& frame, std::string&) override {
            pixels = frame.pixels;
            return true;
        }
    };

    TracerFixture() {
        registry_.registry.addHostPlugin(std::make_unique<HostPluginDesc<Slab>>());
        registry_.registry.addHostPlugin(std::make_unique<HostPluginDesc<Ball>>());
        slabRecord().calls.clear();
        slabRecord().onShade = nullptr;
    }
    ~TracerFixture() override { slabRecord().onShade = nullptr; }

    /// `settings` are rows of TessraSettings besides size and filter.
    FrameBuffer render(const std::string& plugins, const std::string& settings = "",
                       int threads = 1) {
        Output output;
        EXPECT_EQ(renderTo(output, plugins, settings, threads).error, "");
        return output.pixels;
    }
    SessionResult renderTo(FrameOutput& output, const std::string& plugins,
                           const std::string& settings = "", int threads = 1) {
        const auto scene = registry_.scene(
            R"("s": {"plugin": "TessraSettings", "width": )" + std::to_string(width_) +
                R"(, "height": )" + std::to_string(height_) + unless(settings, "samples", "1") +
                unless(settings, "filter_width", "0") + (settings.empty() ? "" : ", ") + settings +
                "}, " + plugins,
            "/scenes/test.json");
        if (!scene)
            return {};
        PathTracer tracer(registry_.log.log);
        SessionOptions options;
        options.threads = threads;
        return RenderSession(*scene, tracer, output, registry_.log.log, abort_).run(options);
    }
    static std::string unless(const std::string& settings, const std::string& row,
                              const std::string& value) {
        return settings.find("\"" + row + "\"") == std::string::npos ? ", \"" + row + "\": " + value
                                                                     : "";
    }
    /// The middle pixel.
    static Color centre(const FrameBuffer& p) {
        const auto v = p.pixel(p.width / 2, p.height / 2);
        return {v[0], v[1], v[2]};
    }
    Color centreOf(const std::string& plugins, const std::string& settings = "") {
        return centre(render(plugins, settings));
    }

    /// Looks from z = 10 along -z at the middle of what lies there, by parallel rays.
    static constexpr const char* kFront =
        R"("cam": {"plugin": "TessraCamera", "type": 1, "film_width": 2, "position": [0, 0, 10]})";
    /// Looks down on the x-z plane.
    static constexpr const char* kDown =
        R"("cam": {"plugin": "TessraCamera", "type": 1, "film_width": 2, "position": [0, 10, 0],
           "up": [0, 0, -1]})";
    static constexpr const char* kFloor =
        R"("floor": {"plugin": "TessraMesh", "shape": "Plane", "size": [100, 1, 100],
           "material": "@paint"}, "paint": {"plugin": "TessraMaterial", "diffuse": [0.8, 0.4, 0.2]})";

    int width_ = 3, height_ = 3;
    TestRegistry registry_;
    AbortFlag abort_;
};

}  // namespace nimbra::host::test
