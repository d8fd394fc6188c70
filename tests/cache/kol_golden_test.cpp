// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Sound and broken .kol files against the values that another program gives.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "cache/prt_group.h"
#include "cache/test_log.h"
#include "support/golden.h"

namespace nimbra {
namespace {

using namespace test;
using Json = nlohmann::json;
using PGroup = NimbraFrameData::PGroup;

std::string hexOf(std::span<const unsigned char> bytes) {
    std::string text;
    for (const unsigned char b : bytes) {
        constexpr char kDigits[] = "0123456789abcdef";
        text += {kDigits[b >> 4], kDigits[b & 15]};
    }
    return text;
}

std::vector<float> listOf(std::span<const float> values) {
    return {values.begin(), values.end()};
}

void checkHeader(const NimbraFrameData& frame, const Json& expected) {
    EXPECT_EQ(frame.flags & (kFrameMaskBit31 | kFrameHeaderOnly), expected["flags"]);
    EXPECT_EQ(frame.fileVersion, expected["fileVersion"]);
    EXPECT_EQ(frame.frameNumber, expected["frameNumber"]);
    if (expected.contains("gridSize")) {
        EXPECT_EQ(Json(frame.gridSize), expected["gridSize"]);
    }
    if (expected.contains("compressedInts")) {
        EXPECT_EQ(frame.compressedInts, expected["compressedInts"]);
    }
    EXPECT_EQ(frame.channelMask, expected["channelMask"]);
    EXPECT_EQ(frame.timeStep, floatOf(expected["timeStep"]));
    EXPECT_EQ(frame.simScale, floatOf(expected["simScale"]));
    const SimInfo& info = frame.simInfo;
    EXPECT_EQ(info.simTime(), numberOf(expected["simTime"]));
    EXPECT_EQ(info.simStep(), expected["simStep"]);
    EXPECT_EQ(hexOf(std::span(info.bytes).subspan(384)), expected["simInfo4"]);
    EXPECT_EQ(crc32Of(std::as_bytes(std::span(info.bytes))), expected["simInfo_crc32"]);
    EXPECT_EQ(listOf(frame.transform), floatsOf(expected["transform"]));
    EXPECT_EQ(listOf(frame.motionTm), floatsOf(expected["motionTm"]));
    EXPECT_EQ(listOf(frame.motionTm2), floatsOf(expected["motionTm2"]));
    EXPECT_EQ(listOf(frame.motionTm3), floatsOf(expected["motionTm3"]));
    EXPECT_EQ(listOf(frame.bboxMin), floatsOf(expected["bboxMin"]));
    EXPECT_EQ(listOf(frame.bboxMax), floatsOf(expected["bboxMax"]));
    EXPECT_EQ(frame.description, expected["description"]);
    std::vector<int> present;
    for (int c = 0; c < kChannelSlots; ++c) {
        const auto& values = expected["channelFileValue"];
        EXPECT_EQ(frame.channelFileValue[c], values.value(std::to_string(c), std::int64_t{-1}));
        if (frame.hasChannel(c))
            present.push_back(c);
    }
    EXPECT_EQ(Json(present), expected["hasChannel"]);
}

void checkGridChannel(NimbraFrameData& frame, int channel, const Json& expected) {
    SCOPED_TRACE("channel " + std::to_string(channel));
    const float* const voxels = frame.getChannelData(channel);
    ASSERT_TRUE(voxels);
    const auto cells = static_cast<std::size_t>(voxelCount(frame.gridSize));
    const std::span values(voxels, cells);
    if (expected.contains("crc32")) {
        EXPECT_EQ(crc32Of(std::as_bytes(values)), expected["crc32"]);
    }
    const int slack = expected.value("tolerance_ulp", 0);
    const auto& index = expected["sample_index"];
    for (std::size_t i = 0; i < index.size(); ++i) {
        const float got = values[index[i].get<std::size_t>()];
        const auto want = std::bit_cast<std::int32_t>(floatOfBits(expected["sample_bits"][i]));
        EXPECT_LE(std::abs(std::bit_cast<std::int32_t>(got) - want), slack) << index[i];
    }
    float range[2];
    ASSERT_TRUE(frame.getChannelRange(channel, range[0], range[1]));
    for (int i = 0; i < 2; ++i) {
        const float want = floatOf(expected["range"][static_cast<std::size_t>(i)]);
        EXPECT_NEAR(range[i], want, std::fabs(want) * static_cast<float>(slack) * 1.2e-7f);
    }
}

void checkParticleChannel(PGroup& group, int channel, const Json& expected) {
    SCOPED_TRACE("particle channel " + std::to_string(channel));
    const unsigned char* const data = group.channelData(channel);
    ASSERT_TRUE(data || group.count == 0);
    EXPECT_EQ(group.getChannelComponents(channel), expected["components"]);
    const std::size_t bytes = static_cast<std::size_t>(group.count) *
                              static_cast<std::size_t>(group.getChannelStride(channel));
    EXPECT_EQ(crc32Of(std::as_bytes(std::span(data, bytes))), expected["crc32"]);
    float last[3] = {};
    if (!expected.contains("last_bits"))
        return;
    ASSERT_TRUE(group.getValue(group.count - 1, channel, last));
    for (std::size_t c = 0; c < expected["last_bits"].size(); ++c)
        EXPECT_EQ(bitsOf(last[c]), expected["last_bits"][c]);
}

void checkGroup(PGroup& group, const Json& expected, bool headerOnly) {
    SCOPED_TRACE(group.name);
    EXPECT_EQ(group.name, expected["name"]);
    EXPECT_EQ(group.flags, expected["flags"]);
    EXPECT_EQ(group.count, expected["count"]);
    EXPECT_EQ(group.channelMask, expected["channelMask"]);
    if (headerOnly)
        return;
    EXPECT_EQ(group.getCount(), expected["getCount"]);
    EXPECT_EQ(hexOf(group.userValue), expected["userValue"]);
    for (const auto& [id, channel] : expected["channels"].items())
        checkParticleChannel(group, std::stoi(id), channel);
    for (const auto& id : expected.value("failed", Json::array()))
        EXPECT_FALSE(group.channelData(id)) << "channel " << id;
    for (const auto& probe : expected["findById"])
        EXPECT_EQ(group.findById(probe[0]), probe[1]) << probe;
    if (expected.contains("idOrder") && !expected["idOrder"].is_null()) {
        const std::span<const int> order(group.idOrder.begin(), group.idOrder.end());
        EXPECT_EQ(crc32Of(std::as_bytes(order)), expected["idOrder"]["crc32"]);
    }
    const Json fromGrid = expected.value("velocityFromGrid", Json{{"values", Json::array()}});
    for (const auto& [particle, velocity] :
         fromGrid["values"].get<std::vector<std::pair<int, Json>>>()) {
        float got[3];
        ASSERT_TRUE(group.getValue(particle, kPrtVelocity, got));
        for (std::size_t a = 0; a < 3; ++a)
            EXPECT_NEAR(got[a], velocity[a].get<double>(), fromGrid["tolerance"].get<double>());
    }
}

void checkFrame(NimbraFrameData& frame, const Json& expected, bool headerOnly) {
    checkHeader(frame, expected);
    ASSERT_EQ(static_cast<std::size_t>(frame.groups.size), expected["groups"].size());
    for (int i = 0; i < frame.groups.size; ++i)
        checkGroup(*frame.groups[i], expected["groups"][static_cast<std::size_t>(i)], headerOnly);
    if (headerOnly)
        return;
    EXPECT_EQ(frame.getPrtGroupCount(), expected["prtGroupCount"]);
    for (const auto& [id, channel] : expected["channels"].items())
        checkGridChannel(frame, std::stoi(id), channel);
    for (const auto& id : expected.value("failed", Json::array()))
        EXPECT_FALSE(frame.getChannelProxy(id).loaded) << "channel " << id;
}

void checkLoad(const GoldenCase& golden, const Json& expected, bool headerOnly) {
    SCOPED_TRACE(headerOnly ? "header only" : "in full");
    CaughtLog log;
    NimbraFrameData frame;
    const int status = frame.load(golden.file(golden.json["file"]), "", 5, -1, true, headerOnly);
    if (golden.ambiguous() && status != expected["status"])
        std::printf("%s: status %d, expected %s\n", golden.name().c_str(), status,
                    expected["status"].dump().c_str());
    else
        EXPECT_EQ(status, expected["status"]);
    EXPECT_EQ(status == kLoadOk, !frame.path.empty());
    if (status == kLoadOk && expected.contains("frame"))
        checkFrame(frame, expected["frame"], headerOnly);
    const std::string text = log.take();
    for (const auto& line : golden.json.value("log_contains", Json::array())) {
        // A "#" in front is a mark for the debugger's window; the file goes without.
        std::string wanted = line;
        wanted.erase(0, wanted.find_first_not_of('#'));
        EXPECT_NE(text.find(wanted), text.npos) << wanted << " isn't in the log:\n" << text;
    }
    // A broken file leaves nothing behind.
    if (status != kLoadOk) {
        EXPECT_EQ(frame.compressed, nullptr);
        EXPECT_EQ(frame.compressedInts, 0);
        EXPECT_EQ(frame.groups.size, 0);
    }
}

TEST(ImportKol, GoldenFiles_GiveTheirValues) {
    for (const char* const folder : {"kol", "kol_broken"}) {
        const std::vector<GoldenCase> cases = goldenInFolder(folder);
        EXPECT_FALSE(cases.empty()) << folder;
        for (const GoldenCase& golden : cases) {
            SCOPED_TRACE(golden.name() + ": " + golden.json["covers"].get<std::string>());
            checkLoad(golden, golden.json, false);
            if (golden.json.contains("header_only"))
                checkLoad(golden, golden.json["header_only"], true);
        }
    }
}

}  // namespace
}  // namespace nimbra
