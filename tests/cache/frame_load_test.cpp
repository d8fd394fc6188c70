// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frames, and moments between them, as a holder makes them of files.
#include <gtest/gtest.h>

#include <array>

#include "cache/nimbra_frame.h"
#include "cache/test_jobs.h"
#include "support/caught_log.h"
#include "support/kol_sequence.h"
#include "support/vdb_writer.h"

namespace nimbra {
namespace {

using namespace test;

constexpr int kInterpolation = 0, kVelocity = 1;

struct Wish {
    int method = kInterpolation;
    bool exact = true;
    int mode = 0;
    int tpf = 1000;
    std::string map = {};
};

class FrameLoad : public testing::Test {
protected:
    int load(NimbraFrame& holder, std::int64_t ticks, const Wish& wish = {}) const {
        const int size[3] = {1, 1, 1};
        return holder.load(ticks, files.pattern(), wish.method, wish.tpf, size, 1, false,
                           wish.exact, wish.mode, wish.map);
    }
    /// The smoke of a frame that has to be loaded for that moment.
    float shown(NimbraFrame& holder, std::int64_t ticks, const Wish& wish = {}) const {
        EXPECT_EQ(load(holder, ticks, wish), kFrameLoaded) << ticks;
        return smoke(holder);
    }
    static float smoke(const NimbraFrame& holder, std::int64_t cell = 0) {
        if (!holder.data)
            return -1;
        const auto& channel = holder.data->getChannelProxy(kSmoke);
        return channel.loaded ? channel.read(cell) : -2;
    }
    /// Frames with a cloud that moves by a cell along x.
    void writeMoving(std::initializer_list<int> numbers) {
        for (int n : numbers) {
            KolFrame f{{{kVelocityX, {1}}, {kVelocityY, {0}}, {kVelocityZ, {0}}}};
            f.size = {8, 4, 4};
            std::vector<float> cloud(8 * 4 * 4);
            for (std::size_t i = 0; i < cloud.size(); ++i)
                cloud[i] = static_cast<float>(static_cast<int>(i % 8) - n);
            f.channels[kSmoke] = cloud;
            files.write(n, f);
        }
    }

    KolSequence files;
};

TEST_F(FrameLoad, NearestFrame_IsKeptWhileItIsNearest) {
    files.write(10, 10);
    files.write(20, 20);
    NimbraFrame holder;
    EXPECT_EQ(shown(holder, 4000, {.exact = false}), 10);
    EXPECT_EQ(load(holder, 12000, {.exact = false}), kFrameUnchanged);
    EXPECT_EQ(holder.currentFrame, 12000);
    EXPECT_EQ(shown(holder, 16000, {.exact = false}), 20);
    EXPECT_EQ(holder.data->frameNumber, 20);
}

TEST_F(FrameLoad, HoldersShareByPathMappingAndTime) {
    files.write(1, 1);
    NimbraFrame a, b, other, smooth, late;
    load(a, 1000);
    const int size[3] = {1, 1, 1};
    b.load(1000, files.file(1), 0, 1000, size, 1, false, true, 0, "");
    EXPECT_EQ(a.data, b.data);
    EXPECT_EQ(a.data->refCount, 2);
    load(other, 1000, {.map = "1,density;"});
    EXPECT_NE(other.data, a.data);
    smooth.smoothMask = 4;
    load(smooth, 1000);
    EXPECT_NE(smooth.data, a.data);
    EXPECT_TRUE(smooth.data->flags & kFramePrivate);
    load(late, 1000);
    EXPECT_EQ(late.data, a.data);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 3);
    // A file that was replaced is read again.
    files.write(1, 8);
    NimbraFrame fresh;
    EXPECT_EQ(shown(fresh, 1000), 8);
    EXPECT_EQ(smoke(a), 1);
}

TEST_F(FrameLoad, HeaderOnly_IsNoFullFrame) {
    files.write(1, 1);
    NimbraFrame header, full;
    const Wish headerWish{.mode = NimbraFrame::kHeaderOnlyMode};
    EXPECT_EQ(shown(header, 1000, headerWish), -2);
    EXPECT_EQ(load(header, 1000, headerWish), kFrameUnchanged);
    // A full one isn't served by it, though a header is served by a full one.
    EXPECT_EQ(load(full, 1000), kFrameLoaded);
    EXPECT_NE(full.data, header.data);
    EXPECT_EQ(load(header, 1000), kFrameLoaded);
    EXPECT_EQ(header.data, full.data);
}

TEST_F(FrameLoad, FailureThatWillNotMend_IsRemembered) {
    const std::string path = files.folder / "s_####.vdb";
    writeVdb(files.folder / "s_0001.vdb", {.grids = {{.voxels = {{{0, 0, 0}, {1, 0, 0}}}}}});
    CaughtLog log;
    NimbraFrame holder;
    const auto loadFile = [&](const char* map) {
        const int size[3] = {1, 1, 1};
        return holder.load(1000, path, 0, 1000, size, 1, false, true, 0, map);
    };
    EXPECT_EQ(loadFile(""), kFrameFailed);
    EXPECT_EQ(log.take(), "Trying to import VDB files with no mappings specified!\n");
    EXPECT_EQ(loadFile(""), kFrameUnchanged);
    EXPECT_EQ(log.take(), "");
    EXPECT_EQ(holder.failStatus, kLoadNoMapping);
    // Another mapping is tried.
    EXPECT_EQ(loadFile("2,density;"), kFrameLoaded);
    EXPECT_EQ(holder.failStatus, 0);
    EXPECT_EQ(holder.data->frameNumber, 1) << "that of the name";
    EXPECT_EQ(loadFile(""), kFrameFailed);
    EXPECT_EQ(load(holder, 1000, {.tpf = 0}), kFrameFailed) << "no ticks to a frame";
}

TEST_F(FrameLoad, BetweenTwoFrames_IsAThird) {
    files.write(1, 8);
    files.write(2, 4);
    NimbraFrame holder;
    EXPECT_EQ(shown(holder, 1250), 7);
    ASSERT_TRUE(holder.blendFrom && holder.blendTo);
    EXPECT_EQ(holder.blendFrom->frameNumber, 1);
    EXPECT_EQ(holder.blendTo->frameNumber, 2);
    EXPECT_EQ(holder.sourceData, holder.blendFrom);
    EXPECT_EQ(holder.data->path, "");
    EXPECT_EQ(holder.currentFrame, 1250);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 3);
    for (const NimbraFrameData* frame : NimbraFrame::frameDataArray)
        EXPECT_EQ(frame->refCount, 1);
    EXPECT_EQ(load(holder, 1250), kFrameUnchanged);
    // A whole frame needs neither of the two.
    EXPECT_EQ(shown(holder, 2000), 4);
    EXPECT_EQ(holder.blendFrom, nullptr);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 1);
    // A hundred-thousandth of a frame is none.
    EXPECT_EQ(shown(holder, 1000009, {.tpf = 1000000}), 8);
    EXPECT_EQ(holder.blendFrom, nullptr);
    EXPECT_EQ(load(holder, 1000010, {.tpf = 1000000}), kFrameLoaded);
    EXPECT_NE(holder.blendFrom, nullptr);
}

TEST_F(FrameLoad, OneMissingOrDamaged_TheOtherAlone) {
    for (const int n : {1, 3, 11})
        files.write(n, 5);
    for (const int n : {9, 10})
        files.damage(n);
    files.writeText(20, "");
    NimbraFrame holder;
    for (const auto& [ticks, status, frame] : {std::tuple{1500, kFrameLoaded, 1},
                                               {2500, kFrameLoaded, 3},
                                               {10500, kFrameLoaded, 11},
                                               {9500, kFrameDamaged, 0},
                                               {8500, kFrameFailed, 0},  // damaged, missing
                                               {19500, kFrameFailed, 0},
                                               {6500, kFrameFailed, 0}}) {
        EXPECT_EQ(load(holder, ticks), status) << ticks;
        EXPECT_EQ(holder.data ? holder.data->frameNumber : 0, frame);
        EXPECT_EQ(holder.sourceData, holder.data);
        EXPECT_TRUE(!holder.blendFrom && !holder.blendTo);
        EXPECT_EQ(NimbraFrame::frameDataArray.size, frame ? 1 : 0);
        EXPECT_EQ(load(holder, ticks), kFrameUnchanged) << "remembered, also without a frame";
    }
    files.write(7, 1);
    EXPECT_EQ(load(holder, 6500), kFrameUnchanged);
    EXPECT_EQ(load(holder, 6250), kFrameLoaded);
    // The nearest file may be that of both.
    EXPECT_EQ(load(holder, 5100, {.exact = false}), kFrameLoaded);
    EXPECT_EQ(holder.blendFrom->frameNumber, 3);
    EXPECT_EQ(holder.blendTo->frameNumber, 7);
    files.remove(20);
    EXPECT_EQ(load(holder, 30500, {.exact = false}), kFrameLoaded);
    EXPECT_EQ(holder.blendFrom, holder.blendTo);
    EXPECT_EQ(holder.blendFrom->refCount, 2);
}

TEST_F(FrameLoad, SecondWeight_OpensNothingAndSearchesNothing) {
    writeMoving({1, 2, 3});
    OpenCount opens(files.folder);
    NimbraFrame holder;
    const Wish wish{.method = kVelocity};
    EXPECT_EQ(load(holder, 1250, wish), kFrameLoaded);
    EXPECT_GT(opens.take(), 0);
    const NimbraFrameData* const from = holder.blendFrom;
    float* const source = holder.blendSource[kSmoke];
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(holder.blendSourceValid);
    // What the search would find is changed by hand: the next weight follows it.
    for (int i = 0; i < 3 * 8 * 4 * 4; ++i)
        source[i] = 1;
    EXPECT_EQ(load(holder, 1750, wish), kFrameLoaded);
    EXPECT_EQ(opens.take(), 0);
    EXPECT_EQ(holder.blendFrom, from);
    EXPECT_EQ(holder.blendSource[kSmoke], source);
    // From x = 7 the way leads to x = 1 by three quarters; the cloud is x - 1 there.
    EXPECT_FLOAT_EQ(smoke(holder, 7), 0.25f * 7 + 0.75f * 1 - 1);
    // One frame on, only the new one is read.
    EXPECT_EQ(load(holder, 2250, wish), kFrameLoaded);
    EXPECT_EQ(opens.take(), 1);
    EXPECT_NE(smoke(holder, 7), 0.75f * 7 + 0.25f - 2);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 3);
}

TEST_F(FrameLoad, FilesThatChangeBetweenTwoWeights) {
    writeMoving({1, 2});
    NimbraFrame holder;
    const Wish wish{.method = kVelocity};
    load(holder, 1250, wish);
    files.write(
        2, KolFrame{{{kSmoke, {100}}, {kVelocityX, {0}}, {kVelocityY, {0}}, {kVelocityZ, {0}}}});
    EXPECT_EQ(load(holder, 1500, wish), kFrameLoaded);
    EXPECT_EQ(holder.blendTo->gridSize[0], 3);
    EXPECT_EQ(holder.data->gridSize[0], 8);
    files.damage(1);
    EXPECT_EQ(shown(holder, 1750, wish), 100);
    EXPECT_EQ(holder.data->frameNumber, 2);
    EXPECT_EQ(holder.blendSource[kSmoke], nullptr);
    files.remove(2);
    EXPECT_EQ(load(holder, 1250, wish), kFrameFailed);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 0);
}

TEST_F(FrameLoad, Stopped_LeavesNoHalfFrame) {
    writeMoving({1, 2});
    for (const int method : {kInterpolation, kVelocity})
        for (const int questions : {0, 1, 4}) {
            NimbraFrame holder;
            Stop stop(questions);
            holder.stop = &stop;
            EXPECT_EQ(load(holder, 1500, {.method = method}), kFrameFailed);
            EXPECT_EQ(holder.data, nullptr);
            EXPECT_EQ(holder.blendSource[kSmoke], nullptr);
            holder.stop = nullptr;
            EXPECT_EQ(load(holder, 1500, {.method = method}), kFrameLoaded);
            EXPECT_FLOAT_EQ(smoke(holder, 5), 3.5f);
        }
}

TEST_F(FrameLoad, FramesThatDoNotFit_AreSaid) {
    for (const bool scale : {true, false}) {
        for (const int n : {1, 2}) {
            KolFrame f{{{kSmoke, {n == 1 ? 8.0f : 4.0f}}}};
            f.cellsInUnit = scale && n == 2 ? 1.5f : 1;
            f.group = scale ? "" : "Foam";
            files.write(n, f);
        }
        CaughtLog log;
        NimbraFrame holder;
        EXPECT_EQ(load(holder, 1250), scale ? kFrameScaleMismatch : kFrameNoParticleId);
        EXPECT_NE(log.take().find(scale ? "Blending frames with different scale!\n"
                                        : "Frame Blending - particle systems can't blend due to "
                                          "missing ID channel: Foam\n"),
                  std::string::npos);
        EXPECT_EQ(smoke(holder), scale ? 8 : 7);
        EXPECT_EQ(holder.sourceData == holder.data, scale) << "the first stands in";
        EXPECT_EQ(holder.blendTo == nullptr, scale);
        EXPECT_EQ(NimbraFrame::frameDataArray.size, scale ? 1 : 3);
        EXPECT_EQ(load(holder, 1250), kFrameUnchanged);
    }
}

TEST_F(FrameLoad, HeaderOnlyBetweenFrames_UnionWithoutVoxels) {
    files.write(1, 8);
    KolFrame moved{{{kSmoke, {4}}}};
    moved.offset = {2, 0, 0};
    files.write(2, moved);
    NimbraFrame holder;
    const Wish header{.mode = NimbraFrame::kHeaderOnlyMode};
    EXPECT_EQ(load(holder, 1250, header), kFrameLoaded);
    EXPECT_TRUE(holder.data->flags & kFrameHeaderOnly);
    EXPECT_EQ(holder.data->gridSize[0], 5);
    EXPECT_EQ(smoke(holder), -2);
    EXPECT_EQ(load(holder, 1250), kFrameLoaded);
    EXPECT_FALSE(holder.data->flags & kFrameHeaderOnly);
    EXPECT_NE(smoke(holder), -2);
}

TEST_F(FrameLoad, FixedBlend_IsPartOfWhatIsAskedFor) {
    files.write(1, 8);
    files.write(2, 4);
    files.write(9, 0);
    NimbraFrame holder;
    const auto loadFixed = [&](float weight, int target, std::int64_t ticks = 1000) {
        holder.fixedBlendWeight = weight;
        holder.fixedBlendTarget = target;
        return load(holder, ticks);
    };
    const auto shownFixed = [&](float weight, int target, std::int64_t ticks = 1000) {
        EXPECT_EQ(loadFixed(weight, target, ticks), kFrameLoaded);
        return smoke(holder);
    };
    EXPECT_EQ(shownFixed(0.25f, 9), 6);
    EXPECT_EQ(holder.blendTo->frameNumber, 9);
    EXPECT_EQ(loadFixed(0.25f, 9), kFrameUnchanged);
    // The same ticks, yet another frame each time.
    for (const auto& [weight, target, expected] :
         {std::tuple{0.5f, 9, 4.0f}, {0.5f, 2, 6.0f}, {-1.0f, 2, 8.0f}, {0.0f, 9, 8.0f}}) {
        EXPECT_EQ(shownFixed(weight, target), expected) << weight;
    }
    EXPECT_EQ(shownFixed(0.75f, 9, 1500), 6) << "between frames it has no effect";
    EXPECT_EQ(shownFixed(0.5f, 12), 8) << "no such frame";
    // What failed isn't remembered for another one.
    EXPECT_EQ(loadFixed(0.5f, 12, 20000), kFrameFailed);
    EXPECT_EQ(loadFixed(0.5f, 12, 20000), kFrameUnchanged);
    EXPECT_EQ(shownFixed(0.5f, 9, 20000), 0);
}

TEST_F(FrameLoad, SmoothedBlendsAndStandIns_LeaveSharedFramesAlone) {
    files.write(1, 8);
    files.write(2, 4);
    NimbraFrame plain, noisy;
    float values[kChannelSlots][3] = {};
    values[kSmoke][0] = 1e30f;
    values[kSmoke][2] = 0.5f;  // noise tells that a channel was smoothed
    noisy.storeSmoothSettings(channelBit(kSmoke), values[0]);
    load(plain, 1000);
    EXPECT_EQ(load(noisy, 1250), kFrameLoaded);
    EXPECT_EQ(noisy.blendFrom, plain.data);
    EXPECT_NE(smoke(noisy), 7);
    EXPECT_NEAR(smoke(noisy), 7, 2);
    EXPECT_EQ(load(noisy, 500), kFrameLoaded);
    EXPECT_NE(noisy.data, plain.data);
    EXPECT_NE(smoke(noisy), 8);
    EXPECT_NEAR(smoke(noisy), 8, 2);
    EXPECT_EQ(smoke(plain), 8);
}

TEST_F(FrameLoad, FramesThatAnotherHolderTurned) {
    KolFrame f{{{kSmoke, {8}}}};
    f.offset = {1, 2, 3};
    files.write(1, f);
    files.write(2, f);
    NimbraFrame straight;
    load(straight, 1500);
    const auto transformOf = [](NimbraFrameData& frame) {
        std::array<float, 12> values;
        frame.getTransform(values.data());
        return values;
    };
    const auto expected = transformOf(*straight.data);
    straight.releaseFrames();
    for (const int turned : {1000, 2000}) {
        NimbraFrame other, holder;
        load(other, turned);
        other.data->flipUpAxis(2);
        const auto before = transformOf(*other.data);
        EXPECT_EQ(load(holder, 1500), kFrameLoaded);
        if (holder.data->upAxisFlipped)
            holder.data->flipUpAxis(1);
        EXPECT_EQ(transformOf(*holder.data), expected) << turned;
        EXPECT_EQ(transformOf(*other.data), before) << turned;
    }
}

/// The frame of an empty path.
int makeEmpty(NimbraFrame& holder, const int (&size)[3], float cell, bool maya = false) {
    return holder.load(0, "", 0, 1000, size, cell, maya, true, 0, "");
}

TEST(EmptyGrid, StandsOnItsFloorOrFillsTheUnitCube) {
    for (const bool maya : {false, true}) {
        NimbraFrame holder;
        EXPECT_EQ(makeEmpty(holder, {5, 8, 3}, 0.5f, maya), kFrameLoaded);
        const NimbraFrameData& f = *holder.data;
        EXPECT_TRUE(f.flags & kFramePrivate);
        EXPECT_EQ(f.compressedInts, 1);
        EXPECT_EQ(f.channelMask, 0u);
        EXPECT_EQ(f.gridSize[1], 8);
        // The axes y and z are swapped, with one turned round: the grid's third axis is up. In the
        // cube the half cell of z stays.
        EXPECT_EQ(f.upAxisFlipped, !maya);
        using Transform = std::vector<float>;
        EXPECT_EQ(Transform(f.transform, f.transform + 12),
                  maya ? (Transform{5, 0, 0, 0, 8, 0, 0, 0, 3, 2, 4, 1.5f})
                       : (Transform{2, 0, 0, 0, 0, 2, 0, -2, 0, 2, 4, 0}));
    }
}

TEST(EmptyGrid, SizesThatMakeNone) {
    NimbraFrame holder;
    EXPECT_EQ(makeEmpty(holder, {5, 8, 3}, 0.0005f), kLoadNotFound);
    EXPECT_EQ(makeEmpty(holder, {5, 8, 3}, 0.0005f), kFrameUnchanged);
    EXPECT_EQ(holder.data, nullptr);
    NimbraFrame none, huge;
    EXPECT_EQ(makeEmpty(none, {5, 0, 3}, 1), kLoadNotFound);
    EXPECT_EQ(makeEmpty(huge, {1 << 20, 1 << 20, 1 << 20}, 1), kLoadNotFound);
    // Between frames there is none.
    const int size[3] = {2, 2, 2};
    EXPECT_EQ(huge.load(500, "", 0, 1000, size, 1, false, true, 0, ""), kFrameFailed);
}

}  // namespace
}  // namespace nimbra
