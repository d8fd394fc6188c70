// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The file commands as a user calls them: values, exit codes, and what stands on the disk after.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cache/file_patterns.h"
#include "cache/prt_group.h"
#include "cli/cache_frame.h"
#include "cli/command_line.h"
#include "cli/convert_frame.h"
#include "cli/frame_info.h"
#include "cli/grid_summary.h"
#include "cli/whole_mapping.h"
#include "support/golden.h"
#include "support/temp_folder.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

std::string golden(const std::string& name) {
    return (fs::path(NIMBRA_TEST_DATA) / "golden" / name).string();
}

const std::string kFire = NIMBRA_SOURCE_DIR "/examples/caches/campfire/";

std::vector<float> voxelsOf(const std::string& path, int channel) {
    const CacheFrame frame = loadCacheFrame(path, "", false);
    EXPECT_TRUE(frame.data) << frame.problem;
    return frame.data ? takeVoxels(*frame.data, channel) : std::vector<float>();
}

class CacheCommands : public testing::Test {
protected:
    std::string at(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    test::TempFolder folder_;
};

TEST_F(CacheCommands, Dump_GridsBecomeArraysOfTheirVoxels) {
    for (const std::string& file :
         {golden("kol/v6_small_plume.kol"), kFire + "fluid_data_0041.vdb"}) {
        ASSERT_EQ(run("dump --channel smoke --channel 1 -o " + at("a.npy") + " " + file).code, 0);
        const auto array = test::readNpy<float>(at("a.smoke.npy"));
        const CacheFrame frame = loadCacheFrame(file, "", true);
        const auto* const n = frame.data->gridSize;
        EXPECT_EQ(array.shape, (std::vector<std::size_t>{std::size_t(n[2]), std::size_t(n[1]),
                                                         std::size_t(n[0])}));
        EXPECT_EQ(array.values, voxelsOf(file, kSmoke));
        EXPECT_EQ(test::readNpy<float>(at("a.temperature.npy")).values,
                  voxelsOf(file, kTemperature));
    }
}

TEST_F(CacheCommands, Dump_ParticlesBecomeArraysAndPoints) {
    const std::string file = golden("kol/v5_particle_methods.kol");
    ASSERT_EQ(run("dump --group Odd -o " + at("p.npy") + " " + file).code, 0);
    ASSERT_EQ(run("dump --group Odd -o " + at("p.ply") + " " + file).code, 0);
    CacheFrame frame = loadCacheFrame(file, "", false);
    NimbraFrameData::PGroup* group = nullptr;
    for (NimbraFrameData::PGroup* g : frame.data->groups)
        group = g->name == "Odd" ? g : group;
    ASSERT_TRUE(group);
    const auto positions = test::readNpy<float>(at("p.position.npy"));
    const auto ids = test::readNpy<std::int64_t>(at("p.id.npy"));
    EXPECT_EQ(positions.shape, (std::vector<std::size_t>{33, 3}));
    EXPECT_EQ(ids.shape, (std::vector<std::size_t>{33}));
    const std::string ply = test::readFile(at("p.ply"));
    const std::size_t start = ply.find("end_header\n") + 11;
    // x y z vx vy vz size age red green blue, id as a double, viscosity
    constexpr std::size_t kRecord = 11 * 4 + 8 + 4;
    ASSERT_EQ(ply.size(), start + 33 * kRecord) << ply.substr(0, start);
    for (int i = 0; i < 33; ++i) {
        float position[3], viscosity, seen[3];
        std::int64_t id;
        double seenId;
        group->getValue(i, kPrtPosition, position);
        group->getValue(i, kPrtId, &id);
        group->getValue(i, kPrtViscosity, &viscosity);
        EXPECT_TRUE(std::equal(position, position + 3, &positions.values[std::size_t(i) * 3]));
        EXPECT_EQ(ids.values[std::size_t(i)], id);
        const char* const record = ply.data() + start + std::size_t(i) * kRecord;
        std::memcpy(seen, record, sizeof seen);
        EXPECT_TRUE(std::equal(position, position + 3, seen));
        std::memcpy(&seenId, record + 44, sizeof seenId);
        EXPECT_EQ(seenId, double(id));
        std::memcpy(seen, record + 52, sizeof(float));
        EXPECT_EQ(seen[0], viscosity);
    }
}

TEST_F(CacheCommands, Dump_VoxelsArePrintedAndCellsOutsideRefused) {
    const std::string file = golden("kol/v5_header_fields.kol");
    const std::vector<float> smoke = voxelsOf(file, kSmoke);
    const Answer inside = run("dump --voxel 2,3,1 " + file);
    EXPECT_EQ(inside.code, 0);
    const std::string value = inside.out.substr(inside.out.find("2 3 1 ") + 6);
    EXPECT_EQ(std::strtof(value.c_str(), nullptr), smoke.back());
    const Answer outside = run("dump --voxel 3,0,0 " + file);
    EXPECT_EQ(outside.code, kExitUsage);
    EXPECT_NE(outside.err.find("cell 3,0,0 lies outside the grid of 3 x 4 x 2"), std::string::npos);
}

TEST_F(CacheCommands, Convert_KeepsVoxelsWithinHalfAStep) {
    const std::string from = kFire + "fluid_data_0043.vdb";
    const std::string original = at("exact.kol");
    ASSERT_EQ(run("convert --bits 20 " + from + " " + original).code, 0);
    ASSERT_EQ(run("convert --bits 8 " + from + " " + at("coarse.kol")).code, 0);
    ASSERT_EQ(run("convert --step 0.01 " + from + " " + at("steps.kol")).code, 0);
    ASSERT_EQ(run("convert " + original + " " + at("back.vdb")).code, 0);
    for (const int channel : {kSmoke, kTemperature, kFuel, kVelocityY}) {
        const std::vector<float> exact = voxelsOf(original, channel);
        ASSERT_FALSE(exact.empty()) << channel;
        EXPECT_EQ(voxelsOf(at("back.vdb"), channel), exact) << channel;
        const auto [low, high] = std::minmax_element(exact.begin(), exact.end());
        // A few roundings of floats of this size come on top.
        const double slack = 4 * 0x1p-23 * std::max(std::fabs(*low), std::fabs(*high));
        const std::pair<std::string, double> packed[] = {
            {"coarse.kol", (double(*high) - *low) / 512}, {"steps.kol", 0.005}};
        for (const auto& [name, halfStep] : packed) {
            const std::vector<float> values = voxelsOf(at(name), channel);
            ASSERT_EQ(values.size(), exact.size());
            double error = 0;
            for (std::size_t i = 0; i < exact.size(); ++i)
                error = std::max(error, std::fabs(double(values[i]) - exact[i]));
            EXPECT_LE(error, halfStep + slack) << name << " " << channel;
            EXPECT_GT(error, halfStep / 2) << name << " " << channel;
        }
    }
    EXPECT_EQ(voxelsOf(from, kSmoke), voxelsOf(original, kSmoke));
    EXPECT_LT(fs::file_size(at("coarse.kol")), fs::file_size(original) / 4);
}

TEST_F(CacheCommands, Convert_CarriesColoursOfThreeGrids) {
    const std::string plume = NIMBRA_SOURCE_DIR "/examples/caches/plume/fluid_data_0043.vdb";
    const Answer answer = run("convert " + plume + " " + at("to.kol"));
    ASSERT_EQ(answer.code, 0);
    EXPECT_NE(answer.err.find("no channel stands for them: shadow\n"), std::string::npos)
        << answer.err;
    const std::vector<float> blue = voxelsOf(at("to.kol"), kColorB);
    ASSERT_FALSE(blue.empty());
    EXPECT_NEAR(*std::max_element(blue.begin(), blue.end()), 0.75607f, 1e-4f);
}

TEST(WholeMapping, Surfaces_TravelAsHeatWithoutSmokeForWantOfBetter) {
    const auto text = [](const std::vector<CacheIO::AvailableChannels>& grids) {
        return CacheIO::formatChannelMap(wholeMapping(grids, CacheIO::defaultVdbMappings()));
    };
    EXPECT_EQ(text({{"phi_obstacle"}, {"flags"}, {"phi"}}), "1,phi;");
    EXPECT_EQ(text({{"density"}, {"phi"}}), "2,density;1,phi;");
    EXPECT_EQ(text({{"qv"}}), "2,qv;");
}

TEST_F(CacheCommands, Convert_CarriesHeaderAndParticles) {
    for (const char* name : {"v5_header_fields", "v5_particle_methods", "v6_packed_colour"}) {
        const std::string from = golden(std::string("kol/") + name + ".kol");
        ASSERT_EQ(run("convert --bits 20 " + from + " " + at("to.kol")).code, 0);
        const std::string before = run("dump --json " + from).out;
        const std::string after = run("dump --json " + at("to.kol")).out;
        auto a = nlohmann::json::parse(before)["frame"], b = nlohmann::json::parse(after)["frame"];
        for (const char* key :
             {"fileVersion", "compressedInts", "bboxMin", "bboxMax", "simInfo_crc32", "simStep"}) {
            // These belong to the file's form; the box is made from the particles anew.
            a.erase(key);
            b.erase(key);
        }
        if (std::string(name) == "v6_packed_colour")
            a.erase("channelMask"), b.erase("channelMask");
        EXPECT_EQ(a, b) << name << nlohmann::json::diff(a, b).dump(1);
    }
}

TEST_F(CacheCommands, Sequences_KeepTheirNumbersAndNameTheirGaps) {
    for (const char* frame : {"0040", "0041", "0043"})
        fs::copy_file(kFire + "fluid_data_" + frame + ".vdb",
                      at(std::string("f_") + frame + ".vdb"));
    const Answer gap = run("convert " + at("f_####.vdb") + " " + at("out/fire.kol"));
    EXPECT_EQ(gap.code, 0) << gap.err;
    EXPECT_NE(gap.err.find("there are no files of frames 42"), std::string::npos) << gap.err;
    for (const char* frame : {"0040", "0041", "0043"})
        EXPECT_TRUE(fs::exists(at(std::string("out/fire.") + frame + ".kol"))) << frame;
    const Answer wanted = run("convert --frames 41-42 " + at("f_####.vdb") + " " + at("w_@@@.kol"));
    EXPECT_EQ(wanted.code, kExitFrameFailed);
    EXPECT_NE(wanted.err.find("failed frames: 42"), std::string::npos) << wanted.err;
    EXPECT_TRUE(fs::exists(at("w_041.kol")));
    EXPECT_EQ(loadCacheFrame(at("w_041.kol"), "", true).data->frameNumber, 41);
}

TEST_F(CacheCommands, FramesBelowZero_AreNamedAsCachesFindThem) {
    for (int n = -3; n <= 2; ++n)
        fs::copy_file(golden("kol/v6_small_plume.kol"), at(FilePattern("in_####.kol").fill(n)));
    for (const std::string name : {"made_%04d.kol", "made.kol", "made_#.kol"}) {
        ASSERT_EQ(run("convert " + at("in_####.kol") + " " + at(name)).code, 0);
        const std::string pattern = name == "made.kol" ? "made.####.kol" : "made_####.kol";
        EXPECT_EQ(run("info --at=-3-2 " + at(pattern)).code, 0) << name;
        ASSERT_TRUE(fs::remove(at(FilePattern(pattern).fillName(-3)))) << name;
    }
}

TEST_F(CacheCommands, Info_TellsWhatFramesHold) {
    const Answer text = run("info " + golden("kol/v6_small_plume.kol"));
    EXPECT_EQ(text.code, 0);
    for (const char* part : {"kol version 6, frame 24", "24 x 20 x 28 cells of 0.125 0.125 0.125",
                             "cell 0 at (-1.5 -1.25 0)", "mean 0.069214, stated as 0 to 2",
                             "id 7, packed rgb", "id 3, derived"})
        EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;

    const std::string file = golden("kol/v5_particle_methods.kol");
    const auto info = nlohmann::json::parse(run("info --json " + file).out);
    const auto expected = nlohmann::json::parse(run("dump --json " + file).out)["frame"];
    ASSERT_EQ(info["groups"].size(), 4u);
    const auto& position = info["groups"][0]["channels"][0];
    EXPECT_EQ(position["form"], "bit planes");
    EXPECT_EQ(position["bytesExpanded"], 12000);
    EXPECT_EQ(position["max"], expected["groups"][0]["channels"]["0"]["max"]);
    EXPECT_NEAR(position["mean"][1],
                expected["groups"][0]["channels"]["0"]["sum"][1].get<double>() / 1000, 1e-9);
    const auto quick = nlohmann::json::parse(run("info --json --header-only " + file).out);
    EXPECT_EQ(quick["groups"][0]["count"], 1000);
    EXPECT_FALSE(quick["groups"][0]["channels"][0].contains("max"));
}

TEST_F(CacheCommands, Field3d_IsTakenLikeTheOthers) {
    const std::string data = NIMBRA_TEST_DATA "/f3d/", file = data + "mac_velocity_h5.f3d";
    const Answer text = run("info " + file);
    EXPECT_EQ(text.code, 0);
    for (const char* part : {"Field3D 1.7.3 (HDF5), 2 layers", "v_mac            in smoke.0",
                             "float vector, MACField", "(0 0 0) to (11 8 14)"})
        EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;
    std::ifstream in(data + "mac_velocity_h5.json");
    const auto expected = nlohmann::json::parse(in)["partitions"][0]["layers"][1]["stats"];
    const auto layer = nlohmann::json::parse(run("info --json " + file).out)["layers"][1];
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(layer["mean"][c].get<double>(), expected["mean"][c].get<double>(), 1e-7);
    const auto dumped = nlohmann::json::parse(
        run("dump --json --map 4,v_mac(x);5,v_mac(y);6,v_mac(z); " + file).out);
    EXPECT_EQ(dumped["status"], 0);
    EXPECT_EQ(dumped["frame"]["channelMask"], 0x70);
    EXPECT_EQ(dumped["frame"]["gridSize"], nlohmann::json({12, 9, 15}));

    std::ofstream(at("cut.f3d")) << "Ogawa\xFF";
    const Answer cut = run("info " + at("cut.f3d"));
    EXPECT_EQ(cut.code, kExitInput);
    EXPECT_NE(cut.err.find("ends too early"), std::string::npos) << cut.err;

    const ViewLook a = chooseLook(summarize(readVdbInfo(kFire + "fluid_data_0046.vdb")));
    const ViewLook b = chooseLook(summarize(readF3dInfo(data + "campfire_og.f3d")));
    EXPECT_EQ(a.subject, b.subject);
    EXPECT_EQ(a.upAxis, b.upAxis);
    // The copy is cropped, and lies half a cell beside.
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(a.boxLow[i], b.boxLow[i], 0.08);
        EXPECT_NEAR(a.boxHigh[i], b.boxHigh[i], 0.12);
    }
}

TEST_F(CacheCommands, UpAxis_IsFoundInRealCaches) {
    constexpr int kZ = 2;
    const std::string caches = NIMBRA_SOURCE_DIR "/examples/caches/";
    for (const char* file : {"dambreak/water_0001.kol", "dambreak/water_0006.kol"}) {
        const CacheFrame frame = loadCacheFrame(caches + file, "", false);
        EXPECT_EQ(chooseLook(summarize(*frame.data)).upAxis, kZ) << file;
    }
    for (const std::string& file :
         {caches + "plume/fluid_data_0043.vdb", caches + "campfire/fluid_data_0043.vdb",
          std::string(NIMBRA_TEST_DATA "/vdb/spray_0017.vdb")}) {
        const VdbFileInfo info = readVdbInfo(file);
        EXPECT_EQ(chooseLook(summarize(info), {}, upConventionOf(info)).upAxis, kZ) << file;
    }
    ASSERT_EQ(run("convert " + caches + "dambreak/water_0003.kol " + at("own.vdb")).code, 0);
    const VdbFileInfo own = readVdbInfo(at("own.vdb"));
    const ViewLook look = chooseLook(summarize(own), {}, upConventionOf(own));
    EXPECT_EQ(look.upAxis, kZ);
    EXPECT_EQ(look.mapping, "1,Temperature_nmb;4,VelocityX_nmb;5,VelocityY_nmb;6,VelocityZ_nmb;");
}

TEST_F(CacheCommands, Folders_TellWhatElseTheyHoldOrLack) {
    fs::create_directory(at("mixed"));
    fs::create_directory(at("empty"));
    for (const char* name : {"mixed/a_1.kol", "mixed/a_2.kol", "mixed/alone.kol", "mixed/b_1.kol"})
        fs::copy_file(golden("kol/v5_header_fields.kol"), at(name));
    for (const char* command :
         {"info --header-only ", "dump --json --header-only ", "info --at 1 "}) {
        const Answer mixed = run(command + at("mixed")), empty = run(command + at("empty"));
        EXPECT_EQ(mixed.code, kExitDone) << command;
        EXPECT_NE(mixed.err.find("beside it are alone.kol, b_#.kol"), std::string::npos)
            << command << mixed.err;
        EXPECT_EQ(empty.code, kExitInput) << command;
        EXPECT_NE(empty.err.find("the folder holds no .kol"), std::string::npos) << empty.err;
    }
    EXPECT_EQ(run("convert " + at("empty") + " " + at("new/a.kol")).code, kExitInput);
    EXPECT_FALSE(fs::exists(at("new")));
}

TEST_F(CacheCommands, Failures_LeaveNothingBehind) {
    const std::string good = kFire + "fluid_data_0040.vdb";
    folder_.write("old.kol", "what was there");
    folder_.write("old.dat", "anything");
    folder_.write("bad.vdb", "no tree");
    folder_.write("upper.VDB", "no tree");
    folder_.write("bad.kol", "no cache at all");
    folder_.write("bad.json", "{\"nimbra\": 1}");
    fs::create_directory(at("folder.kol"));
    const struct {
        const char* line;
        int code;
        const char* text;
    } cases[] = {
        {"convert BAD.vdb OLD.kol", kExitInput, "bad.vdb: "},
        {"convert BAD.kol OLD.kol", kExitInput, "bad.kol: "},
        {"convert /dev/null OLD.kol", kExitInput, "/dev/null: is a"},
        {"convert OLD.dat OLD.kol", kExitInput, ".prt files can"},
        {"convert UPPER.VDB OLD.kol", kExitInput, "in lower case: .vdb"},
        {"view UPPER.VDB -o OLD.png", kExitInput, "in lower case: .vdb"},
        {"view --azimuth nan GOOD -o OLD.png", kExitUsage, "from -3600 to 3600"},
        {"convert GOOD OLD.txt", kExitUsage, "has to end in .kol or .vdb"},
        {"convert --bits 8 GOOD OUT.vdb", kExitUsage, "go with .kol files"},
        {"convert --bits 0 GOOD OLD.kol", kExitUsage, "--bits"},
        {"convert --step 0 GOOD OLD.kol", kExitUsage, "--step"},
        {"convert --frames 1-3 GOOD OLD.kol", kExitUsage, "takes a sequence"},
        {"convert GOOD DIR.kol", kExitOutput, "not a regular file"},
        {"convert GOOD /proc/x.kol", kExitOutput, "/proc"},
        {"convert OLD.kol OLD.kol", kExitUsage, "onto itself"},
        {"dump GOOD", kExitUsage, "nothing to dump"},
        {"dump --header-only GOOD", kExitUsage, "--json"},
        {"dump --json --voxel 1,1,1 GOOD", kExitUsage, "excludes"},
        {"dump --voxel 1,1 GOOD", kExitUsage, "three numbers"},
        {"dump -o OUT.txt GOOD", kExitUsage, ".npy or .ply"},
        {"dump --channel smok -o OUT.npy GOOD", kExitUsage, "did you mean 'smoke'"},
        {"dump --channel fuel -o OUT.npy GOOD", kExitFrameFailed, "isn't in the file"},
        {"dump --max-voxels 319679 -o OUT.npy GOOD", kExitMemory, "2 channels of 45 x 48 x 74"},
        {"dump --group x -o OUT.npy GOOD", kExitInput, "it has none"},
        {"dump -o OUT.ply GOOD", kExitInput, "no such particles"},
        {"dump --json BAD.kol", kExitInput, "bad.kol: "},
        {"info BAD.kol", kExitInput, "bad.kol: "},
        {"render -o OUT.png BAD.json", kExitInput, "bad.json: the scene has no TessraCamera"},
        {"view --map 2,dens; -o OUT.png GOOD", kExitInput, "nothing to show by the mapping"},
    };
    const std::vector<std::string> before = files();
    for (const auto& c : cases) {
        std::string line = c.line;
        const std::pair<std::string, std::string> names[] = {
            {"BAD", at("bad")}, {"GOOD", good},     {"UPPER", at("upper")},
            {"OLD", at("old")}, {"OUT", at("out")}, {"DIR", at("folder")}};
        for (const auto& [word, name] : names)
            for (std::size_t p; (p = line.find(word)) != std::string::npos;)
                line.replace(p, word.size(), name);
        const Answer answer = run(line);
        EXPECT_EQ(answer.code, c.code) << line << "\n" << answer.err;
        EXPECT_NE(answer.err.find(c.text), std::string::npos) << line << "\n" << answer.err;
        EXPECT_EQ(files(), before) << line;
    }
    EXPECT_EQ(test::readFile(at("old.kol")), "what was there");
}

TEST_F(CacheCommands, AbortedConversion_StopsInFrontOfTheNextChannel) {
    CacheFrame frame = loadCacheFrame(kFire + "fluid_data_0040.vdb", "", false);
    host::AbortFlag abort;
    abort.request();
    std::string bytes, error;
    ConvertReport report;
    EXPECT_EQ(packKol(*frame.data, {}, abort, bytes, report), ConvertResult::Aborted);
    EXPECT_EQ(packVdb(*frame.data, abort, bytes, report, error), ConvertResult::Aborted);
    EXPECT_TRUE(bytes.empty());
}

}  // namespace
}  // namespace nimbra::cli
