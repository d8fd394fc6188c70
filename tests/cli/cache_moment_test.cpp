// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Which files a moment resolves to: by settings, and as a user asks for scenes and sequences.
#include "cli/cache_moment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/command_line.h"
#include "support/temp_folder.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;
using host::FrameNumber;

class CacheMoments : public testing::Test {
protected:
    void SetUp() override {
        for (const int frame : {10, 11, 12, 14})
            write("s_00" + std::to_string(frame) + ".vdb", "x");
        write("one.kol", "x");
        playback_.path = at("s_####.vdb");
    }
    std::string at(const std::string& name) const { return (folder_ / name).string(); }
    void write(const std::string& name, const std::string& text) { folder_.write(name, text); }

    /// "mix: frame found, ...", with "-" for a missing file.
    std::string show(double time) {
        const auto units = static_cast<std::int64_t>(std::llround(time * FrameNumber::kUnits));
        const CacheMoment m = momentOf(playback_, FrameNumber::ofUnits(units));
        std::string text = m.outside                          ? "outside"
                           : m.mix.kind == FrameMix::kWhole   ? "whole"
                           : m.mix.kind == FrameMix::kBetween ? "between"
                                                              : "overlap";
        for (const WantedFrame& f : m.frames)
            text += " " + std::to_string(f.frame) + ":" +
                    (!f.exists     ? "-"
                     : f.servesAll ? "all"
                                   : std::to_string(f.found));
        weight_ = m.mix.weight;
        return text;
    }

    Answer info(std::vector<std::string> words) {
        words.insert(words.begin(), "info");
        return run(words);
    }

    test::TempFolder folder_;
    CachePlayback playback_{};
    float weight_ = 0;
};

TEST_F(CacheMoments, Settings_LeadToFilesAndWeights) {
    EXPECT_EQ(show(11), "whole 11:11");
    EXPECT_EQ(show(13.25), "between 13:- 14:14");
    EXPECT_EQ(weight_, 0.25f);
    playback_.bend.loadNearest = true;
    EXPECT_EQ(show(99.5), "between 99:14 100:14");
    playback_.bend = {.readOffset = 10, .playAt = 100, .maxLength = 4, .playSpeed = 0.5f};
    EXPECT_EQ(show(103), "between 11:11 12:12");
    EXPECT_EQ(show(99), "outside");
    EXPECT_EQ(show(105), "outside") << "behind the play length";
    playback_.bend = {.playSpeed = 1e30f};
    EXPECT_EQ(show(2), "outside");
    playback_.bent = false;
    EXPECT_EQ(show(11), "whole 11:11");
    playback_.bent = true;
    playback_.bend = {.mode = kPlayFrameIndex, .frameIndex = 14};
    EXPECT_EQ(show(0.5), "whole 14:14");
    // Frame 1 of a loop of 3 that overlaps by 2.
    playback_.bend = {.mode = kPlayLoop, .loopOverlap = 2, .readOffset = 10, .maxLength = 3};
    EXPECT_EQ(show(4), "overlap 11:11 14:14");
    EXPECT_FLOAT_EQ(weight_, 1 - 1 / 3.0f);
    playback_.path = at("one.kol");
    EXPECT_EQ(show(4), "overlap 11:all 14:all");
}

TEST_F(CacheMoments, Scenes_AreReadAtTheirTimes) {
    setenv("NIMBRA_TEST_SHOT", "s", 1);
    write("sub/caches.json", R"({"nimbra": 1, "near": {"plugin": "NmbShaderCache",
        "cache_path": "../$env(NIMBRA_TEST_SHOT)_####.vdb", "load_nearest": true,
        "read_offset": {"keys": [[0, 0], [1, 11]]}, "blend_method": 1,
        "smooth_mask": 4, "smooth_threshold": [0, 0, 0.5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0]}})");
    write("scene.json", R"({"nimbra": 1, "include": ["sub/caches.json"],
        "far": {"plugin": "NmbShaderCache", "cache_path": "s_####.vdb", "play_speed": 0.25}})");
    const auto moments = [&](const std::vector<std::string>& more, int code) {
        std::vector<std::string> words{"--json", at("scene.json")};
        words.insert(words.end(), more.begin(), more.end());
        const Answer answer = info(words);
        EXPECT_EQ(answer.code, code) << answer.err;
        std::vector<nlohmann::json> found;
        std::size_t start = 0;
        for (std::size_t end; (end = answer.out.find("\n}\n", start)) != std::string::npos;
             start = end + 3)
            found.push_back(nlohmann::json::parse(answer.out.substr(start, end + 2 - start)));
        return found;
    };
    const auto found = moments({"--at", "1.5,48"}, kExitInput);
    ASSERT_EQ(found.size(), 4u) << "two caches at two times";
    EXPECT_EQ(found[0]["cache"], "near");
    EXPECT_EQ(found[0]["files"][0]["file"], at("s_0012.vdb")) << "of the include, animated";
    EXPECT_EQ(found[0]["files"][1]["frame"], 13);
    EXPECT_EQ(found[0]["files"][1]["found"], 12) << "the first of two that are equally far";
    EXPECT_EQ(found[0]["blend"]["method"], "velocity");
    EXPECT_EQ(found[0]["blend"]["weight"], 0.5);
    EXPECT_EQ(found[0]["smoothing"][0]["channel"], "smoke");
    EXPECT_EQ(found[0]["smoothing"][0]["threshold"], 0.5);
    EXPECT_EQ(found[1]["cacheFrame"], 0.375);
    EXPECT_FALSE(found[1]["files"][0]["exists"]);
    EXPECT_EQ(found[3]["files"][0]["file"], at("s_0012.vdb"));
    EXPECT_EQ(found[3]["blend"], nullptr);
    // Options replace the rows of every cache.
    for (const auto& m : moments(
             {"--at", "4", "--speed=-1", "--offset", "18", "--blend", "interpolation"}, kExitDone))
        EXPECT_EQ(m["files"][0]["found"], 14) << m;
}

TEST_F(CacheMoments, Pictures_BetweenFramesHaveTheirNamesAndTimes) {
    for (const char* name : {"k_0001.kol", "k_0002.kol"})
        fs::copy_file(fs::path(NIMBRA_TEST_DATA) / "golden/kol/v6_small_plume.kol", at(name));
    const std::vector<std::string> small{"--size", "8x8", "-s", "1", "--progress", "none"};
    const auto picture = [&](const std::string& command, std::vector<std::string> words) {
        words.insert(words.end(), small.begin(), small.end());
        words.insert(words.begin(), command);
        return run(words);
    };
    const std::string scene = at("view.json");
    Answer answer =
        picture("view", {at("k_####.kol"), "--speed", "0.25", "--offset", "1", "--frames",
                         "2-4x0.5,9", "--write-scene", scene, "-o", at("v.exr")});
    EXPECT_EQ(answer.code, kExitDone) << answer.err;
    for (const char* name : {"v.0002.000.exr", "v.0002.500.exr", "v.0004.000.exr"})
        EXPECT_TRUE(fs::exists(at(name))) << name;
    EXPECT_NE(answer.err.find("nothing to see at frame 9"), std::string::npos) << answer.err;
    EXPECT_EQ(answer.err.find("No simulation data"), std::string::npos) << "it was told once";
    EXPECT_NE(info({"--at", "2.5", scene}).out.find("cache frame 1.625"), std::string::npos);
    answer = picture("render", {scene, "--frames", "2.5,2.50", "--skip-existing", "--set",
                                "cache.time_tform=false", "--speed", "2", "-o", at("v_%d.exr")});
    EXPECT_EQ(answer.code, kExitDone) << answer.err;
    EXPECT_TRUE(fs::exists(at("v_2.500.exr")));
    EXPECT_NE(answer.err.find("time: cache.play_speed=2\n"), std::string::npos) << answer.err;
    EXPECT_NE(answer.err.find("no effect"), std::string::npos) << answer.err;
    // A damaged file leaves the choice of the look to the one beside it.
    write("k_0003.kol", "damaged");
    answer = picture("view", {at("k_####.kol"), "--frames", "3", "-o", at("v.exr")});
    EXPECT_EQ(answer.code, kExitDone) << answer.err;
    EXPECT_NE(answer.err.find("k_0002.kol: showing"), std::string::npos) << answer.err;
    // So does one without anything to show, and without a word.
    fs::copy_file(fs::path(NIMBRA_TEST_DATA) / "golden/kol/v5_grid_velocity.kol", at("k_0004.kol"));
    answer = picture("view", {at("k_####.kol"), "--frames", "4", "-o", at("v.exr")});
    EXPECT_NE(answer.err.find("k_0002.kol: showing"), std::string::npos) << answer.err;
    EXPECT_EQ(answer.err.find("k_0004.kol"), std::string::npos) << answer.err;
    write("bare.json", R"({"nimbra": 1})");
    EXPECT_EQ(picture("render", {at("bare.json"), "--blend", "velocity"}).code, kExitUsage);
}

TEST_F(CacheMoments, NamesThatLookLikePatterns_AreFilesWhereThereAreSuch) {
    for (const std::string name : {"k#1.kol", "a%d.kol", "b_####.kol"}) {
        fs::copy_file(fs::path(NIMBRA_TEST_DATA) / "golden/kol/v6_small_plume.kol", at(name));
        const std::vector<std::string> look{"view", at(name), "--size", "8x8",
                                            "-s",   "1",      "-o",     at("v.exr")};
        const Answer seen = run(look);
        EXPECT_EQ(seen.code, kExitDone) << seen.err;
        EXPECT_EQ(seen.err.find("warning"), std::string::npos) << seen.err;
        EXPECT_EQ(info({"--at", "7", at(name)}).code, kExitDone) << name;
        EXPECT_EQ(run({"convert", at(name), at("out.vdb")}).code, kExitDone) << name;
    }
    EXPECT_EQ(run({"view", at("k#1.kol"), "--write-scene", at("s.json")}).code, kExitUsage);
}

TEST_F(CacheMoments, Inputs_AreToldApartFromUsage) {
    const std::string pattern = at("s_####.vdb");
    const Answer text = info({"--at", "0.5", "--speed", "2", "--offset", "9", pattern});
    EXPECT_EQ(text.code, kExitDone);
    EXPECT_NE(text.out.find("0.5 -> cache frame 10 (10000 ticks)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("shows    frame 10"), std::string::npos) << text.out;
    const Answer missing = info({"--at", "13", at("s_0011.vdb")});
    EXPECT_EQ(missing.code, kExitInput) << "a file stands for its sequence";
    EXPECT_NE(missing.out.find("s_0013.vdb  (missing; the nearest is frame 12)"), std::string::npos)
        << missing.out;
    write("empty.json", R"({"nimbra": 1})");
    write("picture.png", "x");
    for (const char* name : {"gone.json", "gone_##.vdb", "empty.json", "picture.png", "sub"})
        EXPECT_EQ(info({"--at", "1", at(name)}).code, kExitInput) << name;
    const std::vector<std::vector<std::string>> bad = {{"--at", "nan"},
                                                       {"--at", "1e30"},
                                                       {"--at", "99999999999"},
                                                       {"--at", "1", "--speed", "0"},
                                                       {"--at", "1", "--speed", "nan"},
                                                       {"--at", "1", "--offset", "0.5"},
                                                       {"--at", "1", "--offset", "99999999999"},
                                                       {"--at", "1", "--blend", "fade"},
                                                       {"--speed", "2"},
                                                       {"--at", "1", "--header-only"}};
    for (std::vector<std::string> words : bad) {
        words.push_back(pattern);
        EXPECT_EQ(info(words).code, kExitUsage) << words.back();
    }
}

}  // namespace
}  // namespace nimbra::cli
