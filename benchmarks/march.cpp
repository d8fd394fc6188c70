// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// March steps per second through a dense cloud, and what the steps consist of: the same positions
// read by the kernel alone.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "cache/grid_samplers.h"
#include "volume/grid_transforms.h"
#include "volume/lut_holder.h"
#include "volume/march.h"
#include "volume/nimbra_params.h"
#include "volume/settings.h"

namespace {

using namespace nimbra;
using TessUtils::Color;
using TessUtils::TracePoint;
using TessUtils::Vector;

constexpr int kSize = 128;
constexpr int kWidth = 64;  // of the picture, in pixels
constexpr int kRays = kWidth * kWidth;

/// Unlit, unjittered smoke with a table, so that steps are all there is.
class Params : public NimbraParams {
public:
    int getInt(const char* key) const override { return static_cast<int>(number(key)); }
    float getFloat(const char* key) const override { return static_cast<float>(number(key)); }
    Color getColor(const char*) const override { return {0.5f, 0.5f, 0.5f}; }
    bool hasTexture(int) const override { return false; }
    float getDensityScale(const NimbraFrameData*) const override { return 1; }

    int sampler = 1;

private:
    double number(const std::string& key) const {
        static const std::map<std::string, double> values = {
            {"bounces", 10},   {"rendstep", 50},     {"rendshadstep", 100}, {"darg", 5},
            {"targ", 2},       {"sarg", 2},          {"difmul", 1},         {"transfext", 1},
            {"transfown", 1},  {"smoketransp", 0.5}, {"stoptransp", 0},     {"skiptransp", 1},
            {"gridreduct", 5}, {"play_speed", 1},    {"noscatter", 1},      {"shad_strength", 1}};
        if (key == "sampler")
            return sampler;
        const auto found = values.find(key);
        return found == values.end() ? 0 : found->second;
    }
};

/// Dark, or lit by one sun whose shadow rays pass through the cloud.
class BenchIlluminator : public Illuminator {
public:
    explicit BenchIlluminator(const VolumeShader* shadows = nullptr) : shadowCaster(shadows) {}
    void illuminate(Color& out, const Vector& pos, const Color& diffuse,
                    LightSelectRecord*) override {
        out = {};
        if (!shadowCaster)
            return;
        ShadeQuery query;
        query.shaders = &shadowCaster;
        query.count = 1;
        query.rayStart = TessUtils::toPoint(pos);
        query.rayEnd = query.rayStart + TracePoint{0.3, 0.5, 0.8} * 400;
        BenchIlluminator shadowRay;
        Color opacity;
        Shade(query, shadowRay, nullptr, opacity);
        out = (Color{1, 1, 1} - opacity) * diffuse;
    }
    int bounceLevel() override { return 0; }
    float random() override { return 0.5f; }
    void selectShader(const VolumeShader& shader) override { currentShader = &shader; }
    void beginElements() override { elementMask = 0; }
    void writeElements() override {}
    void applyMediumAttenuation(Color&, const RaySegment&) override {}
    void projectVelocity(const TracePoint&, const Vector&, Color&) override {}
    void initFromRay(const TessUtils::TraceRay*) override {}
    bool isLightCacheRay() const override { return false; }

private:
    const VolumeShader* shadowCaster;
};

/// A cloud of waves, everywhere above 0 and thin enough for rays to come through.
struct Cloud {
    explicit Cloud(int sampler) {
        frame.gridSize[0] = frame.gridSize[1] = frame.gridSize[2] = kSize;
        frame.channels[kSmoke].allocate(frame.gridSize);
        float* voxels = frame.channels[kSmoke].denseVoxels();
        for (int z = 0; z < kSize; ++z)
            for (int y = 0; y < kSize; ++y)
                for (int x = 0; x < kSize; ++x)
                    *voxels++ = 0.5f + 0.2f * std::sin(0.3f * x) * std::sin(0.21f * y + 0.1f * z) +
                                0.2f * std::cos(0.17f * z - 0.05f * x);
        luts.opacity = std::make_unique<float[]>(kLutEntries);
        for (int i = 0; i < kLutEntries; ++i)
            luts.opacity[i] = -0.02f * static_cast<float>(i) / kLutEntries;
        params.sampler = sampler;
        readVolumeSettings(shader, {params, &frame, luts, GridTransforms()});
    }

    NimbraFrameData frame;
    NimbraVolumeRenderLUTholder luts;
    Params params;
    VolumeShader shader;
};

/// Rays of a picture from a corner, all through the middle of the cloud.
ShadeQuery ray(int i) {
    const double across = (i % kWidth + 0.5) / kWidth - 0.5;
    const int row = i / kWidth;
    const double up = (row + 0.5) / kWidth - 0.5;
    ShadeQuery query;
    query.rayStart = {-150, -70, 20};
    query.rayEnd = {276 - 60 * across, 200 + 60 * across, 100 + 80 * up};
    return query;
}

/// Positions of all steps of a ray.
int stepsOf(const VolumeShader& shader, const ShadeQuery& query, bool color,
            std::vector<Vector>* positions) {
    BenchIlluminator illuminator;
    RayData rayData;
    rayData.wantColor = color;
    rayData.illuminator = &illuminator;
    ShadeQuery one = query;
    const VolumeShader* shaders[] = {&shader};
    one.shaders = shaders;
    one.count = 1;
    if (BuildSegments(rayData, one))
        return 0;
    const RaySegment& segment = *rayData.head;
    int steps = 0;
    for (float t = segment.tCur + segment.stepT; t < segment.tEnd; t += segment.stepT, ++steps) {
        if (positions)
            positions->push_back(segment.origin + segment.dir * t);
    }
    return steps + 1;
}

void marchRays(benchmark::State& state, bool color) {
    const Cloud cloud(static_cast<int>(state.range(0)));
    const VolumeShader* shaders[] = {&cloud.shader};
    BenchIlluminator illuminator;
    std::int64_t steps = 0;
    for (int i = 0; i < kRays; ++i)
        steps += stepsOf(cloud.shader, ray(i), color, nullptr);
    for (auto _ : state) {
        for (int i = 0; i < kRays; ++i) {
            ShadeQuery query = ray(i);
            query.shaders = shaders;
            query.count = 1;
            Color out, alpha;
            Shade(query, illuminator, color ? &out : nullptr, alpha);
            benchmark::DoNotOptimize(alpha);
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * steps);
}

/// A picture's work: each step of the camera's rays sends a shadow ray.
void BM_MarchLit(benchmark::State& state) {
    const Cloud cloud(1);
    const VolumeShader* shaders[] = {&cloud.shader};
    BenchIlluminator illuminator(&cloud.shader);
    for (auto _ : state) {
        for (int i = 0; i < kRays; i += 61) {
            ShadeQuery query = ray(i);
            query.shaders = shaders;
            query.count = 1;
            Color out, alpha;
            Shade(query, illuminator, &out, alpha);
            benchmark::DoNotOptimize(out);
        }
    }
}

void BM_MarchColor(benchmark::State& state) {
    marchRays(state, true);
}

void BM_MarchShadow(benchmark::State& state) {
    marchRays(state, false);
}

/// The least that the steps of BM_MarchColor can cost: kernel, table and exponential.
void BM_KernelTableExp(benchmark::State& state) {
    const Cloud cloud(static_cast<int>(state.range(0)));
    std::vector<Vector> positions;
    for (int i = 0; i < kRays; ++i)
        stepsOf(cloud.shader, ray(i), true, &positions);
    const SampleKernel kernel = kSampleKernels[8 * state.range(0)];
    for (auto _ : state) {
        float sum = 0;
        for (const Vector& p : positions) {
            const float at[3] = {p.x, p.y, p.z};
            float values[7] = {};
            kernel(cloud.shader.channels, at, values, 7, kSampleT, 0);
            VoxelSample sample;
            sample.t = values[kSlotT];
            sum += cloud.shader.getOpacity(sample, 0.5f).r;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * positions.size()));
}

BENCHMARK(BM_KernelTableExp)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarchColor)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarchLit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarchShadow)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
