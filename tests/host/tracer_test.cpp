// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/tracer_fixture.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using test::slabRecord;
using test::TracerFixture;

class Tracer : public TracerFixture {
protected:
    static std::string all(std::initializer_list<std::string> parts) {
        std::string text;
        for (const std::string& part : parts)
            text += (text.empty() ? "" : ", ") + part;
        return text;
    }
    static void expectColor(const Color& found, const Color& expected, float tolerance) {
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(found[c], expected[c], tolerance) << "channel " << c;
    }
    /// A thin emitting plane at height z that faces +z, with some opacity.
    static std::string card(const char* name, double z, double emission, double opacity) {
        return fmt::format(
            R"("{0}": {{"plugin": "TessraMesh", "shape": "Plane", "size": [50, 1, 50],
                 "transform": {{"translate": [0, 0, {1}], "rotate": [90, 0, 0]}},
                 "material": "@{0}_m"}},
               "{0}_m": {{"plugin": "TessraMaterial", "diffuse": 0, "emission": {2},
                 "opacity": {3}}})",
            name, z, emission, opacity);
    }
    static std::string slab(const char* name, double z0, double z1, const char* extinction,
                            const char* emission) {
        return fmt::format(R"("{}": {{"plugin": "Slab", "low": [-50, -50, {}],
                 "high": [50, 50, {}], "extinction": {}, "emission": {}}})",
                           name, z0, z1, extinction, emission);
    }
    /// A plane that reaches 4.5 units to each side at height y.
    static std::string pane(const char* name, double y, const char* more) {
        return fmt::format(R"("{}": {{"plugin": "TessraMesh", "shape": "Plane", "size": [9, 1, 9],
                 "transform": {{"translate": [0, {}, 0]}}, {}}})",
                           name, y, more);
    }
};

// --- Mirrors -------------------------------------------------------------------------------------

TEST_F(Tracer, Mirror_ShowsTheSkyByItsFresnelShareAndDimsWhatIsBelow) {
    const auto lookDown = [&](const char* material, const char* sky) {
        return centreOf(all(
            {kDown, fmt::format(
                        R"("floor": {{"plugin": "TessraMesh", "shape": "Plane", "size": [50, 1, 50],
                 "material": "@m"}},
               "m": {{"plugin": "TessraMaterial", {}}},
               "sky": {{"plugin": "TessraLightSky", "visible": true, "color": {}}})",
                        material, sky)}));
    };
    expectColor(lookDown(R"("diffuse": 0, "reflection": [1, 0.5, 0])", "[1, 2, 4]"),
                {0.04f, 0.04f, 0}, 1e-4f);
    // An even sky of 1 over a white surface: what isn't mirrored is scattered.
    expectColor(lookDown(R"("diffuse": 1, "reflection": 1)", "[1, 1, 1]"), {1, 1, 1}, 1e-4f);
}

// --- Direct light --------------------------------------------------------------------------------

TEST_F(Tracer, PointLight_FallsOffWithSquareAndCosine) {
    width_ = height_ = 5;
    const FrameBuffer p = render(
        all({kDown, kFloor,
             R"("l": {"plugin": "TessraLightPoint", "position": [0.3, 2, 0], "color": [1, 0.5, 2],
            "intensity": 6})"}));
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) {
            // Film of width 2: the pixels' centres are 0.4 apart.
            const double dx = (x - 2) * 0.4 - 0.3, dz = (y - 2) * 0.4, d2 = dx * dx + dz * dz + 4;
            const double light = 6 / d2 * 2 / std::sqrt(d2);
            const auto v = p.pixel(x, y);
            EXPECT_NEAR(v[0], 0.8 * light, 1e-4);
            EXPECT_NEAR(v[1], 0.4 * light * 0.5, 1e-4);
            EXPECT_NEAR(v[2], 0.2 * light * 2, 1e-4);
            EXPECT_EQ(v[3], 1);
        }
}

TEST_F(Tracer, Sky_LightsPlaneWithItsMeanAndHidesBehindWalls) {
    const std::string sky = R"("l": {"plugin": "TessraLightSky", "color": [1, 0.5, 2]})";
    // Constant: every sample gives the exact value.
    expectColor(centreOf(all({kDown, kFloor, sky})), {0.8f, 0.2f, 0.4f}, 1e-5f);
    // With the gradient: the mean of (1 - h) * horizon + h * zenith under the cosine, h = sin of
    // the elevation to the power 1, is horizon / 3 + zenith * 2 / 3.
    expectColor(centreOf(all({kDown, kFloor,
                              R"("l": {"plugin": "TessraLightSky", "color": [1, 1, 1],
            "gradient": true, "horizon_color": [0.25, 0.25, 0.25], "horizon_width": 1})"}),
                         R"("samples": 1024)"),
                {0.6f, 0.3f, 0.15f}, 2e-3f);
    // An endless wall through the point takes half of it.
    expectColor(centreOf(all({kDown, kFloor, sky,
                              R"("wall": {"plugin": "TessraMesh", "shape": "Box",
            "size": [50, 99, 200], "transform": {"translate": [25.001, 49.5, 0]},
            "visible_to_camera": false})"}),
                         R"("samples": 1024)"),
                {0.4f, 0.1f, 0.2f}, 4e-3f);
}

TEST_F(Tracer, ClosedFurnace_AddsUpItsBounces) {
    // Inside a glowing box of albedo 1/2 each bounce brings half of the last: no noise at all.
    const std::string box =
        R"("box": {"plugin": "TessraMesh", "shape": "Box", "size": [4, 4, 4], "material": "@m"},
           "m": {"plugin": "TessraMaterial", "diffuse": [0.5, 0.25, 0], "emission": [1, 1, 1]},
           "cam": {"plugin": "TessraCamera", "position": [0, 0, 1], "fov": 90})";
    expectColor(centreOf(box), {1, 1, 1}, 0);
    expectColor(centreOf(box, R"("gi": true, "gi_bounces": 3)"),
                {1.875f, 1 + 0.25f + 0.0625f + 0.015625f, 1}, 1e-5f);
    expectColor(centreOf(box, R"("gi": true, "gi_bounces": 5, "ray_depth": 1)"), {1.5f, 1.25f, 1},
                1e-5f);
}

TEST_F(Tracer, ConvexBodyInTheSky_HasNoDarkOrBrightSpots) {
    width_ = height_ = 64;
    // Self-shadowing would darken pixels; far from the origin the numbers are coarser.
    for (const double far : {0.0, 5000.0})
        for (const char* shape : {"Sphere", "Box"}) {
            const FrameBuffer p =
                render(fmt::format(
                           R"("ball": {{"plugin": "TessraMesh", "size": [2, 2, 2], "shape": "{0}",
                         "transform": {{"translate": [{1}, 0, 0], "rotate": [20, 30, 0]}},
                         "material": "@m"}},
                       "m": {{"plugin": "TessraMaterial", "diffuse": 0.5}},
                       "sky": {{"plugin": "TessraLightSky"}},
                       "cam": {{"plugin": "TessraCamera", "fov": 20, "target": [{1}, 0, 0],
                         "position": [{1}, 0, 8]}})",
                           shape, far),
                       R"("samples": 4)");
            int covered = 0;
            for (std::size_t i = 0; i < p.channels[0].size(); ++i)
                if (p.channels[3].at(i) == 1) {
                    ++covered;
                    // On facets the smooth normal may look below the surface.
                    EXPECT_NEAR(p.channels[0].at(i), 0.5f, shape[0] == 'B' ? 1e-4 : 0.13) << i;
                }
            EXPECT_GT(covered, 1000);
        }
}

// --- Volumes -------------------------------------------------------------------------------------

TEST_F(Tracer, ShadowThroughGlassPanesAndAVolume_Multiplies) {
    const Color c = centreOf(all(
        {R"("cam": {"plugin": "TessraCamera", "type": 1, "film_width": 2,
                "position": [0, 0.5, 0], "up": [0, 0, -1]})",
         kFloor, R"("l": {"plugin": "TessraLightDirectional"})",
         R"("v": {"plugin": "Slab", "low": [-50, 1, -50], "high": [50, 3, 50],
                "extinction": [0.5, 0.5, 0.5]})",
         pane("pane1", 2, R"("material": "@glass")"), pane("pane2", 4, R"("material": "@glass")"),
         pane("ghost", 6, R"("casts_shadows": false)"),
         R"("glass": {"plugin": "TessraMaterial", "opacity": 0.25})"}));
    const float through = 0.75f * 0.75f * std::exp(-1.0f);
    expectColor(c, {0.8f * through, 0.4f * through, 0.2f * through}, 1e-6f);
}

TEST_F(Tracer, VolumesAndSurfaces_CompositeByDepth) {
    // From the eye: smoke, a half-opaque card, smoke, an opaque card, smoke that nobody sees.
    const std::string scene =
        all({kFront, slab("a", 5, 6, "[0.7, 0.7, 0.7]", "[0.3, 0.3, 0.3]"), card("c1", 4, 2, 0.4),
             slab("b", 1, 3, "[0.2, 0.2, 0.2]", "[1, 1, 1]"), card("c2", 0, 5, 1),
             slab("c", -3, -1, "[1, 1, 1]", "[9, 9, 9]")});
    const FrameBuffer p = render(scene);
    const double ta = std::exp(-0.7), ca = 0.3 * (1 - ta) / 0.7;
    const double tb = std::exp(-0.4), cb = 1 * (1 - tb) / 0.2;
    const double expected = ca + ta * (0.4 * 2 + 0.6 * (cb + tb * 5));
    expectColor(centre(p), {float(expected), float(expected), float(expected)}, 2e-6f);
    EXPECT_EQ(p.pixel(1, 1)[3], 1);

    // Each stretch is asked once, and the stretches join without gap or overlap.
    std::vector<std::pair<double, double>> stretches;
    for (const test::VolumeCall& call : slabRecord().calls)
        if (call.ray.p.x == 0 && call.ray.p.y == 0) {
            EXPECT_FALSE(call.transparencyOnly);
            EXPECT_TRUE(call.hasLights);
            EXPECT_EQ(call.ray.flags & (kRayPath | kRayShadow | kRayGI), kRayPath);
            stretches.emplace_back(call.ray.mint, call.ray.maxt);
        }
    ASSERT_EQ(stretches.size(), 6u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(stretches[i].first, 0);
        EXPECT_NEAR(stretches[i].second, 6, 1e-5);
        EXPECT_EQ(stretches[i + 3].first, stretches[i].second);
        EXPECT_NEAR(stretches[i + 3].second, 10, 1e-5);
    }
}

TEST_F(Tracer, Background_ShowsThroughWithItsAlpha) {
    const std::string smoke =
        slab("v", 0, 1, "[0.693147181, 0.693147181, 0.693147181]", "[0, 0, 0]");
    FrameBuffer p = render(all({kFront, smoke}));
    EXPECT_NEAR(p.pixel(1, 1)[3], 0.5, 1e-6);
    EXPECT_EQ(p.pixel(1, 1)[0], 0);
    p = render(all({kFront, smoke}), R"("background": [1, 2, 3], "background_alpha": 0.5)");
    expectColor(centre(p), {0.5f, 1, 1.5f}, 1e-6f);
    EXPECT_NEAR(p.pixel(1, 1)[3], 0.75, 1e-6);
    p = render(all({kFront, smoke,
                    R"("sky": {"plugin": "TessraLightSky", "visible": true, "intensity": 4})"}));
    expectColor(centre(p), {2, 2, 2}, 1e-6f);
    EXPECT_EQ(p.pixel(1, 1)[3], 1);
    // An empty scene is transparent, without a word of nothing.
    p = render(kFront);
    for (const PictureChannel& channel : p.channels)
        for (std::size_t i = 0; i < channel.size(); ++i)
            EXPECT_EQ(channel.at(i), channel.name() == "Z" ? kNoDepth : 0.0f);
}

TEST_F(Tracer, GeneratedPrimitive_IsMetTwiceAndSeenThrough) {
    width_ = height_ = 1;
    const FrameBuffer p =
        render(all({kFront, R"("ball": {"plugin": "Ball"})", card("c", -2, 3, 1)}));
    // Front (normal 1), back (normal -1), then the card.
    EXPECT_NEAR(p.pixel(0, 0)[0], 1 - 0.5 + 0.25 * 3, 1e-5);
    EXPECT_NEAR(p.channels[4].at(0), 9, 1e-5);
    // Its shadow: half for each side. None is left below an opaque roof; a light may be off.
    const auto below = [&](const std::string& more) {
        return centreOf(
            all({pane("low", -2, R"("material": "@grey")"), more,
                 R"("ball": {"plugin": "Ball"}, "l": {"plugin": "TessraLightDirectional"},
            "off": {"plugin": "TessraLightPoint", "enabled": false},
            "grey": {"plugin": "TessraMaterial", "diffuse": 0.8},
            "cam": {"plugin": "TessraCamera", "type": 1, "film_width": 0.01,
                "position": [0, -1.5, 0], "target": [0, -9, 0], "up": [0, 0, -1]})"}));
    };
    expectColor(below(pane("aside", 3, R"("casts_shadows": false)")), {0.2f, 0.2f, 0.2f}, 1e-5f);
    expectColor(below(pane("roof", 3, R"("casts_shadows": true)")), {0, 0, 0}, 0);
}

TEST_F(Tracer, DepthIsAlongTheViewAndTheNearestOfThePixel) {
    width_ = 5;
    height_ = 1;
    const FrameBuffer p =
        render(all({R"("cam": {"plugin": "TessraCamera", "position": [0, 0, 10], "fov": 90})",
                    card("c", 4, 1, 1)}));
    for (int x = 0; x < 5; ++x)
        EXPECT_NEAR(p.channels[4].at(x), 6, 1e-4) << x;
    // The edge of a card in the middle of a pixel: the card's depth, no mean with the far away.
    width_ = 1;
    const FrameBuffer edge =
        render(all({kFront, R"("half": {"plugin": "TessraMesh", "shape": "Box", "size": [10, 10, 2],
            "transform": {"translate": [5, 0, 0]}})"}),
               R"("samples": 16, "filter_width": 1, "pixel_filter": 0)");
    EXPECT_NEAR(edge.pixel(0, 0)[3], 0.5, 0.05);
    EXPECT_NEAR(edge.channels[4].at(0), 9, 1e-4);
    EXPECT_EQ(render(kFront).channels[4].at(0), kNoDepth);
}

TEST_F(Tracer, MovingMesh_CoversForPartOfTheTime) {
    width_ = height_ = 1;
    // A wide card that travels from x = -10 .. 0 to 0 .. 10 and so leaves the view half way.
    const std::string moving =
        R"("c": {"plugin": "TessraMesh", "shape": "Box", "size": [10, 10, 1], "transform":
            {"keys": [[0, {"translate": [-5, 0, 0]}], [2, {"translate": [15, 0, 0]}]]}})";
    const std::string camera =
        R"("cam": {"plugin": "TessraCamera", "type": 1, "film_width": 0.001,
            "position": [2.5, 0, 10], "target": [2.5, 0, 0]})";
    const FrameBuffer p = render(all({camera, moving}),
                                 R"("motion_blur": true, "shutter_interval": 1, "samples": 256,
        "shutter_center": 0.5, "first_frame": 0)");
    // Between time 0 and 1 the card goes 10 units: it reaches x = 2.5 after a quarter.
    EXPECT_NEAR(p.pixel(0, 0)[3], 0.75, 0.01);
}

TEST_F(Tracer, Textures_AreToldWhatIsShaded) {
    // The mesh is out of view, so that only its displacement asks for it.
    render(R"("paint": {"plugin": "Recorder"},
        "matter": {"plugin": "TessraMaterial", "diffuse": "@paint.out_color"},
        "far": {"plugin": "TessraMesh", "shape": "Box", "displacement": "@paint.out_color",
                "transform": {"translate": [100, 0, 0]}},
        "near": {"plugin": "TessraInstance", "geometry": "@far", "material": "@matter"},
        "cam": {"plugin": "TessraCamera", "position": [0, 0, 10], "target": [0, 0, 0]})");
    EXPECT_EQ(registry_.record.shaded, (std::set<std::string>{"far", "near"}));
}

TEST_F(Tracer, Instances_LookLikeMeshesInTheirPlaces) {
    width_ = 48;
    height_ = 32;
    const std::string rest =
        R"("cam": {"plugin": "TessraCamera", "position": [1, 2, 9], "fov": 40},
           "sun": {"plugin": "TessraLightDirectional", "direction": [1, -2, -1]},
           "red": {"plugin": "TessraMaterial", "diffuse": [0.9, 0.1, 0.1]},
           "ball": {"plugin": "TessraMesh", "shape": "Sphere", "size": [1, 2, 1], "segments": 24,
                "transform": {"translate": [-2, 0, 0]}, "material": "@red"})";
    const auto copies = [](const std::string& kind) {
        // Turned, stretched, mirrored, moving.
        return "\"a\": {" + kind + R"(, "transform": {"translate": [0.5, 0, 0],
                   "rotate": [30, 20, 50], "scale": [1, 0.5, 2]}},
                   "b": {)" +
               kind + R"(, "transform":
                   {"keys": [[1, {"translate": [2, 0, 0], "scale": [-1, 1, 1]}],
                             [2, {"translate": [2, 1, 0], "scale": [-1, 1, 1]}]]}})";
    };
    const std::string settings = R"("samples": 4, "motion_blur": true)";
    const FrameBuffer instances =
        render(all({rest, copies(R"("plugin": "TessraInstance", "geometry": "@ball")")}), settings);
    const FrameBuffer meshes =
        render(all({rest, copies(R"("plugin": "TessraMesh", "shape": "Sphere", "size": [1, 2, 1],
                       "segments": 24, "material": "@red")")}),
               settings);
    int different = 0, covered = 0;
    for (std::size_t i = 0; i < meshes.channels[0].size(); ++i) {
        covered += meshes.channels[3].at(i) > 0;
        for (int c = 0; c < 4; ++c)
            different += std::fabs(meshes.channels[c].at(i) - instances.channels[c].at(i)) > 1e-4f;
    }
    EXPECT_GT(covered, 150);
    // Rounding may decide otherwise on a few edges.
    EXPECT_LE(different, 8);
    // An instance of nothing shows nothing.
    EXPECT_EQ(render(all({kFront, R"("i": {"plugin": "TessraInstance"})"})).channels,
              render(kFront).channels);
}

TEST_F(Tracer, SameScene_WithAnyNumberOfThreads) {
    width_ = 40;
    height_ = 30;
    const std::string scene =
        all({kFloor, slab("v", -1, 1, "[0.5, 0.6, 0.7]", "[0.1, 0.2, 0.1]"),
             R"("cam": {"plugin": "TessraCamera", "position": [3, 2, 6], "lens_radius": 0.05},
            "sky": {"plugin": "TessraLightSky", "gradient": true, "visible": true},
            "sun": {"plugin": "TessraLightDirectional", "direction": [1, -2, 0.5], "angle": 5},
            "ball": {"plugin": "TessraMesh", "shape": "Sphere",
                "transform": {"translate": [0, 0.7, 0]}, "material": "@paint"})"});
    const std::string settings = R"("samples": 4, "gi": true, "gi_bounces": 2, "tile_size": 8)";
    const FrameBuffer one = render(scene, settings, 1), three = render(scene, settings, 3),
                      eight = render(scene, settings, 8);
    EXPECT_EQ(one.channels, three.channels);
    EXPECT_EQ(one.channels, eight.channels);
}

TEST_F(Tracer, SceneFaults_AreSaid) {
    const std::pair<std::string, const char*> cases[] = {
        {kFloor, "preparing the frame: the scene has no TessraCamera"},
        {all({kFront, R"("m": {"plugin": "TessraMesh", "file": "none.obj"})"}),
         "m: frameBegin: /scenes/none.obj: No such file or directory"},
        {all({kFront, R"("m": {"plugin": "TessraMesh"})"}), "m: frameBegin: no file is given"}};
    for (const auto& [scene, error] : cases) {
        Output output;
        EXPECT_EQ(renderTo(output, scene).error, error);
    }
}

}  // namespace
}  // namespace nimbra::host
