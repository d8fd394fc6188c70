// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/prt_info.h"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "support/memory_file.h"
#include "support/prt_writer.h"

namespace nimbra::cli {
namespace {

using namespace test;

/// Positions as doubles, a density with a NaN, a counter of small numbers.
PrtSpec spray() {
    PrtSpec spec{.particles = 4,
                 .channels = {{"Position", PrtIO::kFloat64, 3, 0},
                              {"Density", PrtIO::kFloat32, 1, 24},
                              {"Count", PrtIO::kInt8, 1, 28},
                              {"ID", PrtIO::kInt64, 1, 29},
                              {"Odd", 99, 1, 0}}};
    for (int i = 0; i < 4; ++i) {
        for (const double v : {1.0 * i, -2.0 * i, 0.5})
            appendBytes(spec.records, v);
        appendBytes(spec.records, i == 2 ? std::nanf("") : static_cast<float>(i));
        appendBytes(spec.records, static_cast<std::int8_t>(-i));
        appendBytes(spec.records, std::int64_t{1000} + i);
    }
    return spec;
}

TEST(PrtInfo, ChannelsOfAllTypes_HaveTheirRanges) {
    const MemoryFile memory(prtBytes(spray()));
    const PrtFileInfo info = readPrtInfo(memory.path());
    ASSERT_TRUE(info.readable);
    EXPECT_EQ(info.problem, "");
    EXPECT_EQ(info.recordSize, 37);
    EXPECT_EQ(info.wholeParticles, 4);
    ASSERT_EQ(info.channels.size(), 5u);
    EXPECT_EQ(info.channels[0].type, "float64");
    // A type that the loader doesn't read is told all the same.
    EXPECT_FALSE(info.channels[0].used);
    EXPECT_TRUE(info.channels[3].used);
    EXPECT_EQ(info.channels[1].notFinite, 1);
    EXPECT_EQ(info.channels[1].max, 3);
    EXPECT_EQ(info.channels[2].min, -3);
    EXPECT_EQ(info.channels[3].mean, 1001.5);
    EXPECT_FALSE(info.channels[4].hasValues);
    EXPECT_TRUE(info.hasBounds);
    EXPECT_EQ(info.low, (std::array<double, 3>{0, -6, 0.5}));
    EXPECT_EQ(info.high, (std::array<double, 3>{3, 0, 0.5}));

    const auto json = nlohmann::json::parse(infoJson(info));
    EXPECT_EQ(json["format"], "prt");
    EXPECT_EQ(json["channels"][2]["min"], -3);
    EXPECT_EQ(json["high"], (std::vector<double>{3, 0, 0.5}));
    EXPECT_NE(infoText(info).find("PRT 1, 4 particles of 37 bytes"), std::string::npos);
    EXPECT_NE(infoText(info).find("\n  Count            int8, -3 to 0, mean -1.5 (not used)\n"),
              std::string::npos)
        << infoText(info);
}

TEST(PrtInfo, DamagedFiles_SayHowFarTheyGo) {
    PrtSpec spec = simplePrt(100);
    spec.records.resize(24 * 70 + 5);
    const MemoryFile memory(prtBytes(spec));
    const PrtFileInfo info = readPrtInfo(memory.path());
    EXPECT_TRUE(info.readable);
    EXPECT_EQ(info.wholeParticles, 70);
    EXPECT_EQ(info.high[0], 69);
    EXPECT_NE(infoText(info).find("damaged: ends inside its particles; 70 whole particles"),
              std::string::npos);
    spec.channels = {{"Position", 4, 3, -8}, {"Velocity", 4, 1 << 30, 0}, {"Age", 4, -4, 0}};
    const MemoryFile odd(prtBytes(spec));
    EXPECT_FALSE(readPrtInfo(odd.path()).readable);
    EXPECT_FALSE(readPrtInfo("/nowhere/a.prt").readable);
    EXPECT_EQ(nlohmann::json::parse(infoJson(readPrtInfo("/nowhere/a.prt")))["readable"], false);
}

}  // namespace
}  // namespace nimbra::cli
