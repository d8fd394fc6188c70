// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Spectra, waves and colours of the sea against golden values.
#include "support/golden.h"
#include "textures/ocean.h"

namespace nimbra::test {
namespace {

using nlohmann::json;
using TessUtils::Color;

OceanSettings settingsFrom(const json& j) {
    OceanSettings s;
    s.vector = j.value("vector", s.vector);
    s.sharpness = j.value("sharpness", s.sharpness);
    s.bell = j.value("bell", s.bell);
    s.velcoh = j.value("velcoh", s.velcoh);
    s.seed = j.value("seed", s.seed);
    s.meterScale = j.value("meter_scale", s.meterScale);
    s.useWind = j.value("use_wind", s.useWind);
    s.wind = j.value("wind", s.wind);
    s.velmult = j.value("velmult", s.velmult);
    s.lod = j.value("lod", s.lod);
    s.rgbmult = j.value("rgbmult", s.rgbmult);
    s.rgboffset = j.value("rgboffset", s.rgboffset);
    s.animMode = j.value("anim_mode", s.animMode);
    s.directTime = j.value("direct_time", s.directTime);
    s.loopLength = j.value("loop_length", s.loopLength);
    return s;
}

void checkSpectrum(const GoldenCase& golden, const json& set, const Ocean& ocean) {
    // Without wind the amplitudes are near 1e-18, made from numbers too small for all their digits.
    const Tolerance tolerance(1e-20, set["relativeTolerance"].get<double>());
    const auto check = [&](double got, const json& expected, const std::string& what) {
        expectGolden(golden, tolerance, got, numberOf(expected), what);
    };
    check(ocean.latticeDensity, set["latticeDensity"], "latticeDensity");
    check(ocean.spread, set["spread"], "spread");
    check(ocean.windDir[0], set["windDir"][0], "windDir x");
    check(ocean.windDir[1], set["windDir"][1], "windDir y");
    check(ocean.energySum, set["energy"], "energy");
    check(ocean.amplitudeSum, set["amplitudeSum"], "amplitudeSum");
    check(ocean.choppiness, set["choppiness"], "choppiness");
    const json& waves = set["waves"];
    ASSERT_EQ(ocean.waves.size, static_cast<int>(waves.size()));
    for (int i = 0; i < ocean.waves.size; ++i) {
        SCOPED_TRACE("band " + std::to_string(i));
        check(ocean.waves[i].omega, waves[i]["omega"], "omega");
        check(ocean.waves[i].amplitude, waves[i]["amplitude"], "amplitude");
        check(ocean.waves[i].waveNumber, waves[i]["waveNumber"], "waveNumber");
        EXPECT_EQ(ocean.waves[i].seed, waves[i]["seed"].get<std::uint32_t>());
    }
}

template <class Values>
void checkThree(const GoldenCase& golden, const json& j, const Values& got, const char* key) {
    const std::vector<float> expected = floatsOf(j[key]);
    for (int c = 0; c < 3; ++c)
        expectGolden(golden, Tolerance(j["tolerance"]), got[c], expected[c],
                     j["point"].dump() + " " + key + " " + std::to_string(c));
}

void checkPlaces(const GoldenCase& golden, const json& set, const Ocean& ocean) {
    for (const json& j : set["points"]) {
        const std::vector<float> at = floatsOf(j["point"]);
        checkThree(golden, j,
                   ocean.evaluate(at[0], at[1], floatOf(j["time"]), floatOf(j["filter"])), "value");
    }
    for (const json& j : set["texture"]) {
        const std::vector<float> at = floatsOf(j["point"]);
        Color got;
        ocean.getValue(got, {at[0], at[1], at[2]}, floatOf(j["time"]), j["up_vector"].get<int>(),
                       floatOf(j["filter"]));
        checkThree(golden, j, got, "colour");
    }
}

TEST(OceanGolden, SpectraWavesAndColours_AgreeWithGoldenValues) {
    for (const GoldenCase& golden : goldenNamed("ocean"))
        for (const json& set : golden.json.value("sets", json::array())) {
            SCOPED_TRACE(golden.name() + ": " + set["name"].get<std::string>());
            Ocean ocean;
            ocean.setup(settingsFrom(set["parameters"]));
            checkSpectrum(golden, set, ocean);
            checkPlaces(golden, set, ocean);
        }
}

}  // namespace
}  // namespace nimbra::test
