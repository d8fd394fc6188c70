// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/picture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>

#include "host/atomic_file.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

namespace fs = std::filesystem;
using nimbra::test::TempFolder;

/// A crop of 5 x 3 at (10, 20) out of 64 x 48.
FrameBuffer makePicture() {
    FrameBuffer p;
    p.resize(64, 48, 10, 20, 5, 3, {"Z", "diffuse.R", "velocity.X"});
    for (std::size_t c = 0; c < p.channels.size(); ++c)
        for (std::size_t i = 0; i < p.channels[c].size(); ++i)
            p.channels[c].set(i, c < 4 ? static_cast<float>(i * 4 + c) / 16
                                       : 1000 + static_cast<float>(i * 3 + c) / 3);
    return p;
}

class Files : public testing::Test {
protected:
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder.path()))
            found.push_back(entry.path().filename());
        return found;
    }
    Picture read(const std::string& path) {
        Picture picture;
        EXPECT_TRUE(readPicture(path, picture, error)) << error;
        return picture;
    }
    TempFolder folder;
    std::string error;
};
using ExrFile = Files;
using PngFile = Files;
using PictureFiles = Files;
using AtomicFile = Files;

TEST_F(ExrFile, RoundTripKeepsWindowsChannelsAndMetadata) {
    const std::string path = folder / "a.exr";
    FrameBuffer pixels = makePicture();
    pixels.channels[0].set(0, 1e9f);
    pixels.channels[1].set(0, -1e9f);
    PictureMetadata metadata;
    metadata.framesPerSecond = 23.976f;
    metadata.values["nimbra/scene"] = std::string("s.json");
    metadata.values["nimbra/frame"] = 12;
    metadata.values["nimbra/renderSeconds"] = 1.5f;
    metadata.values["worldToNDC"] = Matrix44{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    ASSERT_TRUE(writeExr(path, pixels, metadata, error)) << error;
    Picture back = read(path);

    const FrameBuffer& p = back.pixels;
    EXPECT_EQ((std::array{p.fullWidth, p.fullHeight, p.x0, p.y0, p.width, p.height}),
              (std::array{64, 48, 10, 20, 5, 3}));
    // Too bright for a half, and not infinite.
    pixels.channels[0].set(0, 65504);
    pixels.channels[1].set(0, -65504);
    ASSERT_EQ(p.channels.size(), 7u);
    for (std::size_t c = 0; c < 7; ++c) {
        const PictureChannel &got = p.channels[c], &written = pixels.channels[c];
        EXPECT_EQ(got.name(), written.name());
        // Sixteenths are exact in a half, whose step at 1000 is 0.5.
        for (std::size_t i = 0; i < written.size(); ++i)
            EXPECT_NEAR(got.at(i), written.at(i), written.name() == "diffuse.R" ? 0.5 : 0) << i;
    }
    const std::pair<const char*, const char*> attributes[] = {
        {"nimbra/scene", "s.json"},
        {"nimbra/frame", "12"},
        {"nimbra/renderSeconds", "1.5"},
        {"framesPerSecond", "24000/1001"},
        {"worldToNDC", "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15"}};
    for (const auto& [name, value] : attributes)
        EXPECT_EQ(back.attributes[name], value) << name;
    EXPECT_TRUE(back.attributes.contains("chromaticities"));
}

TEST_F(ExrFile, PicturesHeldAsHalvesAreTheSameToTheByte) {
    std::string bytes[2];
    for (const ChannelDepth depth : {ChannelDepth::Float, ChannelDepth::Half}) {
        FrameBuffer pixels;
        pixels.resize(8, 40, 1, 2, 7, 37, {"Z"}, depth);  // blocks of 16, 16 and 5 rows
        for (std::size_t i = 0; i < 7 * 37; ++i) {
            pixels.channels[0].set(i,
                                   std::ldexp(std::sin(static_cast<float>(i)), int(i % 60) - 30));
            pixels.channels[1].set(i, i % 2 ? 1e6f : -1e6f);
            pixels.channels[2].set(i, -0.0f);  // alpha and Z stay as they begin
        }
        const std::string path = folder / "a.exr";
        ASSERT_TRUE(writeExr(path, pixels, {}, error)) << error;
        bytes[depth == ChannelDepth::Half] = nimbra::test::readFile(path);
        const Picture back = read(path);
        EXPECT_EQ(back.pixels.channels[4].at(0), kNoDepth);
        EXPECT_TRUE(std::signbit(back.pixels.pixel(7, 38)[2]));
    }
    EXPECT_EQ(bytes[0], bytes[1]);
}

TEST_F(PngFile, OpaquePictureIsEncodedForTheDisplay) {
    const std::string path = folder / "a.png";
    FrameBuffer pixels;
    pixels.resize(3, 1, 0, 0, 3, 1, {});
    // 0.2158605 is 128 / 255 in sRGB; what is brighter than 1 or NaN must not wrap.
    const float values[] = {0.2158605f, 1, 0, 0.25f, 7, -3, 0.0031308f, 1, NAN, 1e30f, INFINITY, 0};
    for (std::size_t i = 0; i < 12; ++i)
        pixels.channels[i % 4].set(i / 4, values[i]);
    ASSERT_TRUE(writePng(path, pixels, {}, error)) << error;
    Picture back = read(path);
    const float expected[] = {128, 255, 0, 255, 255, 0, 10, 255, 0, 255, 255, 255};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(back.pixels.pixel(i / 4, 0)[i % 4] * 255, expected[i]) << i;
}

TEST_F(PictureFiles, CutOnesAreNotRead) {
    ASSERT_TRUE(writeExr(folder / "a.exr", makePicture(), {}, error));
    ASSERT_TRUE(writePng(folder / "a.png", makePicture(), {}, error));
    for (const std::string kind : {".exr", ".png"}) {
        const std::string bytes = nimbra::test::readFile(folder / ("a" + kind));
        // The last 12 bytes of a PNG file say only that it ends.
        for (std::size_t size = 0; size + 12 < bytes.size(); ++size) {
            Picture picture;
            const std::string cut = folder.write("cut" + kind, bytes.substr(0, size));
            error.clear();
            EXPECT_FALSE(readPicture(cut, picture, error)) << size;
            EXPECT_EQ(error.rfind(cut + ": ", 0), 0u) << error;
        }
    }
}

TEST_F(AtomicFile, FaultsNamePathAndReason) {
    const std::string missing = folder / "no/such/p.exr";
    EXPECT_FALSE(writeFileAtomically(missing, "x", error));
    EXPECT_EQ(error, missing + ": No such file or directory");
    fs::create_directory(folder / "dir.exr");
    EXPECT_FALSE(writeFileAtomically(folder / "dir.exr", "x", error));
    EXPECT_EQ(error, (folder / "dir.exr").string() + ": not a regular file");
    EXPECT_FALSE(writeFileAtomically("/dev/full", "x", error));
    EXPECT_EQ(error, "/dev/full: not a regular file");
    EXPECT_EQ(names(), std::vector<std::string>{"dir.exr"});
}

TEST_F(AtomicFile, FullDiskKeepsTheOldFileAndRemovesTheNew) {
    const std::string path = folder / "p.exr";
    ASSERT_TRUE(writeFileAtomically(path, "old", error));
    // A limit on file sizes stands in for a disk that fills up in the middle of a write.
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool written = writeFileAtomically(path, std::string(100000, 'x'), error);
    std::string fault;
    FrameBuffer pixels;
    pixels.resize(99, 99, 0, 0, 99, 99);
    for (std::size_t i = 0; i < 99 * 99; ++i)
        pixels.channels[0].set(i, std::sin(static_cast<float>(i)));
    const bool pictured = writeExr(path, pixels, {}, fault);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    EXPECT_FALSE(written || pictured);
    EXPECT_EQ(error, path + ": File too large");
    EXPECT_EQ(fault, error);
    EXPECT_EQ(nimbra::test::readFile(path), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"p.exr"});
}

TEST_F(AtomicFile, PreparedFolderIsMadeSweptAndTried) {
    const std::string path = folder / "deep/er/p.####.exr";
    ASSERT_TRUE(prepareOutputFolder(path, error)) << error;
    EXPECT_TRUE(fs::is_directory(folder / "deep/er"));
    EXPECT_TRUE(fs::is_empty(folder / "deep/er"));

    // A process number that was in use and no longer is.
    const pid_t gone = ::fork();
    if (gone == 0)
        ::_exit(0);
    ASSERT_EQ(::waitpid(gone, nullptr, 0), gone);
    const std::string stale = ".p.0001.exr." + std::to_string(gone) + ".tmp";
    const std::string mine = ".p.0001.exr." + std::to_string(::getpid()) + ".tmp";
    const std::string foreign = ".notes." + std::to_string(gone) + ".tmp";
    for (const std::string& name : {stale, mine, foreign})
        folder.write(name, "x");
    // A process of that number on another machine that shares the folder holds its file.
    const int held = ::open((folder / stale).c_str(), O_RDONLY);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    EXPECT_EQ(sweepTemporaryFiles(folder.path()), 0);
    ::close(held);
    EXPECT_EQ(sweepTemporaryFiles(folder.path()), 1);
    EXPECT_FALSE(fs::exists(folder / stale));
    EXPECT_TRUE(fs::exists(folder / mine));
    EXPECT_TRUE(fs::exists(folder / foreign));

    const std::string file = folder.write("file", "x");
    EXPECT_FALSE(prepareOutputFolder(file + "/p.exr", error));
    EXPECT_EQ(error.rfind(file + ": ", 0), 0u) << error;
    if (::geteuid() != 0) {
        fs::create_directory(folder / "locked");
        fs::permissions(folder / "locked", fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_FALSE(prepareOutputFolder(folder / "locked/p.exr", error));
        EXPECT_EQ(error,
                  (folder / "locked").string() + ": no file can be made there: Permission denied");
    }
}

}  // namespace
}  // namespace nimbra::host
