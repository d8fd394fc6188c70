// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_json.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>

#include "cache/prt_group.h"
#include "cli/cache_frame.h"
#include "cli/json_text.h"
#include "support/caught_log.h"
#include "support/golden.h"

namespace nimbra::cli {
namespace {

using test::GoldenCase;
using Json = nlohmann::json;

Json frameOf(const std::string& path, bool headerOnly, int& status) {
    const CacheFrame frame = loadCacheFrame(path, "", headerOnly);
    status = frame.status;
    std::vector<int> tooLarge;
    const Json json =
        frame.data ? Json(frameJson(*frame.data, {.headerOnly = headerOnly}, tooLarge)) : Json();
    EXPECT_TRUE(tooLarge.empty());
    return json;
}

std::int64_t stepsApart(const std::string& a, const std::string& b) {
    const auto place = [](const std::string& hex) {
        const auto bits = std::bit_cast<std::int32_t>(test::floatOfBits(hex));
        return std::int64_t(bits < 0 ? INT32_MIN - bits : bits);
    };
    return std::llabs(place(a) - place(b));
}

/// A channel whose values may differ in their last bits: the numbers made of them then do too.
void expectNear(const GoldenCase& golden, const Json& got, const Json& expected) {
    const int steps = expected["tolerance_ulp"];
    EXPECT_EQ(got["sample_index"], expected["sample_index"]);
    ASSERT_EQ(got["sample_bits"].size(), expected["sample_bits"].size());
    for (std::size_t i = 0; i < expected["sample_bits"].size(); ++i)
        EXPECT_LE(stepsApart(got["sample_bits"][i], expected["sample_bits"][i]), steps);
    const test::Tolerance tolerance(0, steps * 0x1p-23);
    for (const char* key : {"min", "max", "mean", "sum"})
        test::expectGolden(golden, tolerance, test::numberOf(got[key]),
                           test::numberOf(expected[key]), key);
    EXPECT_FALSE(got.contains("crc32"));
}

void expectSamples(const GoldenCase& golden, const Json& got, const Json& expected) {
    EXPECT_EQ(got["tolerance"], expected["tolerance"]);
    ASSERT_EQ(got["values"].size(), expected["values"].size());
    const test::Tolerance tolerance(expected["tolerance"].get<double>(), 0);
    for (std::size_t i = 0; i < expected["values"].size(); ++i) {
        EXPECT_EQ(got["values"][i][0], expected["values"][i][0]);
        for (int a = 0; a < 3; ++a)
            test::expectGolden(golden, tolerance, got["values"][i][1][a],
                               expected["values"][i][1][a], "velocity");
    }
}

/// Compares the parts that are allowed a tolerance, and takes them out of both.
void settleTolerances(const GoldenCase& golden, Json& got, Json& expected) {
    for (auto& [id, channel] : expected["channels"].items())
        if (channel.contains("tolerance_ulp") && got["channels"].contains(id)) {
            expectNear(golden, got["channels"][id], channel);
            got["channels"][id] = channel = "compared";
        }
    for (std::size_t g = 0; g < expected["groups"].size() && g < got["groups"].size(); ++g)
        if (Json& group = expected["groups"][g]; group.contains("velocityFromGrid")) {
            expectSamples(golden, got["groups"][g]["velocityFromGrid"], group["velocityFromGrid"]);
            got["groups"][g]["velocityFromGrid"] = group["velocityFromGrid"] = "compared";
        }
}

void compare(const GoldenCase& golden, const Json& answer, bool headerOnly) {
    int status = -1;
    test::CaughtLog log;
    Json got = frameOf(golden.file(golden.json["file"]), headerOnly, status);
    Json expected = answer.value("frame", Json());
    if (!expected.is_null() && !headerOnly && got.is_object())
        settleTolerances(golden, got, expected);
    if (golden.ambiguous() && (status != answer["status"] || got != expected)) {
        std::printf("[ ambiguous] %s: status %d\n", golden.name().c_str(), status);
        return;
    }
    EXPECT_EQ(status, answer["status"]);
    EXPECT_EQ(got, expected) << Json::diff(got, expected).dump(1);
    const std::string text = log.take();
    for (std::string line : golden.json.value("log_contains", Json::array())) {
        // A "#" in front is a mark for the debugger's window; the file goes without.
        line.erase(0, line.find_first_not_of('#'));
        EXPECT_NE(text.find(line), text.npos) << line << " isn't in the log:\n" << text;
    }
}

TEST(FrameJson, KolFiles_GiveTheGoldenFrames) {
    for (const char* folder : {"kol", "kol_broken"}) {
        const auto cases = test::goldenInFolder(folder);
        EXPECT_TRUE(!cases.empty() || std::getenv("NIMBRA_GOLDEN"));
        for (const GoldenCase& golden : cases) {
            SCOPED_TRACE(golden.name());
            compare(golden, golden.json, false);
            if (golden.json.contains("header_only"))
                compare(golden, golden.json["header_only"], true);
        }
    }
}

TEST(FrameJson, ChannelsBeyondTheLimit_AreNamedAndLeftOut) {
    NimbraFrameData frame;
    frame.resetHeader(false);
    const int size[3] = {10, 10, 10};
    std::copy_n(size, 3, frame.gridSize);
    for (const int c : {kSmoke, kFuel}) {
        ASSERT_TRUE(frame.channels[c].allocate(size));
        frame.channelMask |= channelBit(c);
    }
    std::vector<int> tooLarge;
    EXPECT_FALSE(frameJson(frame, {.mostVoxels = 2000}, tooLarge).contains("failed"));
    EXPECT_EQ(frameJson(frame, {.mostVoxels = 1999}, tooLarge)["failed"], Json({2, 10}));
    EXPECT_EQ(tooLarge, (std::vector<int>{2, 10}));
}

TEST(JsonText, Layout_IsThatOfGoldenFiles) {
    const nlohmann::ordered_json value{
        {"list", {1, 2.0, 0.1, "nan"}},
        {"short", {{1, 2}, {3, 4}}},
        {"long", {std::vector<int>(15, 1), std::vector<int>(15, 1)}},
        {"empty", nlohmann::ordered_json::object()},
        {"text", "gr\u00f6\xff"},
        {"numbers", {1e20, -3e-7, 123456789012}},
        {"floats", {floatJson(1e20f), floatJson(0.1f), floatJson(-0.0f), doubleJson(0.1)}}};
    EXPECT_EQ(jsonText(value),
              "{\n \"list\": [1, 2.0, 0.1, \"nan\"],\n \"short\": [[1, 2], [3, 4]],\n \"long\": [\n"
              "  [1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1],\n"
              "  [1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1]\n ],\n \"empty\": {},\n"
              " \"text\": \"gr\\u00f6\\ufffd\",\n \"numbers\": [1e+20, -3e-07, 123456789012],\n"
              " \"floats\": [1.00000002e+20, 0.100000001, -0.0, 0.1]\n}");
}

}  // namespace
}  // namespace nimbra::cli
