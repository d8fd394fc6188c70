// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/camera.h"

#include <gtest/gtest.h>

#include <random>

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

/// The point that a ray through a pixel reaches at some distance.
TracePoint pointOf(const CameraModel& camera, float x, float y, double distance) {
    TraceRay ray;
    EXPECT_TRUE(camera.ray(x, y, {}, ray));
    return ray.p + toPoint(ray.dir) * distance;
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
        const TracePoint p = pointOf(*camera, x, y, 1 + i);
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
    Transform t;
    t.f[0] = {0, 0, -2};
    t.f[1] = {0, 2, 0};
    t.f[2] = {2, 0, 0};
    EXPECT_NEAR(CameraPlacement::fromTransform(t).forward.x, -1, 1e-6);
}

}  // namespace
}  // namespace nimbra::host
