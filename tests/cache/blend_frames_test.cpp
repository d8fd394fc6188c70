// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Blending of two frames: golden values, grids cell by cell, what is refused, header values.
#include "cache/blend_frames.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "cache/prt_group.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "foundation/memory.h"
#include "support/caught_log.h"
#include "support/golden.h"

namespace nimbra {
namespace {

using namespace test;
using Field = std::vector<float>;

/// A frame on cells of length 1, cell 0 lying at minus `offset`.
struct TestFrame : NimbraFrameData {
    explicit TestFrame(const Cell3& size, std::array<float, 3> offset = {}) {
        resetHeader(false);
        std::copy_n(size.data(), 3, gridSize);
        std::copy_n(offset.data(), 3, transform + 9);
    }
    Cell3 size() const { return {gridSize[0], gridSize[1], gridSize[2]}; }
    void add(int channel, const CellField& field, bool tree = false) {
        channels[channel] = tree ? treeChannel(kFloatTree, size(), field, {.origin = {-3, 5, 9}})
                                 : denseChannel(size(), field);
        channelMask |= channelBit(channel);
    }
    /// The velocity along one axis; it is 0 along the others.
    void addVelocity(int channel, float speed) {
        for (int c = kVelocityX; c <= kVelocityZ; ++c)
            add(c, everywhere(c == channel ? speed : 0));
    }
    /// The value of a cell of another frame on the same cells, 0 outside.
    float at(int channel, const NimbraFrameData& of, const Cell3& cell) const {
        std::int64_t index = 0;
        for (std::size_t i = 3; i-- > 0;) {
            const int c = cell[i] + static_cast<int>(transform[9 + i] - of.transform[9 + i]);
            if (c < 0 || c >= gridSize[i])
                return 0;
            index = index * gridSize[i] + c;
        }
        return channels[channel].read(index);
    }
};

/// The frame that a blend makes, as a holder keeps it.
class Blended {
public:
    Blended(NimbraFrameData& a, NimbraFrameData& b, float weight, int method = kInterpolateGrids)
        : frame_(std::make_unique<TestFrame>(Cell3{})) {
        float* sources[kChannelSlots] = {};
        const int live = NimbraFrame::frameDataArray.size;
        result = blendFrames(*frame_, a, b, weight, method, true, sources, nullptr);
        for (float* p : sources)
            NMBUtils::freeMem(p);
        shared_ = NimbraFrame::frameDataArray.size > live;
        EXPECT_EQ(shared_, result.status != kFrameScaleMismatch);
        EXPECT_EQ(frame_->refCount, shared_ ? 1 : 0);
    }
    ~Blended() {
        if (shared_)
            NimbraFrame::frameDataArray.releaseFrame(frame_.release());
    }
    Blended(const Blended&) = delete;
    Blended& operator=(const Blended&) = delete;

    TestFrame* operator->() const { return frame_.get(); }
    TestFrame& operator*() const { return *frame_; }
    Field values(int channel) const { return valuesOf(frame_->channels[channel]); }

    BlendResult result;

private:
    std::unique_ptr<TestFrame> frame_;
    bool shared_ = false;
};

/// Fills a frame with the arrays of a golden file.
void fill(TestFrame& frame, const nlohmann::json& j, const GoldenCase& golden, bool trees) {
    std::copy_n(j["size"].get<Cell3>().data(), 3, frame.gridSize);
    std::copy_n(j["transform"].get<Field>().data(), 12, frame.transform);
    frame.timeStep = j["timeStep"];
    for (const auto& [channel, source] : j["channels"].items()) {
        const Field values = readNpy<float>(golden.file(source["file"])).values;
        const auto field = [&](int x, int y, int z) {
            return values[static_cast<std::size_t>((z * frame.gridSize[1] + y) * frame.gridSize[0] +
                                                   x)];
        };
        frame.add(std::stoi(channel), field, trees);
    }
}

TEST(BlendFrames, GoldenValues_DenseOrSparseWhateverTheThreads) {
    for (const GoldenCase& golden : goldenCases("blend")) {
        SCOPED_TRACE(golden.name());
        const nlohmann::json& j = golden.json;
        for (const auto& [threads, trees] : {std::pair{0, false}, {5, false}, {3, true}}) {
            const Threads lent(threads);
            TestFrame a({}), b({});
            fill(a, j["a"], golden, trees);
            fill(b, j["b"], golden, trees);
            const Blended blended(a, b, j["weight"], j["method"]);
            const nlohmann::json& expected = j["expected"];
            ASSERT_EQ(blended.result.status, expected["status"]);
            if (blended.result.status == kFrameScaleMismatch)
                continue;
            EXPECT_EQ(blended->size(), expected["size"]);
            EXPECT_EQ(Field(blended->transform, blended->transform + 12), expected["transform"]);
            EXPECT_FLOAT_EQ(blended->timeStep, expected["timeStep"]);
            for (const auto& [channel, out] : expected["channels"].items()) {
                std::vector<std::uint8_t> mask;
                if (out.contains("mask"))
                    mask = readNpy<std::uint8_t>(golden.file(out["mask"])).values;
                EXPECT_TRUE(areNear(blended.values(std::stoi(channel)),
                                    readNpy<float>(golden.file(out["file"])).values,
                                    Tolerance(j["tolerance"]), mask))
                    << channel << ", " << threads << " threads";
            }
        }
    }
}

/// What a cell of `dst` holds that is mixed from two cells of its grid.
float mixed(const TestFrame& a, const TestFrame& b, float w, int channel,
            const NimbraFrameData& dst, const Cell3& from, const Cell3& to) {
    const float va = a.at(channel, dst, from), vb = b.at(channel, dst, to);
    if (channel < kColorR || channel > kColorB || !dst.channels[kSmoke].loaded)
        return (1 - w) * va + w * vb;
    const float ta = (1 - w) * a.at(kSmoke, dst, from), tb = w * b.at(kSmoke, dst, to);
    return ta + tb > 0.0001f ? (tb / (ta + tb)) * vb + (1 - tb) * va : 0;
}

// Rows longer than the runs that jobs work in, grids beside, inside and across each other.
TEST(BlendFrames, Union_EachCellIsMixedForItself) {
    struct Case {
        Cell3 sizeA, sizeB;
        std::array<float, 3> offsetA, offsetB;
        Cell3 size;
    };
    for (const Case& c : {Case{{2100, 3, 2}, {2100, 3, 2}, {}, {}, {2100, 3, 2}},
                          Case{{1500, 2, 3}, {1200, 3, 2}, {7, 1, 0}, {-990, 0, 1}, {2197, 4, 4}},
                          Case{{3, 2, 1}, {5, 6, 7}, {-4, 0, 0}, {-1, 2, 1}, {6, 6, 7}},
                          Case{{2, 2, 2}, {2, 2, 2}, {0, 0, 0}, {6, -6, 6}, {8, 8, 8}}})
        for (const auto& [threads, trees] : {std::pair{0, false}, {7, false}, {2, true}}) {
            const Threads lent(threads);
            TestFrame a(c.sizeA, c.offsetA), b(c.sizeB, c.offsetB);
            for (int channel : {2, 7, 10, 31}) {
                const auto field = [&](int x, int y, int z) {
                    return std::abs(noiseAt(x, y, z, channel));
                };
                a.add(channel, field, trees && channel != 10);
                b.add(
                    channel, [&](int x, int y, int z) { return field(x + 3, y, z); }, trees);
            }
            const Blended blended(a, b, 0.375f);
            ASSERT_EQ(blended.result.status, kFrameLoaded);
            ASSERT_EQ(blended->size(), c.size);
            forEachCell(c.size, [&](int x, int y, int z) {
                const Cell3 cell = {x, y, z};
                for (int channel : {2, 7, 10, 31})
                    ASSERT_EQ(blended->at(channel, *blended, cell),
                              mixed(a, b, 0.375f, channel, *blended, cell, cell))
                        << channel << " at " << x << " " << y << " " << z;
            });
        }
}

TEST(BlendFrames, OffsetsBetweenCells_AreRounded) {
    for (const auto& [offset, cells, shift] :
         {std::tuple{0.5f, 4, 0.0f}, {-0.5f, 5, 0.0f}, {0.51f, 5, 1.0f}, {-0.49f, 4, 0.0f}}) {
        TestFrame a({4, 4, 4}), b({4, 4, 4}, {0, offset, 0});
        const Blended blended(a, b, 0.5f);
        EXPECT_EQ(blended->gridSize[1], cells) << offset;
        EXPECT_EQ(blended->transform[10], shift) << offset;
    }
}

TEST(BlendFrames, Channels_AreThoseOfBothFrames) {
    TestFrame a({3, 2, 1}), b({3, 2, 1});
    for (int c : {1, 2, 4, 5, 6, 20})
        for (TestFrame* f : {&a, &b})
            if (c != (f == &a ? 1 : 2))
                f->add(c, everywhere(1));
    const Blended blended(a, b, 0.5f);
    EXPECT_EQ(blended->channelMask, 7u << kVelocityX | 1u << 20);
    for (int c = 0; c < kChannelSlots; ++c)
        // Speed is derived in both.
        EXPECT_EQ(blended->channels[c].loaded, (c >= 3 && c <= 6) || c == 20) << c;
    EXPECT_FALSE(blended->channels[20].rangeKnown());
    // A method without grids, and a channel that isn't of its frame's size.
    EXPECT_FALSE(Blended(a, b, 0.5f, 65535)->channels[20].loaded);
    b.channels[20] = a.channels[20];
    b.gridSize[0] = 2;
    EXPECT_FALSE(Blended(a, b, 0.5f)->channels[20].loaded);
}

TEST(BlendFrames, GridsThatDoNotFit_AreRefused) {
    CaughtLog log;
    const auto statusWith = [](int element, float value, bool inFirst = false) {
        TestFrame a({4, 4, 4}), b({4, 4, 4}, {0, element > 8 ? 5e8f : 0, 0});
        a.add(kSmoke, everywhere(1));
        b.add(kSmoke, everywhere(1));
        (inFirst ? a : b).transform[element] = value;
        return Blended(a, b, 0.5f).result.status;
    };
    EXPECT_EQ(statusWith(0, 1.0009f), kFrameLoaded);
    log.take();
    for (const auto& [element, value, inFirst] : {std::tuple{8, 1.0011f, false},
                                                  {4, 0.99f, true},
                                                  {1, 0.002f, false},
                                                  {0, -1.0f, false},
                                                  {0, 0.0f, true}}) {
        EXPECT_EQ(statusWith(element, value, inFirst), kFrameScaleMismatch) << element;
        EXPECT_EQ(log.take(), "Blending frames with different scale!\n");
    }
    // Too far apart for any grid, or for memory.
    for (float offset : {4e8f, -1e9f, 3e9f, 1e30f, std::nanf("")}) {
        EXPECT_EQ(statusWith(9, offset), kFrameScaleMismatch) << offset;
        EXPECT_EQ(statusWith(11, offset, true), kFrameScaleMismatch) << offset;
    }
    EXPECT_EQ(log.take().find("different"), std::string::npos);
}

TEST(BlendFrames, HeaderValues) {
    TestFrame a({2, 2, 2}), b({2, 2, 2});
    for (TestFrame* f : {&a, &b}) {
        const int n = f == &a ? 1 : 2;
        f->frameNumber = -7 * n;
        f->flushOnClose = static_cast<std::uint8_t>(n);
        f->timeStep = 0.5f * static_cast<float>(n);
        f->simInfo.setSimTime(10.1 * n);
        f->simInfo.setSimStep(40 + n);
        f->simInfo.setSimInfo4(99);
        f->fileTime = 2 * n + 5;
        f->path = "/some/where";
        f->bboxMin[1] = static_cast<float>(1 - n);
        f->bboxMax[2] = static_cast<float>(2 + 5 * n);
    }
    b.description = "later";
    {
        const Blended blended(a, b, 0.25f);
        EXPECT_EQ(blended->frameNumber, -8) << "-8.75 without its fraction";
        EXPECT_EQ(blended->flushOnClose, 1);
        EXPECT_EQ(blended->timeStep, 0.125f) << "without b's";
        EXPECT_DOUBLE_EQ(blended->simInfo.simTime(), 12.625);
        EXPECT_EQ(blended->simInfo.simStep(), 41);
        EXPECT_EQ(blended->simInfo.simInfo4(), 0);
        EXPECT_EQ(blended->fileTime, 3 + 4);
        EXPECT_EQ(blended->path, "");
        EXPECT_EQ(blended->description, "later");
        EXPECT_EQ(blended->bboxMin[1], 1 - 1.25f);
        EXPECT_EQ(blended->bboxMax[2], 2 + 6.25f);
    }
    a.description = "earlier";
    a.frameNumber = b.frameNumber = INT32_MAX;
    b.resetHeader(false);
    const Blended blended(a, b, 0.25f);
    EXPECT_EQ(blended->description, "earlier");
    EXPECT_EQ(blended->frameNumber, INT32_MAX);
    EXPECT_EQ(blended->bboxMin[1], 1e20f);
    EXPECT_EQ(blended->bboxMax[2], -1e20f);
}

/// A hill around x = 12, and around 12 + `moved` in the later frame, on a grid whose matter moves
/// by that much.
struct MovingHill {
    explicit MovingHill(float moved) : a({32, 3, 3}), b({32, 3, 3}) {
        for (TestFrame* f : {&a, &b}) {
            const float middle = f == &a ? 12 : 12 + moved;
            f->add(kSmoke, [&](int x, int, int) { return height(static_cast<float>(x) - middle); });
            f->addVelocity(kVelocityX, moved / a.timeStep);
        }
    }
    static float height(float x) {
        const float flank = std::max(0.0f, 10 - std::fabs(x));
        return flank * flank * 0.1f;
    }
    TestFrame a, b;
};

TEST(BlendAlongVelocity, WithoutVelocities_GridsAreInterpolated) {
    for (const bool inA : {true, false}) {
        CaughtLog log;
        MovingHill hill(4);
        (inA ? hill.a : hill.b).freeChannel(inA ? kVelocityZ : kVelocityX);
        const Blended blended(hill.a, hill.b, 0.5f, kBlendAlongVelocity);
        EXPECT_EQ(blended.result.status, kFrameVelocityFallback);
        EXPECT_TRUE(log.take().starts_with(
            "Frame Blending - could not expand the velocity channel, falling back to "
            "Interpolation!\nNimbraFrameData"));
        EXPECT_EQ(blended.values(kSmoke), Blended(hill.a, hill.b, 0.5f).values(kSmoke));
    }
}

/// Two frames of noise on grids that overlap in part; a's matter moves by 3 cells in its time step,
/// b's by `moved`, both along y.
struct NoiseInMotion {
    explicit NoiseInMotion(float moved, bool trees = false)
        : a({9, 8, 7}), b({9, 9, 7}, {0, -1, 0}) {
        a.timeStep = 0.25f;
        b.timeStep = 0.5f;
        for (TestFrame* f : {&a, &b}) {
            for (int c : {1, 2, 8, 10, 20}) {
                const int seed = 5 * c + (f == &a ? 1 : 2);
                const auto field = [&](int x, int y, int z) {
                    return std::abs(noiseAt(x, y, z, seed));
                };
                f->add(c, field, trees);
            }
            f->addVelocity(kVelocityY, f == &a ? 3 / a.timeStep : moved / b.timeStep);
        }
    }
    TestFrame a, b;
};

TEST(PreciseTracing, CellsInMotion_AreMixedFromPlacesAlongIt) {
    for (const auto& [threads, trees, origin] :
         {std::tuple{0, false, false}, {3, true, false}, {2, false, true}}) {
        const Threads lent(threads);
        NoiseInMotion noise(5, trees);
        // The matter of a cell of b was 8 cells away, along x; 0.49 cells are cut off.
        for (int c = kAdvectionOriginX; origin && c <= kAdvectionOriginZ; ++c)
            noise.b.add(c, [&](int x, int y, int z) {
                return c == kAdvectionOriginX   ? (static_cast<float>(x) + 8.49f) / 9
                       : c == kAdvectionOriginY ? (static_cast<float>(y) + 0.01f) / 9
                                                : (static_cast<float>(z) + 0.01f) / 7;
            });
        constexpr float kWeight = 0.5f;
        const Blended blended(noise.a, noise.b, kWeight, kTracePrecisely);
        ASSERT_EQ(blended.result.status, kFrameLoaded);
        ASSERT_EQ(blended->gridSize[1], 10);
        // 0.75 * 3 + 0.25 * 5, or that stretched by 2 * 8 / (3 + 5): 1.75 or 3.5 each way.
        const int back = origin ? 3 : 2, ahead = origin ? 4 : 2;
        forEachCell(blended->size(), [&](int x, int y, int z) {
            for (int c : {1, 2, 8, 10, 20}) {
                // The first and the last two rows aren't in both grids.
                const bool traced = c != kFuel && y >= 1 && y <= 7;
                const Cell3 from = {x, traced ? std::max(y - back, 0) : y, z},
                            to = {x, traced ? std::min(y + ahead, 9) : y, z};
                ASSERT_EQ(blended->at(c, *blended, {x, y, z}),
                          mixed(noise.a, noise.b, kWeight, c, *blended, from, to))
                    << c << " at " << x << " " << y << " " << z << ", " << origin;
            }
        });
        // Mixed by the weight's square, and also where one of the grids ends.
        const float speed = 0.75f * 12 + 0.25f * 10;
        EXPECT_EQ(blended.values(kVelocityY), Field(9 * 10 * 7, speed));
        EXPECT_EQ(blended.values(kSpeed), Field(9 * 10 * 7, speed));
    }
}

TEST(PreciseTracing, SlowCells_AreInterpolatedAndWithoutOriginsALineIsLogged) {
    CaughtLog log;
    NoiseInMotion noise(0.49f);
    noise.a.add(kVelocityY, everywhere(0.49f / noise.a.timeStep));
    {
        const Blended slow(noise.a, noise.b, 0.25f, kTracePrecisely);
        EXPECT_TRUE(log.take().starts_with(
            "Frame Blending - could not expand the advectionPos channel, blend quality may "
            "suffer!\nNimbraFrameData"));
        const Blended plain(noise.a, noise.b, 0.25f);
        for (int c : {1, 2, 8, 10, 20})
            EXPECT_EQ(slow.values(c), plain.values(c)) << c;
    }
    // A later frame without velocities counts as one at rest; an earlier one falls back.
    const auto status = [](TestFrame& a, TestFrame& b, int method = kTracePrecisely) {
        return Blended(a, b, 0.25f, method).result.status;
    };
    for (int c = kVelocityX; c <= kVelocityZ; ++c)
        noise.b.freeChannel(c);
    EXPECT_EQ(status(noise.a, noise.b), kFrameLoaded);
    noise.a.freeChannel(kVelocityY);
    EXPECT_EQ(status(noise.a, noise.b), kFrameVelocityFallback);
    // Nothing to blend on a grid that nobody could walk over.
    TestFrame here({9, 8, 7}), far({9, 8, 7}, {1e5f, 1e4f, 1e3f});
    for (int c = kVelocityX; c <= kVelocityZ; ++c)
        here.add(c, everywhere(1));
    EXPECT_EQ(status(here, far), kFrameLoaded);
    // Motion that isn't finite ends at a border.
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    noise.a.add(kVelocityY, [&](int x, int, int) { return x & 1 ? kInfinity : -kInfinity; });
    EXPECT_EQ(status(noise.a, noise.b), kFrameLoaded);
    EXPECT_EQ(status(noise.a, noise.a, kBlendAlongVelocity), kFrameLoaded);
}

TEST(BlendFrames, ALiquid_GetsItsSurfaceFromTheBlendedParticles) {
    for (int method : {0, 1, 2, 256}) {
        MovingHill hill(4);
        for (TestFrame* f : {&hill.a, &hill.b}) {
            f->add(kTemperature, everywhere(0.3f));
            NimbraFrameData::PGroup& liquid = *f->addGroup("Liquid");
            const float positions[] = {f == &hill.a ? 7.0f : 11.0f, 1, 1}, age = 9;
            const std::int64_t id = 5;
            liquid.count = 1;
            liquid.setChannel(kPrtPosition, positions);
            liquid.setChannel(kPrtId, &id);
            liquid.setChannel(kPrtAge, &age);
        }
        {
            const Blended blended(hill.a, hill.b, 0.5f, method);
            EXPECT_EQ(blended.result.status, kFrameLoaded);
            const Field surface = blended.values(kTemperature);
            const std::size_t middle = (1 * 3 + 1) * 32;
            const std::size_t particle = method == 256 ? 7 : 9;  // the cross-fade keeps one
            EXPECT_GT(surface[middle + particle], 0.5f) << method;
            EXPECT_EQ(surface[middle + 12], 0) << method;
        }
        // Without IDs there is nothing better than the grids.
        hill.b.groups[0]->channelMask &= ~channelBit(kPrtId);
        const Blended blended(hill.a, hill.b, 0.5f, method);
        EXPECT_EQ(blended.result.status, kFrameNoParticleId);
        EXPECT_EQ(blended.result.message, "Liquid");
        EXPECT_FLOAT_EQ(blended.values(kTemperature)[40], 0.3f);
    }
}

}  // namespace
}  // namespace nimbra
