// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/picture_output.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/tracer_fixture.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

namespace fs = std::filesystem;

class PictureOutputTest : public test::TracerFixture {
protected:
    PictureOutputOptions options() {
        PictureOutputOptions o;
        o.paths = [this](FrameNumber frame) {
            const std::string number = frame.text();
            return std::vector<std::string>{folder_ / ("f" + number + ".exr"),
                                            folder_ / ("f" + number + ".png")};
        };
        o.version = "1.2.3";
        return o;
    }
    Picture read(const std::string& name) {
        Picture picture;
        std::string error;
        EXPECT_TRUE(readPicture(folder_ / name, picture, error)) << error;
        return picture;
    }
    nimbra::test::TempFolder folder_;
};

constexpr const char* kSmoke =
    R"(, "v": {"plugin": "Slab", "low": [-50, -50, 0], "high": [50, 50, 1],
       "extinction": [0.6931472, 0.6931472, 0.6931472], "emission": [0, 0, 0]})";

TEST_F(PictureOutputTest, WritesEveryFrameWithItsMetadata) {
    PictureOutput output(options());
    std::string error;
    ASSERT_TRUE(output.prepare({4, 6}, error)) << error;
    const SessionResult result =
        renderTo(output, std::string(kFront) + kSmoke,
                 R"("first_frame": 4, "last_frame": 6, "frame_step": 2, "fps": 25, "seed": 9,
                    "samples": 2, "scene_offset": [100, 0, 0])");
    EXPECT_EQ(result.status, RenderStatus::Complete) << result.error;
    Picture picture = read("f6.exr");
    const std::pair<const char*, const char*> attributes[] = {
        {"Software", "nimbra 1.2.3"},
        {"nimbra/version", "1.2.3"},
        {"nimbra/scene", "test.json"},  // no path of this machine
        {"nimbra/frame", "6"},
        {"nimbra/samples", "2"},
        {"nimbra/seed", "9"},
        {"nimbra/complete", "1"},
        {"framesPerSecond", "25/1"},
        // The camera's place in the world, not in the shifted space of the rays.
        {"worldToCamera", "1 0 0 0 0 1 0 0 0 0 -1 0 0 0 10 1"}};
    for (const auto& [name, value] : attributes)
        EXPECT_EQ(picture.attributes[name], value) << name;
    EXPECT_TRUE(picture.attributes.contains("nimbra/renderSeconds"));
    EXPECT_TRUE(picture.attributes.contains("worldToNDC"));
    ASSERT_EQ(picture.pixels.channels.size(), 5u);
    EXPECT_EQ(picture.pixels.channels[4].name(), "Z");
    EXPECT_TRUE(fs::exists(folder_ / "f4.png"));
}

TEST_F(PictureOutputTest, PngIsOpaqueOnlyWithABackground) {
    PictureOutput output(options());
    const std::string smoke = std::string(kFront) + kSmoke;
    renderTo(output, smoke);
    EXPECT_EQ(read("f1.png").pixels.pixel(0, 0)[3], 128 / 255.0f);
    renderTo(output, smoke, R"("background": [1, 1, 1])");
    const Picture picture = read("f1.png");
    EXPECT_EQ(picture.pixels.pixel(0, 0)[3], 1);
    EXPECT_EQ(picture.pixels.pixel(0, 0)[0], 188 / 255.0f);  // half the light, in sRGB
    renderTo(output, smoke + R"(, "sky": {"plugin": "TessraLightSky", "visible": true})");
    EXPECT_EQ(read("f1.png").pixels.pixel(0, 0)[3], 1);
}

TEST_F(PictureOutputTest, DeterministicFilesAreTheSameToTheByte) {
    PictureOutputOptions o = options();
    o.deterministic = true;
    PictureOutput output(o);
    std::string bytes[2];
    for (std::string& file : bytes) {
        renderTo(output, std::string(kFront) + kSmoke, "");
        file = nimbra::test::readFile(folder_ / "f1.exr");
    }
    EXPECT_NE(bytes[0], "");
    EXPECT_EQ(bytes[0], bytes[1]);
}

TEST_F(PictureOutputTest, FaultsAreFoundBeforeTheFirstRay) {
    PictureOutputOptions o = options();
    std::string error;
    o.paths = [](FrameNumber) { return std::vector<std::string>{"/proc/no/way.exr"}; };
    EXPECT_FALSE(PictureOutput(o).prepare({1}, error));
    EXPECT_EQ(error.rfind("/proc/no: ", 0), 0u) << error;
    o.paths = [](FrameNumber) { return std::vector<std::string>{"picture.gif"}; };
    EXPECT_FALSE(PictureOutput(o).prepare({1}, error));
    EXPECT_EQ(error, "picture.gif: the name must end in .exr or .png");
    fs::create_directory(folder_ / "f7.png");
    EXPECT_FALSE(PictureOutput(options()).prepare({1, 7}, error));
    EXPECT_EQ(error, (folder_ / "f7.png").string() + ": not a regular file");
    // And a folder that goes away meanwhile ends the frame with the reason.
    const std::string gone = folder_ / "gone/p.exr";
    o.paths = [&](FrameNumber) { return std::vector<std::string>{gone}; };
    PictureOutput output(o);
    const SessionResult result = renderTo(output, kFront, "");
    EXPECT_EQ(result.status, RenderStatus::Failed);
    EXPECT_EQ(result.error, gone + ": No such file or directory");
}

}  // namespace
}  // namespace nimbra::host
