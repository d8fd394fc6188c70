// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/channel_mapping.h"

#include <gtest/gtest.h>

namespace CacheIO {
namespace {

TEST(ChannelMap, Parse_StopsWhereAnEntryIsIncomplete) {
    using List = std::vector<GridMapping>;
    EXPECT_EQ(parseChannelMap("2,density;1,temperature;"),
              (List{{"density", 2, 1}, {"temperature", 1, 1}}));
    EXPECT_EQ(parseChannelMap("7,vel (x), odd;"), (List{{"vel (x), odd", 7, 1}}));
    EXPECT_EQ(parseChannelMap(" 12x,a;y,b;"), (List{{"a", 12, 1}, {"b", 0, 1}}));
    EXPECT_EQ(parseChannelMap("2,a;1,cut"), (List{{"a", 2, 1}}));
    for (const char* empty : {"", ";", "2;", "density", "2,density"})
        EXPECT_TRUE(parseChannelMap(empty).empty()) << empty;
}

TEST(ChannelMap, Format_IsReadBack) {
    const std::vector<GridMapping> list = {{"a", 1, 1}, {"b(x)", -1, 1}, {"", 30, 1}};
    EXPECT_EQ(formatChannelMap(list), "1,a;-1,b(x);30,;");
    EXPECT_EQ(parseChannelMap(formatChannelMap(list)), list);
}

TEST(ChannelMap, OwnNames_InTheirOrder) {
    EXPECT_EQ(ownChannelMap(),
              "1,Temperature_nmb;2,Smoke_nmb;4,VelocityX_nmb;5,VelocityY_nmb;6,VelocityZ_nmb;"
              "7,ColorR_nmb;8,ColorG_nmb;9,ColorB_nmb;10,Fuel_nmb;14,WaveletEnergy_nmb;"
              "19,WaveletU_nmb;20,WaveletV_nmb;21,WaveletW_nmb;15,AdvectionOriginX_nmb;"
              "16,AdvectionOriginY_nmb;17,AdvectionOriginZ_nmb;");
}

std::string chosen(const std::vector<AvailableChannels>& available,
                   std::span<const DefaultMapping> table = defaultVdbMappings()) {
    return formatChannelMap(chooseMappings(available, table));
}

TEST(ChooseMappings, FileOrderAndExactNames) {
    EXPECT_EQ(chosen({{"flame", 0}, {"temperature", 0}, {"density", 0}}),
              "1,temperature;2,density;");
    EXPECT_EQ(chosen({{"Density", 0}}, defaultF3dMappings()), "2,Density;");
    EXPECT_EQ(chosen({{"vel(x)", 1}, {"vel(y)", 1}, {"vel(z)", 1}, {"Smoke", 0}}),
              "4,vel(x);5,vel(y);6,vel(z);2,Smoke;");
}

TEST(ChooseMappings, NothingMakesSmoke_TheFirstScalarDoes) {
    EXPECT_EQ(chosen({{"v(x)", 1}, {"VelocitiesX", 0}, {"dens", 0}, {"other", 0}}),
              "4,VelocitiesX;2,dens;");
    // A grid may serve two channels.
    EXPECT_EQ(chosen({{"temperature", 0}}), "1,temperature;2,temperature;");
    EXPECT_EQ(chosen({{"v(x)", 1}}), "");
    EXPECT_EQ(chosen({}), "");
}

TEST(MappingsOfText, ScalesComeFromTheTableOnlyForItsOwnText) {
    const auto list = chooseMappings({{"surface", 0}, {"density", 0}}, defaultVdbMappings());
    const std::string text = defaultChannelMap(list);
    EXPECT_EQ(formatChannelMap(parseChannelMap(text)), "1,surface;2,density;");
    EXPECT_EQ(mappingsOfText(text, defaultVdbMappings()), list);
    EXPECT_FLOAT_EQ(list[0].scale, -33.3333f);
    EXPECT_EQ(mappingsOfText("1,surface;", defaultVdbMappings()).at(0).scale, 1.0f);
    // Nothing is added where all scales are 1.
    EXPECT_EQ(defaultChannelMap({{"density", 2, 1}}), "2,density;");
}

TEST(FindChannelMap, NoFile_OwnNames) {
    for (const char* path : {"/nowhere/a_####.vdb", "/nowhere/a.f3d", "/nowhere/a.xyz"})
        EXPECT_EQ(findChannelMap(path), ownChannelMap()) << path;
}

}  // namespace
}  // namespace CacheIO
