// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Cameras, and the numbers that choose their rays.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "host/camera.h"
#include "host/pixel_sampler.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;

std::array<double, 4> transform(const TracePoint& p, const Matrix44& m) {
    std::array<double, 4> r{};
    const double v[4] = {p.x, p.y, p.z, 1};
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            r[j] += v[i] * m[i * 4 + j];
    return r;
}

ProjectionSettings wideSettings() {
    ProjectionSettings s;
    s.placement = CameraPlacement::lookAt({3, 4, 12}, {0.5, 1, -2}, {0, 1, 0});
    s.width = 160;
    s.height = 90;
    return s;
}

class EveryCamera : public ::testing::TestWithParam<bool> {
protected:
    static std::unique_ptr<CameraModel> make(const ProjectionSettings& s) {
        return GetParam() ? newPinholeCamera(s, 50) : newOrthographicCamera(s, 7);
    }
};

TEST_P(EveryCamera, RaysProjectionAndMatricesAgree) {
    ProjectionSettings settings = wideSettings();
    settings.pixelAspect = 1.5f;
    const auto camera = make(settings);
    Matrix44 toNDC;
    ASSERT_TRUE(camera->worldToNDC(toNDC));
    std::mt19937 random(3);
    std::uniform_real_distribution<float> pixel(-20, 180);
    for (int i = 0; i < 200; ++i) {
        const float x = pixel(random), y = pixel(random) / 2;
        TraceRay ray;
        ASSERT_TRUE(camera->ray(x, y, {}, ray));
        const TracePoint p = ray.p + toPoint(ray.dir) * (1 + i);
        double px, py;
        ASSERT_TRUE(camera->project(p, px, py));
        EXPECT_NEAR(px, x, 2e-4);
        EXPECT_NEAR(py, y, 2e-4);
        const auto ndc = transform(p, toNDC);
        EXPECT_NEAR(ndc[0] / ndc[3] * settings.width, x, 2e-4);
        EXPECT_NEAR(ndc[1] / ndc[3] * settings.height, y, 2e-4);
        EXPECT_NEAR(transform(p, camera->worldToCamera())[2], camera->depth(p), 1e-5);
    }
}

TEST_P(EveryCamera, ClipPlanesAreDistancesAlongTheView) {
    ProjectionSettings s = wideSettings();
    s.nearClip = 2;
    s.farClip = 10;
    const auto camera = make(s);
    TraceRay ray;
    ASSERT_TRUE(camera->ray(0, 0, {}, ray));
    EXPECT_NEAR(camera->depth(ray.p + toPoint(ray.dir) * ray.mint), 2, 1e-5);
    EXPECT_NEAR(camera->depth(ray.p + toPoint(ray.dir) * ray.maxt), 10, 1e-5);
    s.farClip = 1;
    EXPECT_FALSE(make(s)->ray(0, 0, {}, ray));
}

INSTANTIATE_TEST_SUITE_P(Projections, EveryCamera, ::testing::Bool(), [](const auto& which) {
    return which.param ? "Pinhole" : "Orthographic";
});

TEST(CameraPlacement, DegenerateViewsStillGiveAxes) {
    for (const auto& p : {CameraPlacement::lookAt({1, 1, 1}, {1, 1, 1}, {0, 1, 0}),
                          CameraPlacement::lookAt({0, 5, 0}, {0, 0, 0}, {0, 1, 0}),
                          CameraPlacement::lookAt({0, 0, 5}, {0, 0, 0}, {0, 0, 0})}) {
        EXPECT_NEAR(length(p.right), 1, 1e-5);
        EXPECT_NEAR(length(p.up), 1, 1e-5);
        EXPECT_NEAR(dot(p.right, p.up), 0, 1e-5);
        EXPECT_NEAR(dot(p.right, p.forward), 0, 1e-5);
    }
    const Transform turned{{{0, 0, -2}, {0, 2, 0}, {2, 0, 0}}, {}};
    EXPECT_NEAR(CameraPlacement::fromTransform(turned).forward.x, -1, 1e-6);
}

TEST(PixelSampler, Numbers_AreAFunctionOfPixelSampleAndDimension) {
    PixelSampler a, b;
    a.start(7, 12, 34, 5);
    b.start(7, 12, 34, 5);
    for (int i = 0; i < 100; ++i) {
        const float value = a.next();
        EXPECT_EQ(value, b.next());
        EXPECT_TRUE(value >= 0 && value < 1) << value;
    }
    // Drawing more before a jump changes nothing behind it.
    a.next();
    a.jumpTo(3);
    b.jumpTo(3);
    EXPECT_EQ(a.next(), b.next());
    // Nor do dimensions that are left out, or the sample that the pixel was begun with.
    a.start(7, 12, 34, 6);
    a.next();
    a.startSample(5);
    a.skipPair();
    b.startSample(5);
    b.next();
    b.next();
    EXPECT_EQ(a.next(), b.next());
}

TEST(PixelSampler, EveryPairOfDimensions_IsStratifiedInAllShapes) {
    // 64 points of a (0,2)-sequence fill each 1/64 of the square, whatever its shape, once.
    for (int pixel = 0; pixel < 20; ++pixel)
        for (int pair = 0; pair < 6; ++pair)
            for (int columns = 1; columns <= 64; columns *= 2) {
                const int rows = 64 / columns;
                std::vector<int> counts(64);
                for (int s = 0; s < 64; ++s) {
                    PixelSampler sampler;
                    sampler.start(1, pixel, 3 * pixel, s);
                    float u = 0, v = 0;
                    for (int d = 0; d <= pair; ++d) {
                        u = sampler.next();
                        v = sampler.next();
                    }
                    ++counts[static_cast<int>(u * columns) * rows + static_cast<int>(v * rows)];
                }
                for (const int count : counts)
                    ASSERT_EQ(count, 1)
                        << "pixel " << pixel << " pair " << pair << " columns " << columns;
            }
}

}  // namespace
}  // namespace nimbra::host
