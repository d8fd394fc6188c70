// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Moments between frames, as a holder makes them of files.
#include <gtest/gtest.h>

#include <array>

#include "cache/nimbra_frame.h"
#include "cache/test_jobs.h"
#include "cache/test_log.h"
#include "support/kol_sequence.h"

namespace nimbra {
namespace {

using namespace test;

constexpr int kInterpolation = 0, kVelocity = 1;

struct Wish {
    int method = kInterpolation;
    bool exact = true;
    int mode = 0;
    int tpf = 1000;
};

class FrameBlend : public testing::Test {
protected:
    int load(NimbraFrame& holder, std::int64_t ticks, const Wish& wish = {}) const {
        const int size[3] = {1, 1, 1};
        return holder.load(ticks, files.pattern(), wish.method, wish.tpf, size, 1, false,
                           wish.exact, wish.mode, "");
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

TEST_F(FrameBlend, BetweenTwoFrames_IsAThird) {
    files.write(1, 8);
    files.write(2, 4);
    NimbraFrame holder;
    EXPECT_EQ(load(holder, 1250), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 7);
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
    EXPECT_EQ(load(holder, 2000), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 4);
    EXPECT_EQ(holder.blendFrom, nullptr);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 1);
    // A hundred-thousandth of a frame is none.
    EXPECT_EQ(load(holder, 1000009, {.tpf = 1000000}), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 8);
    EXPECT_EQ(holder.blendFrom, nullptr);
    EXPECT_EQ(load(holder, 1000010, {.tpf = 1000000}), kFrameLoaded);
    EXPECT_NE(holder.blendFrom, nullptr);
}

/// A moment is loaded, with what comes of it: the frame that is shown alone, 0 for none.
struct Moment {
    std::int64_t ticks;
    int status;
    int shown;
};

TEST_F(FrameBlend, OneMissingOrDamaged_TheOtherAlone) {
    for (const int n : {1, 3, 11})
        files.write(n, 5);
    for (const int n : {9, 10})
        files.damage(n);
    files.writeText(20, "");
    NimbraFrame holder;
    for (const Moment& m : {Moment{1500, kFrameLoaded, 1},
                            {2500, kFrameLoaded, 3},
                            {10500, kFrameLoaded, 11},
                            {9500, kFrameDamaged, 0},
                            {8500, kFrameFailed, 0},  // one damaged, one missing
                            {19500, kFrameFailed, 0},
                            {6500, kFrameFailed, 0}}) {
        EXPECT_EQ(load(holder, m.ticks), m.status) << m.ticks;
        EXPECT_EQ(holder.data ? holder.data->frameNumber : 0, m.shown);
        EXPECT_EQ(holder.sourceData, holder.data);
        EXPECT_TRUE(!holder.blendFrom && !holder.blendTo);
        EXPECT_EQ(NimbraFrame::frameDataArray.size, m.shown ? 1 : 0);
        EXPECT_EQ(load(holder, m.ticks), kFrameUnchanged) << "remembered, also without a frame";
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

TEST_F(FrameBlend, SecondWeight_OpensNothingAndSearchesNothing) {
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

TEST_F(FrameBlend, FilesThatChangeBetweenTwoWeights) {
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
    EXPECT_EQ(load(holder, 1750, wish), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 100);
    EXPECT_EQ(holder.data->frameNumber, 2);
    EXPECT_EQ(holder.blendSource[kSmoke], nullptr);
    files.remove(2);
    EXPECT_EQ(load(holder, 1250, wish), kFrameFailed);
    EXPECT_EQ(NimbraFrame::frameDataArray.size, 0);
}

TEST_F(FrameBlend, Stopped_LeavesNoHalfFrame) {
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

TEST_F(FrameBlend, FramesThatDoNotFit_AreSaid) {
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

TEST_F(FrameBlend, HeaderOnly_UnionWithoutVoxels) {
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

TEST_F(FrameBlend, FixedBlend_IsPartOfWhatIsAskedFor) {
    files.write(1, 8);
    files.write(2, 4);
    files.write(9, 0);
    NimbraFrame holder;
    const auto loadFixed = [&](float weight, int target, std::int64_t ticks = 1000) {
        holder.fixedBlendWeight = weight;
        holder.fixedBlendTarget = target;
        return load(holder, ticks);
    };
    EXPECT_EQ(loadFixed(0.25f, 9), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 6);
    EXPECT_EQ(holder.blendTo->frameNumber, 9);
    EXPECT_EQ(loadFixed(0.25f, 9), kFrameUnchanged);
    // The same ticks, yet another frame each time.
    for (const auto& [weight, target, expected] :
         {std::tuple{0.5f, 9, 4.0f}, {0.5f, 2, 6.0f}, {-1.0f, 2, 8.0f}, {0.0f, 9, 8.0f}}) {
        EXPECT_EQ(loadFixed(weight, target), kFrameLoaded) << weight;
        EXPECT_EQ(smoke(holder), expected);
    }
    EXPECT_EQ(loadFixed(0.75f, 9, 1500), kFrameLoaded) << "between frames it has no effect";
    EXPECT_EQ(smoke(holder), 6);
    EXPECT_EQ(loadFixed(0.5f, 12), kFrameLoaded) << "no such frame";
    EXPECT_EQ(smoke(holder), 8);
    // What failed isn't remembered for another one.
    EXPECT_EQ(loadFixed(0.5f, 12, 20000), kFrameFailed);
    EXPECT_EQ(loadFixed(0.5f, 12, 20000), kFrameUnchanged);
    EXPECT_EQ(loadFixed(0.5f, 9, 20000), kFrameLoaded);
    EXPECT_EQ(smoke(holder), 0);
}

TEST_F(FrameBlend, SmoothedBlendsAndStandIns_LeaveSharedFramesAlone) {
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

TEST_F(FrameBlend, FramesThatAnotherHolderTurned) {
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

TEST_F(FrameBlend, EmptyPath_HasNoMomentBetweenFrames) {
    NimbraFrame holder;
    const int size[3] = {2, 2, 2};
    EXPECT_EQ(holder.load(500, "", 0, 1000, size, 1, false, true, 0, ""), kFrameFailed);
    EXPECT_EQ(holder.load(1000, "", 0, 1000, size, 1, false, true, 0, ""), kFrameLoaded);
}

}  // namespace
}  // namespace nimbra
