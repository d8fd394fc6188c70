// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Sound and broken .kol files: statuses, messages, which channels there are.
#include <gtest/gtest.h>

#include "cache/prt_group.h"
#include "cache/test_log.h"
#include "support/golden.h"

namespace nimbra {
namespace {

using namespace test;
using Json = nlohmann::json;

/// Expands everything. Values are compared where frames become JSON.
void checkFrame(NimbraFrameData& frame, const Json& expected) {
    EXPECT_EQ(frame.getPrtGroupCount(), expected["prtGroupCount"]);
    for (const auto& [id, channel] : expected["channels"].items())
        EXPECT_TRUE(frame.getChannelData(std::stoi(id))) << "channel " << id;
    for (const auto& id : expected.value("failed", Json::array()))
        EXPECT_FALSE(frame.getChannelProxy(id).loaded) << "channel " << id;
    ASSERT_EQ(static_cast<std::size_t>(frame.groups.size), expected["groups"].size());
    for (int g = 0; g < frame.groups.size; ++g) {
        const Json& group = expected["groups"][static_cast<std::size_t>(g)];
        for (const auto& [id, channel] : group["channels"].items())
            EXPECT_TRUE(frame.groups[g]->channelData(std::stoi(id)) || group["count"] == 0) << id;
        for (const auto& id : group.value("failed", Json::array()))
            EXPECT_FALSE(frame.groups[g]->channelData(id)) << "particle channel " << id;
    }
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
    if (status == kLoadOk && expected.contains("frame") && !headerOnly)
        checkFrame(frame, expected["frame"]);
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

TEST(ImportKol, GoldenFiles_GiveTheirStatusAndChannels) {
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
