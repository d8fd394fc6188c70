// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/view_look.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "cli/view_scene.h"
#include "host/camera.h"

namespace nimbra::cli {
namespace {

GridSummary grid(const std::string& name, GridSummary::Kind kind = GridSummary::Kind::Scalar) {
    GridSummary g;
    g.name = name;
    g.kind = kind;
    g.low = {0, 0, 0};
    g.high = {39, 39, 59};
    g.activeVoxels = 40000;
    g.min = 0;
    g.max = 1;
    g.mean = 0.3;
    return g;
}

GridSummary emptyGrid(const std::string& name) {
    GridSummary g;
    g.name = name;
    g.kind = GridSummary::Kind::Scalar;
    g.high = {-1, -1, -1};
    return g;
}

std::string settingOf(const ViewLook& look, const std::string& name) {
    for (const auto& [key, value] : look.settings)
        if (key == name)
            return value;
    return "";
}

constexpr auto kVector = GridSummary::Kind::Vector;

TEST(ViewLook, SimulatorsFile_MapsWhatCanBeDrawn) {
    GridSummary points = grid("particles_secondary", GridSummary::Kind::Other);
    points.readable = false;
    points.problem = "unregistered codec";
    GridSummary shadow = grid("shadow");
    shadow.min = shadow.max = shadow.mean = -1;
    const ViewLook look = chooseLook({grid("color_b"), grid("color_g"), grid("color_r"),
                                      grid("density"), emptyGrid("flame"), shadow,
                                      grid("temperature"), grid("velocity", kVector), points});
    EXPECT_EQ(look.subject, Subject::Smoke) << "an empty flame is no fire";
    EXPECT_EQ(look.mapping,
              "2,density;1,temperature;4,velocity(x);7,color_r;5,velocity(y);8,color_g;"
              "6,velocity(z);9,color_b;");
    EXPECT_EQ(settingOf(look, "darg"), "6") << "smoke takes its own colour";
    EXPECT_NE(look.explanation.find("'particles_secondary' (unregistered codec)"),
              std::string::npos);
    EXPECT_EQ(look.explanation.find("shadow"), std::string::npos);
}

TEST(ViewLook, Subjects_FollowWhatTheFileHolds) {
    EXPECT_EQ(chooseLook({grid("density"), grid("flame")}).subject, Subject::FireAndSmoke);
    EXPECT_EQ(chooseLook({grid("flame")}).subject, Subject::Fire);
    EXPECT_EQ(chooseLook({grid("ls_cube", GridSummary::Kind::LevelSet)}).subject,
              Subject::LevelSet);
    const ViewLook unknown = chooseLook({grid("qv_total"), grid("v", kVector)});
    EXPECT_EQ(unknown.subject, Subject::Smoke);
    EXPECT_EQ(unknown.mapping.substr(0, 11), "2,qv_total;");
    const ViewLook hot = chooseLook({grid("Temperature")});
    EXPECT_EQ(hot.subject, Subject::Fire) << "heat alone is shown as fire";

    const ViewLook nothing = chooseLook({emptyGrid("density"), grid("flags")});
    EXPECT_EQ(nothing.subject, Subject::Nothing);
    EXPECT_EQ(nothing.explanation, "nothing to show: the file holds density (empty), flags");
    EXPECT_EQ(chooseLook({}).subject, Subject::Nothing);
}

TEST(ViewLook, Mapping_DecidesWhatIsShown) {
    const auto shown = [](const std::string& mapping) {
        GridSummary distance = grid("phi", GridSummary::Kind::LevelSet);
        distance.min = distance.mean = -4;
        return chooseLook({grid("density"), grid("flame"), grid("heat"), grid("vel", kVector),
                           distance, emptyGrid("soot")},
                          {.mapping = mapping});
    };
    const struct {
        const char *mapping, *explanation, *earg, *targ;
    } kCases[] = {
        {"2,heat;4,vel(x);5,vel.y;6,vel(z);", "showing smoke from 'heat', velocity from 'vel'", "0",
         "0"},
        {"2,density;10,heat;", "showing smoke from 'density', fire from 'heat'", "10", "0"},
        {"1,heat;", "showing fire from 'heat'", "1", "1"},
        {"1,phi;", "showing a level set from 'phi'", "0", "1"},
        {"2,soot;10,nothing;",
         "nothing to show by the mapping '2,soot;10,nothing;': the file holds density, flame, "
         "heat, vel, phi, soot (empty)",
         "", ""},
    };
    for (const auto& c : kCases) {
        const ViewLook look = shown(c.mapping);
        EXPECT_EQ(look.explanation, c.explanation);
        EXPECT_EQ(settingOf(look, "earg"), c.earg) << c.mapping;
        EXPECT_EQ(settingOf(look, "targ"), c.targ) << c.mapping;
    }
    // Files that name their channels themselves have heat in its own one.
    const ViewLook hot = chooseLook({grid("temperature")});
    EXPECT_EQ(hot.mapping, "1,temperature;");
    EXPECT_EQ(settingOf(hot, "earg"), "1");
}

TEST(ViewLook, GridsOfAnotherTransform_StayOut) {
    GridSummary coarse = grid("velocity", kVector);
    for (int a = 0; a < 3; ++a)
        coarse.toWorld[a][a] = 2;
    EXPECT_EQ(chooseLook({grid("density_noise"), coarse}).mapping, "2,density_noise;");
}

TEST(ViewLook, OpticalDepth_DoesNotDependOnTheResolution) {
    GridSummary coarse = grid("density"), fine = grid("density");
    fine.high = {159, 159, 239};
    fine.activeVoxels = coarse.activeVoxels * 64;
    const auto depth = [](const ViewLook& look, double cells) {
        return -std::log1p(-std::atof(settingOf(look, "smoketransp").c_str())) * cells;
    };
    EXPECT_NEAR(depth(chooseLook({coarse}), 40), depth(chooseLook({fine}), 160), 0.02);
}

TEST(ViewLook, UpAxis_FollowsRisingSmokeThenTheTallestSide) {
    GridSummary velocity = grid("velocity", kVector);
    velocity.meanVector = {0.1, 3, 0.2};
    EXPECT_EQ(chooseLook({grid("density"), velocity}).upAxis, 1);
    EXPECT_EQ(chooseLook({grid("density")}).upAxis, 2) << "60 cells along z, 40 along the others";
    ViewWishes wishes;
    wishes.upAxis = 0;
    EXPECT_EQ(chooseLook({grid("density"), velocity}, wishes).upAxis, 0);
    velocity.meanVector = {9, 0.1, 1};
    EXPECT_EQ(chooseLook({grid("density"), velocity}).upAxis, 2) << "the wind blows along x";
    EXPECT_EQ(chooseLook({grid("density"), velocity}, {}, {.program = 1, .format = 2}).upAxis, 1);
    GridSummary fog = grid("density");
    fog.high = {59, 39, 39};
    EXPECT_EQ(chooseLook({fog}, {}, {.program = -1, .format = 2}).upAxis, 2);
}

TEST(ViewLook, SignedHeat_IsALiquidOnItsFloor) {
    GridSummary water = grid("temperature"), velocity = grid("velocity", kVector);
    water.min = -7;
    water.max = 5;
    velocity.meanVector = {0, 9, 0};
    for (int a = 0; a < 3; ++a)
        water.toWorld[a][a] = 0.04;
    // The x side is wetter, the y sides are alike.
    water.wetFloor = {1500, 20, 700};
    water.wetSides = 0.45;
    const ViewLook look = chooseLook({water, velocity});
    EXPECT_EQ(look.subject, Subject::LevelSet);
    EXPECT_EQ(look.upAxis, 2);
    EXPECT_EQ(settingOf(look, "transp_positions"), "[-1, 0]") << "distances are counted in cells";
    GridSummary turned = water;
    turned.wetFloor = {-1500, -20, -700};
    turned.wetSides = 0.55;
    const ViewLook other = chooseLook({turned, velocity});
    EXPECT_EQ(other.upAxis, 2);
    EXPECT_EQ(settingOf(other, "transp_positions"), "[0, 1]") << "negative outside";
    turned.wetFloor = {};
    turned.wetSides = 1;
    EXPECT_EQ(settingOf(chooseLook({turned}), "transp_values"), "[0, 0.98]");
    water.wetFloor = {};
    EXPECT_EQ(chooseLook({water}).upAxis, 1) << "a drop in the air is as usual";
    water.min = -0.01;
    EXPECT_EQ(chooseLook({water}).subject, Subject::Fire);
}

// Every corner of the box projects into the picture, and not all of it is empty margin.
TEST(ViewScene, Camera_FramesTheBox) {
    for (const int up : {0, 1, 2})
        for (const double azimuth : {0.0, 35.0, 200.0}) {
            ViewScene scene;
            scene.look = chooseLook({grid("density")});
            scene.look.upAxis = up;
            scene.azimuth = azimuth;
            const auto json = nlohmann::json::parse(sceneText(scene));
            const auto& camera = json["camera"];
            const auto point = [](const auto& p) {
                return TessUtils::TracePoint{p[0], p[1], p[2]};
            };
            host::ProjectionSettings settings;
            settings.width = 960;
            settings.height = 540;
            TessUtils::Vector upward;
            upward[up] = 1;
            settings.placement = host::CameraPlacement::lookAt(point(camera["position"]),
                                                               point(camera["target"]), upward);
            const auto model = host::newPinholeCamera(settings, camera["fov"].get<double>());
            double extent = 0;
            for (int corner = 0; corner < 8; ++corner) {
                double at[3], x = 0, y = 0;
                for (int i = 0; i < 3; ++i)
                    at[i] = (corner >> i & 1) ? scene.look.boxHigh[i] : scene.look.boxLow[i];
                ASSERT_TRUE(model->project(point(at), x, y));
                extent = std::max({extent, std::fabs(x / 480 - 1), std::fabs(y / 270 - 1)});
            }
            EXPECT_LE(extent, 1.0) << up << " " << azimuth;
            EXPECT_GT(extent, 0.6) << up << " " << azimuth;
        }
}

}  // namespace
}  // namespace nimbra::cli
