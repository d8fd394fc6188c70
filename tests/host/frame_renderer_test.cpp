// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/frame_renderer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <new>
#include <thread>

namespace nimbra::host {
namespace {

/// A picture that is a function of the film position and of all random numbers drawn.
class FunctionTracer final : public CameraTracer {
public:
    std::vector<std::string> layerNames() const override { return {"Z", "id"}; }
    void radiance(const CameraSample& s, SampleValue& out) override {
        const int draws = 1 + s.sample % 5;
        float sum = 0;
        for (int i = 0; i < draws; ++i)
            sum += s.random->next();
        out.color = {s.x, s.y, sum};
        out.alpha = 0.5f;
        out.layers[0] = sum * s.x;
        out.layers[1] = static_cast<float>(s.sample);
    }
};

class LambdaTracer final : public CameraTracer {
public:
    std::function<void(const CameraSample&, SampleValue&)> body;
    void radiance(const CameraSample& sample, SampleValue& out) override { body(sample, out); }
};

FrameRenderJob makeJob(CameraTracer& tracer, int width, int height, int samples, int threads,
                       int tile) {
    FrameRenderJob job;
    job.tracer = &tracer;
    job.settings.width = width;
    job.settings.height = height;
    job.settings.samples = samples;
    job.settings.tileSize = tile;
    job.threadCount = threads;
    return job;
}

TEST(FrameRenderer, ThreadsAndTiles_DoNotChangeThePicture) {
    FunctionTracer tracer;
    FrameBuffer first;
    ASSERT_EQ(renderFrame(makeJob(tracer, 61, 37, 6, 1, 16), first).status, RenderStatus::Complete);
    for (const auto& [threads, tile] : {std::pair{3, 16}, {8, 7}, {64, 1}, {2, 500}}) {
        FrameBuffer other;
        const FrameRenderResult result =
            renderFrame(makeJob(tracer, 61, 37, 6, threads, tile), other);
        EXPECT_EQ(result.cameraSamples, 61u * 37u * 6u);
        EXPECT_EQ(first.channels, other.channels) << threads << " threads, tiles of " << tile;
    }
    EXPECT_EQ(first.channels[5].at(0), 2.5f);  // the mean sample number of 0 to 5
}

TEST(FrameRenderer, Crop_IsAPartOfTheWholePicture) {
    FunctionTracer tracer;
    FrameBuffer whole, part;
    FrameRenderJob job = makeJob(tracer, 40, 30, 2, 2, 8);
    renderFrame(job, whole);
    job.crop = {11, 5, 100, 9};
    ASSERT_EQ(renderFrame(job, part).status, RenderStatus::Complete);
    ASSERT_EQ(part.width, 29);
    ASSERT_EQ(part.height, 4);
    EXPECT_EQ(part.fullWidth, 40);
    for (int y = 5; y < 9; ++y)
        for (int x = 11; x < 40; ++x)
            EXPECT_EQ(part.pixel(x, y), whole.pixel(x, y));
    job.crop = {50, 5, 60, 9};
    EXPECT_EQ(renderFrame(job, part).status, RenderStatus::Failed);
}

TEST(FrameRenderer, Samples_LieInTheFilterAroundThePixel) {
    for (const PixelFilter filter :
         {PixelFilter::Box, PixelFilter::Triangle, PixelFilter::Gaussian}) {
        double sum = 0, squares = 0;
        LambdaTracer tracer;
        tracer.body = [&](const CameraSample& s, SampleValue&) {
            const double d = s.x - 0.5;
            EXPECT_LE(std::abs(d), 1.0);
            EXPECT_LE(std::abs(s.y - 0.5), 1.0);
            sum += d;
            squares += d * d;
        };
        FrameRenderJob job = makeJob(tracer, 1, 1, 4096, 1, 8);
        job.settings.pixelFilter = filter;
        job.settings.filterWidth = 2;
        FrameBuffer out;
        renderFrame(job, out);
        // Deviations of a box and a triangle of half width 1: 1/sqrt(3) and 1/sqrt(6). 4096
        // stratified numbers give them to some 1/4096.
        const double deviation = std::sqrt(squares / 4096);
        EXPECT_NEAR(sum / 4096, 0, 2e-3);
        if (filter == PixelFilter::Box)
            EXPECT_NEAR(deviation, 0.57735, 2e-3);
        else if (filter == PixelFilter::Triangle)
            EXPECT_NEAR(deviation, 0.40825, 2e-3);
        else
            EXPECT_NEAR(deviation, 0.37, 0.03);  // 0.4 less what the cut takes away
    }
}

TEST(FrameRenderer, NonFiniteSamples_CountAsBlack) {
    LambdaTracer tracer;
    tracer.body = [](const CameraSample& s, SampleValue& out) {
        const float bad = s.sample == 0 ? NAN : s.sample == 1 ? INFINITY : 1.0f;
        out.color = {1, bad, 1};
        out.alpha = 1;
    };
    FrameBuffer out;
    const FrameRenderResult result = renderFrame(makeJob(tracer, 2, 1, 4, 1, 8), out);
    EXPECT_EQ(result.invalidSamples, 4u);
    for (int x = 0; x < 2; ++x)
        EXPECT_EQ(out.pixel(x, 0), (std::array<float, 4>{0.5f, 0.5f, 0.5f, 0.5f}));
}

TEST(FrameRenderer, ThrowWhileReporting_WaitsForTheThreads) {
    LambdaTracer tracer;
    std::atomic<int> calls{0};
    tracer.body = [&](const CameraSample&, SampleValue&) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    FrameRenderJob job = makeJob(tracer, 100, 100, 100, 2, 100);
    job.progress = [](double) { throw std::bad_alloc(); };
    FrameBuffer out;
    EXPECT_TRUE(renderFrame(job, out).outOfMemory);
    EXPECT_GT(calls, 0);
    EXPECT_LT(calls, 100 * 100 * 100);
}

TEST(FrameRenderer, Throw_StopsAllThreads) {
    LambdaTracer tracer;
    std::atomic<int> calls{0};
    tracer.body = [&](const CameraSample& s, SampleValue&) {
        ++calls;
        if (s.x > 500 && s.y > 300)
            throw std::bad_alloc();
    };
    FrameBuffer out;
    const FrameRenderResult result = renderFrame(makeJob(tracer, 2000, 2000, 1, 4, 16), out);
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory);
    EXPECT_EQ(result.error, "out of memory while rendering");
    EXPECT_LT(calls, 2000 * 2000);
}

TEST(FrameRenderer, Abort_EndsWithinOneSampleAndClearsOpenTiles) {
    using Clock = std::chrono::steady_clock;
    AbortFlag abort;
    LambdaTracer tracer;
    std::atomic<long long> abortTime{0};
    std::atomic<int> calls{0};
    tracer.body = [&](const CameraSample&, SampleValue& out) {
        out.color = {1, 1, 1};
        if (++calls == 50) {
            abortTime = Clock::now().time_since_epoch().count();
            abort.request(2);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    FrameRenderJob job = makeJob(tracer, 200, 200, 4, 3, 32);
    job.abort = &abort;
    FrameBuffer out;
    const FrameRenderResult result = renderFrame(job, out);
    const Clock::time_point asked{Clock::duration(abortTime.load())};
    EXPECT_EQ(result.status, RenderStatus::Aborted);
    // Each of three threads ends its sample.
    EXPECT_LE(calls, 50 + 3);
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - asked).count(), 2.0);
    for (std::size_t i = 0; i < out.channels[0].size(); ++i)
        ASSERT_EQ(out.channels[0].at(i), 0.0f);
}

}  // namespace
}  // namespace nimbra::host
