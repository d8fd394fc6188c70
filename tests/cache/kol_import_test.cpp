// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// .kol files that the writer makes, and files that somebody else uses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <vector>

#include "cache/external_readers.h"
#include "cache/kol_stream.h"
#include "cache/nimbra_frame.h"
#include "kol_writer/kol_writer.h"
#include "support/caught_log.h"
#include "support/threads.h"

namespace nimbra {
namespace {

using namespace test;

constexpr std::int32_t kSize[3] = {12, 9, 7};
constexpr float kTransform[12] = {2, 0, 0, 0, 2, 0, 0, 0, 2, 6, 4.5f, 0};

std::vector<float> waves(float low, float high) {
    std::vector<float> v(12 * 9 * 7);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = low + (high - low) * (0.5f + 0.5f * std::sin(static_cast<float>(i) * 0.1f));
    return v;
}

class ImportKolFile : public testing::Test {
protected:
    ImportKolFile() { kolPatience = {3, 1}; }
    ~ImportKolFile() override { kolPatience = {}; }

    std::string write(const KolWriter& writer) {
        std::string problem;
        const std::string path = folder / "frame_0005.kol";
        EXPECT_TRUE(writer.writeFile(path, problem)) << problem;
        return path;
    }
    std::string writeSmoke() {
        KolWriter writer;
        writer.setGrid(kSize, kTransform);
        EXPECT_TRUE(writer.addChannel(kSmoke, waves(0, 2), {}));
        return write(writer);
    }

    TempFolder folder;
};

TEST_F(ImportKolFile, WhatIsNoFile_IsNotWaitedFor) {
    kolPatience = {30, 60000};  // a wait would end the test
    const std::string pipe = folder / "pipe.kol";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_directory(folder / "folder.kol");
    for (const std::string& path :
         {std::string(), pipe, std::string(folder / "folder.kol"), std::string(folder / "no.kol")})
        for (const bool noRetry : {false, true}) {
            NimbraFrameData frame;
            EXPECT_EQ(frame.ImportKol(path, noRetry, false), kLoadNotFound) << path;
            EXPECT_EQ(lastImportProblem().empty(), path.empty());
        }
}

TEST_F(ImportKolFile, FileThatSomebodyWrites_IsRefusedForGood) {
    const std::string path = writeSmoke();
    const int writer = open(path.c_str(), O_RDWR);
    ASSERT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0);
    NimbraFrameData frame;
    EXPECT_EQ(frame.ImportKol(path, false, false), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("is being written"), std::string::npos);
    close(writer);
    // The path stays marked as being read.
    EXPECT_EQ(frame.ImportKol(path, false, false), kLoadNotFound);
    EXPECT_NE(lastImportProblem().find("is being read"), std::string::npos);
    // Another name for the same file is another path.
    EXPECT_EQ(frame.ImportKol(folder / "./frame_0005.kol", false, false), kLoadOk);
}

TEST_F(ImportKolFile, LockedOnlyWhileItIsRead_AlsoByThreadsInTurn) {
    const std::string path = writeSmoke();
    kolPatience = {1000, 1};
    std::atomic<int> loaded{0};
    onThreads(4, [&](int) {
        for (int i = 0; i < 20; ++i) {
            NimbraFrameData frame;
            loaded += frame.ImportKol(path, false, i % 2 != 0) == kLoadOk;
        }
    });
    EXPECT_EQ(loaded, 80);
    const int writer = open(path.c_str(), O_RDWR);
    EXPECT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0) << "left locked";
    close(writer);
}

}  // namespace
}  // namespace nimbra
