// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/frame_renderer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <new>
#include <thread>

namespace nimbra::host {
namespace {

class FrameRenderer : public testing::Test, protected CameraTracer {
protected:
    std::vector<std::string> layerNames() const override { return {"Z", "id"}; }
    void radiance(const CameraSample& sample, SampleValue& value) override { trace(sample, value); }

    FrameRenderJob job(int width, int height, int samples, int threads, int tile) {
        FrameRenderJob job;
        job.tracer = this;
        job.settings.width = width;
        job.settings.height = height;
        job.settings.samples = samples;
        job.settings.tileSize = tile;
        job.threadCount = threads;
        return job;
    }
    /// By itself a picture that is a function of the film position and of all random numbers drawn.
    std::function<void(const CameraSample&, SampleValue&)> trace = [](const CameraSample& s,
                                                                      SampleValue& value) {
        float sum = 0;
        for (int draws = 1 + s.sample % 5; draws > 0; --draws)
            sum += s.random->next();
        value.color = {s.x, s.y, sum};
        value.alpha = 0.5f;
        value.layers[0] = sum * s.x;
        value.layers[1] = static_cast<float>(s.sample);
    };
    FrameBuffer out;
    std::atomic<int> calls{0};
};

TEST_F(FrameRenderer, ThreadsAndTiles_DoNotChangeThePicture) {
    ASSERT_EQ(renderFrame(job(61, 37, 6, 1, 16), out).status, RenderStatus::Complete);
    for (const auto& [threads, tile] : {std::pair{3, 16}, {8, 7}, {64, 1}, {2, 500}}) {
        FrameBuffer other;
        EXPECT_EQ(renderFrame(job(61, 37, 6, threads, tile), other).cameraSamples, 61u * 37u * 6u);
        EXPECT_EQ(out.channels, other.channels) << threads << " threads, tiles of " << tile;
    }
    EXPECT_EQ(out.channels[5].at(0), 2.5f);  // the mean sample number of 0 to 5
}

TEST_F(FrameRenderer, Crop_IsAPartOfTheWholePicture) {
    FrameBuffer part;
    FrameRenderJob cropped = job(40, 30, 2, 2, 8);
    renderFrame(cropped, out);
    cropped.crop = {11, 5, 100, 9};
    ASSERT_EQ(renderFrame(cropped, part).status, RenderStatus::Complete);
    ASSERT_EQ(part.width, 29);
    ASSERT_EQ(part.height, 4);
    EXPECT_EQ(part.fullWidth, 40);
    for (int y = 5; y < 9; ++y)
        for (int x = 11; x < 40; ++x)
            EXPECT_EQ(part.pixel(x, y), out.pixel(x, y));
    cropped.crop = {50, 5, 60, 9};
    EXPECT_EQ(renderFrame(cropped, part).status, RenderStatus::Failed);
}

TEST_F(FrameRenderer, Samples_LieInTheFilterAroundThePixel) {
    const struct {
        PixelFilter filter;
        double deviation, error;
    } filters[] = {
        // Of a box and a triangle of half width 1: 1/sqrt(3) and 1/sqrt(6). 4096 stratified numbers
        // give them to some 1/4096.
        {PixelFilter::Box, 0.57735, 2e-3},
        {PixelFilter::Triangle, 0.40825, 2e-3},
        {PixelFilter::Gaussian, 0.37, 0.03},  // 0.4 less what the cut takes away
    };
    for (const auto& f : filters) {
        double sum = 0, squares = 0;
        trace = [&](const CameraSample& s, SampleValue&) {
            const double d = s.x - 0.5;
            EXPECT_LE(std::abs(d), 1.0);
            EXPECT_LE(std::abs(s.y - 0.5), 1.0);
            sum += d;
            squares += d * d;
        };
        FrameRenderJob filtered = job(1, 1, 4096, 1, 8);
        filtered.settings.pixelFilter = f.filter;
        filtered.settings.filterWidth = 2;
        renderFrame(filtered, out);
        EXPECT_NEAR(sum / 4096, 0, 2e-3);
        EXPECT_NEAR(std::sqrt(squares / 4096), f.deviation, f.error);
    }
}

TEST_F(FrameRenderer, NonFiniteSamples_CountAsBlack) {
    trace = [](const CameraSample& s, SampleValue& value) {
        const float bad = s.sample == 0 ? NAN : s.sample == 1 ? INFINITY : 1.0f;
        value.color = {1, bad, 1};
        value.alpha = 1;
    };
    EXPECT_EQ(renderFrame(job(2, 1, 4, 1, 8), out).invalidSamples, 4u);
    for (int x = 0; x < 2; ++x)
        EXPECT_EQ(out.pixel(x, 0), (std::array{0.5f, 0.5f, 0.5f, 0.5f}));
}

TEST_F(FrameRenderer, ThrowWhileReporting_WaitsForTheThreads) {
    trace = [&](const CameraSample&, SampleValue&) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    FrameRenderJob reporting = job(100, 100, 100, 2, 100);
    reporting.progress = [](double) { throw std::bad_alloc(); };
    EXPECT_TRUE(renderFrame(reporting, out).outOfMemory);
    EXPECT_GT(calls, 0);
    EXPECT_LT(calls, 100 * 100 * 100);
}

TEST_F(FrameRenderer, Throw_StopsAllThreads) {
    trace = [&](const CameraSample& s, SampleValue&) {
        ++calls;
        if (s.x > 500 && s.y > 300)
            throw std::bad_alloc();
    };
    const FrameRenderResult result = renderFrame(job(2000, 2000, 1, 4, 16), out);
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_TRUE(result.outOfMemory);
    EXPECT_EQ(result.error, "out of memory while rendering");
    EXPECT_LT(calls, 2000 * 2000);
}

TEST_F(FrameRenderer, Abort_EndsWithinOneSampleAndClearsOpenTiles) {
    using Clock = std::chrono::steady_clock;
    AbortFlag abort;
    std::atomic<Clock::time_point> asked{};
    trace = [&](const CameraSample&, SampleValue& value) {
        value.color = {1, 1, 1};
        if (++calls == 50) {
            asked = Clock::now();
            abort.request(2);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    FrameRenderJob aborted = job(200, 200, 4, 3, 32);
    aborted.abort = &abort;
    EXPECT_EQ(renderFrame(aborted, out).status, RenderStatus::Aborted);
    EXPECT_LT(Clock::now() - asked.load(), std::chrono::seconds(2));
    EXPECT_LE(calls, 50 + 3) << "each of three threads ends its sample";
    for (std::size_t i = 0; i < out.channels[0].size(); ++i)
        ASSERT_EQ(out.channels[0].at(i), 0.0f);
}

}  // namespace
}  // namespace nimbra::host
