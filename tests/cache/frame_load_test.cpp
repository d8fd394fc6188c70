// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>

#include "cache/channel_mapping.h"
#include "cache/nimbra_frame.h"
#include "cache/test_log.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

/// A sequence of frames whose smoke says their number.
class FrameLoad : public testing::Test {
protected:
    static constexpr const char* kMap = "2,density;";

    std::string write(int number, double value) {
        char name[32];
        std::snprintf(name, sizeof name, "s_%04d.vdb", number);
        GridSpec g;
        g.voxels = {{{0, 0, 0}, {value, 0, 0}}};
        writeVdb(folder / name, {.grids = {g}});
        return folder / name;
    }
    std::string pattern() const { return folder / "s_####.vdb"; }

    struct Wish {
        std::string path, map = kMap;
        bool exact = true;
        int mode = 0;
        int tpf = 1000;
    };
    static int load(NimbraFrame& holder, std::int64_t ticks, const Wish& wish) {
        const int size[3] = {1, 1, 1};
        return holder.load(ticks, wish.path, 0, wish.tpf, size, 1, false, wish.exact, wish.mode,
                           wish.map);
    }
    static float smoke(const NimbraFrame& holder) {
        return holder.data ? holder.data->getChannelProxy(2).read(0) : -1;
    }

    TempFolder folder;
};

TEST_F(FrameLoad, NearestFrame_IsKeptWhileItIsNearest) {
    write(10, 10);
    const std::string far = write(20, 20);
    NimbraFrame holder;
    const Wish nearest{pattern(), kMap, false};
    EXPECT_EQ(load(holder, 4000, nearest), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 10);
    EXPECT_EQ(load(holder, 12000, nearest), kFrameUnchanged);
    EXPECT_EQ(holder.currentFrame, 12000);
    EXPECT_EQ(load(holder, 16000, nearest), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 20);
    EXPECT_EQ(holder.data->frameNumber, 20);
}

TEST_F(FrameLoad, HoldersShareByPathMappingAndTime) {
    const std::string file = write(1, 1);
    NimbraFrame a, b, other, smooth;
    load(a, 1000, {pattern()});
    load(b, 1000, {file});
    EXPECT_EQ(a.data, b.data);
    EXPECT_EQ(a.data->refCount, 2);
    load(other, 1000, {pattern(), "1,density;"});
    EXPECT_NE(other.data, a.data);
    smooth.smoothMask = 4;
    load(smooth, 1000, {pattern()});
    EXPECT_NE(smooth.data, a.data);
    EXPECT_TRUE(smooth.data->flags & kFramePrivate);
    NimbraFrame late;
    load(late, 1000, {pattern()});
    EXPECT_EQ(late.data, a.data);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 3);
}

TEST_F(FrameLoad, SmoothedChannels_AreSmoothedOnceAndNotShared) {
    write(1, 1);
    NimbraFrame plain, noisy;
    float values[kChannelSlots][3] = {};
    values[2][2] = 0.5f;
    noisy.storeSmoothSettings(channelBit(2), values[0]);
    load(plain, 1000, {pattern()});
    EXPECT_EQ(load(noisy, 1000, {pattern()}), kFrameLoaded);
    const float factor = smoke(noisy);
    EXPECT_NE(factor, 1);
    EXPECT_NEAR(factor, 1, 0.25);
    EXPECT_EQ(smoke(plain), 1);
    EXPECT_EQ(load(noisy, 1000, {pattern()}), kFrameUnchanged);
    EXPECT_EQ(smoke(noisy), factor);
}

TEST_F(FrameLoad, ReplacedFile_IsReadAgain) {
    const std::string file = write(1, 1);
    NimbraFrame a, b;
    load(a, 1000, {pattern()});
    write(1, 8);
    std::filesystem::last_write_time(
        file, std::filesystem::last_write_time(file) + std::chrono::seconds(2));
    EXPECT_EQ(load(b, 1000, {pattern()}), kFrameLoaded);
    EXPECT_EQ(smoke(b), 8);
    EXPECT_EQ(smoke(a), 1);
}

TEST_F(FrameLoad, HeaderOnly_IsNoFullFrame) {
    write(1, 1);
    NimbraFrame header, full;
    const Wish headerWish{pattern(), kMap, true, NimbraFrame::kHeaderOnlyMode};
    EXPECT_EQ(load(header, 1000, headerWish), kFrameLoaded);
    EXPECT_FALSE(header.data->getChannelProxy(2).loaded);
    EXPECT_EQ(load(header, 1000, headerWish), kFrameUnchanged);
    // A full one isn't served by it, though a header is served by a full one.
    EXPECT_EQ(load(full, 1000, {pattern()}), kFrameLoaded);
    EXPECT_NE(full.data, header.data);
    EXPECT_EQ(load(header, 1000, {pattern()}), kFrameLoaded);
    EXPECT_EQ(header.data, full.data);
}

TEST_F(FrameLoad, FailureThatWillNotMend_IsRemembered) {
    write(1, 1);
    CaughtLog log;
    NimbraFrame holder;
    const Wish noMap{pattern(), ""};
    EXPECT_EQ(load(holder, 1000, noMap), kFrameFailed);
    EXPECT_EQ(log.take(), "Trying to import VDB files with no mappings specified!\n");
    EXPECT_EQ(load(holder, 1000, noMap), kFrameUnchanged);
    EXPECT_EQ(log.take(), "");
    EXPECT_EQ(holder.failStatus, kLoadNoMapping);
    // Another moment, or another mapping, is tried.
    EXPECT_EQ(load(holder, 1000, {pattern()}), kFrameLoaded);
    EXPECT_EQ(holder.failStatus, 0);
    log.take();
    EXPECT_EQ(load(holder, 1000, noMap), kFrameFailed);
}

TEST_F(FrameLoad, NoTicksToAFrame_NoFrame) {
    write(1, 1);
    NimbraFrame holder;
    EXPECT_EQ(load(holder, 1000, {pattern(), kMap, true, 0, 0}), kFrameFailed);
    EXPECT_EQ(load(holder, 0, {pattern(), kMap, true, 0, 0}), kFrameFailed);
}

class EmptyGrid : public FrameLoad {
protected:
    static int make(NimbraFrame& holder, const int (&size)[3], float cell, bool maya = false) {
        return holder.load(0, "", 0, 1000, size, cell, maya, true, 0, "");
    }
};

TEST_F(EmptyGrid, OriginStandsOnTheMiddleOfTheFloor) {
    NimbraFrame holder;
    EXPECT_EQ(make(holder, {5, 8, 3}, 0.5f), kFrameLoaded);
    const NimbraFrameData& f = *holder.data;
    EXPECT_EQ(f.frameNumber, 0);
    EXPECT_TRUE(f.flags & kFramePrivate);
    EXPECT_EQ(f.compressedInts, 1);
    EXPECT_EQ(f.channelMask, 0u);
    EXPECT_EQ(f.gridSize[1], 8);
    EXPECT_EQ(f.fileTime, 0);
    // The axes y and z are swapped, with one turned round: the grid's third axis is up.
    EXPECT_TRUE(f.upAxisFlipped);
    const float expected[12] = {2, 0, 0, 0, 0, 2, 0, -2, 0, 2, 4, 0};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(f.transform[i], expected[i]) << i;
}

TEST_F(EmptyGrid, Maya_FillsTheUnitCube) {
    NimbraFrame holder;
    EXPECT_EQ(make(holder, {5, 8, 3}, 0.5f, true), kFrameLoaded);
    EXPECT_FALSE(holder.data->upAxisFlipped);
    // The half cell of z stays.
    const float expected[12] = {5, 0, 0, 0, 8, 0, 0, 0, 3, 2, 4, 1.5f};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(holder.data->transform[i], expected[i]) << i;
}

TEST_F(EmptyGrid, SizesThatMakeNone) {
    NimbraFrame holder;
    EXPECT_EQ(make(holder, {5, 8, 3}, 0.0005f), kLoadNotFound);
    EXPECT_EQ(make(holder, {5, 8, 3}, 0.0005f), kFrameUnchanged);
    EXPECT_EQ(holder.data, nullptr);
    NimbraFrame none, huge;
    EXPECT_EQ(make(none, {5, 0, 3}, 1), kLoadNotFound);
    EXPECT_EQ(make(huge, {1 << 20, 1 << 20, 1 << 20}, 1), kLoadNotFound);
}

}  // namespace
}  // namespace nimbra
