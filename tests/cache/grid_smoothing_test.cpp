// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Smoothing of channels: golden values, the sums term by term, which voxels are touched, and what
// happens without memory or when the user stops.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "cache/mt_smooth.h"
#include "cache/nimbra_frame.h"
#include "cache/smooth_frame.h"
#include "cache/smoothing_noise.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "support/caught_log.h"
#include "support/golden.h"
#include "tessra/allocator.h"

namespace nimbra {
namespace {

using namespace test;
using NMBUtils::Matrix34;
using Field = std::vector<float>;

struct Request {
    float threshold = 0.1f, randomize = 0;
    Matrix34 gridToObject = {};
    int threads = 1;
};

void smooth(Proxy& channel, const Request& r, TessUtils::ProgressCallback* stop = nullptr) {
    const std::unique_ptr<TessUtils::ThreadManager, void (*)(TessUtils::ThreadManager*)> threads(
        TessUtils::newThreadManager(r.threads), TessUtils::deleteThreadManager);
    MTSmooth job(threads.get(), stop);
    job.smoothChannel(3, channel, channel.storage->size, r.gridToObject, r.threshold, 0.5f,
                      r.randomize);
}

bool sameBits(const Field& a, const Field& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

/// The sum of 27 products in the order of z, y, x; each weight is a product over the axes.
float weighted(const Field& v, std::size_t center, std::size_t nx, std::size_t nxy,
               const float (&wx)[3], const float (&wy)[3], const float (&wz)[3], float scale) {
    float sum = 0;
    for (std::size_t z = 0; z < 3; ++z)
        for (std::size_t y = 0; y < 3; ++y)
            for (std::size_t x = 0; x < 3; ++x)
                sum +=
                    wx[x] * wy[y] * wz[z] * scale * v[center + x + y * nx + z * nxy - 1 - nx - nxy];
    return sum;
}

/// The whole procedure voxel by voxel, without noise.
Field plainlySmoothed(Field v, const Cell3& size, float threshold) {
    constexpr float kBell[3] = {1, 2, 1}, kStep[3] = {-1, 0, 1};
    const auto nx = static_cast<std::size_t>(size[0]), nxy = nx * static_cast<std::size_t>(size[1]);
    std::vector<std::size_t> inner;
    Field gradient(v.size());
    forEachCell({size[0] - 2, size[1] - 2, size[2] - 2}, [&](int x, int y, int z) {
        const std::size_t i =
            std::size_t(x + 1) + std::size_t(y + 1) * nx + std::size_t(z + 1) * nxy;
        inner.push_back(i);
        const float gx = weighted(v, i, nx, nxy, kStep, kBell, kBell, 1);
        const float gy = weighted(v, i, nx, nxy, kBell, kStep, kBell, 1);
        const float gz = weighted(v, i, nx, nxy, kBell, kBell, kStep, 1);
        gradient[i] = std::sqrt(gx * gx + gy * gy + gz * gz) * 0.03608439117670059f;
    });
    for (int iteration = 0; iteration < 3; ++iteration, threshold *= 1.2f) {
        const Field old = v;
        for (std::size_t i : inner) {
            if (gradient[i] < threshold)
                continue;
            float s = weighted(old, i, nx, nxy, kBell, kBell, kBell, 0.5f) * 0.03125f;
            if (threshold >= 0.0001f) {
                const float a = std::clamp((gradient[i] - threshold) / threshold, 0.0f, 1.0f);
                s = (1 - a) * old[i] + a * s;
            }
            v[i] = s;
        }
    }
    return v;
}

TEST(GridSmoothing, GoldenValues_DenseOrSparseWhateverTheThreads) {
    for (const GoldenCase& golden : goldenCases("smooth")) {
        SCOPED_TRACE(golden.name());
        const nlohmann::json& j = golden.json;
        const Cell3 size = j["size"];
        const Field input = readNpy<float>(golden.file(j["input"]["file"])).values;
        const Field expected = readNpy<float>(golden.file(j["expected"]["file"])).values;
        const CellField field = [&](int x, int y, int z) {
            return input[static_cast<std::size_t>((z * size[1] + y) * size[0] + x)];
        };
        const std::vector<float> tm = j["transform"];
        Request request{j["threshold"], j["randomize"], inverse(Matrix34::fromFloats(tm.data()))};
        Proxy dense = denseChannel(size, field);
        smooth(dense, request);
        EXPECT_TRUE(areNear(valuesOf(dense), expected, Tolerance(j["tolerance"])));

        for (int threads : {2, 5}) {
            request.threads = threads;
            Proxy again = denseChannel(size, field);
            smooth(again, request);
            EXPECT_TRUE(sameBits(valuesOf(again), valuesOf(dense))) << threads;
            Proxy tree = treeChannel(kFloatTree, size, field, {.origin = {-3, 5, 9}});
            smooth(tree, request);
            EXPECT_TRUE(sameBits(valuesOf(tree), valuesOf(dense))) << "tree, " << threads;
        }
    }
}

// Rows of all lengths, so that whole vectors and the cells behind them are met; thresholds on both
// sides of the one from which results are blended.
TEST(GridSmoothing, Sums_AreTakenTermByTerm) {
    for (int nx : {3, 4, 5, 9, 11, 18, 19, 35})
        for (float threshold : {0.0f, 0.00009f, 0.5f, 3.0f, -1.0f}) {
            const Cell3 size = {nx, 6, 5};
            Proxy channel = denseChannel(size, [](int x, int y, int z) {
                return std::sin(static_cast<float>(x * x + 3 * y + 7 * z)) * 10;
            });
            const Field expected = plainlySmoothed(valuesOf(channel), size, threshold);
            smooth(channel, {.threshold = threshold, .threads = 2});
            EXPECT_TRUE(sameBits(valuesOf(channel), expected)) << nx << ", " << threshold;
        }
}

// A product of 0 and infinity isn't 0: neighbours on axes that a kernel leaves out count as well.
TEST(GridSmoothing, ValuesThatAreNotFinite_TouchAllTheirNeighbours) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (float odd : {kInfinity, -kInfinity, std::nanf("")}) {
        Proxy channel = denseChannel({21, 5, 5}, [&](int x, int y, int z) {
            return x == 9 && y == 2 && z == 2 ? odd : 1.0f;
        });
        const std::size_t at = (2 * 5 + 2) * 21 + 9;
        ASSERT_EQ(valuesOf(channel)[at - 3], 1.0f);
        smooth(channel, {.threshold = 1e30f});
        const Field values = valuesOf(channel);
        EXPECT_FALSE(std::isfinite(values[at]));
        EXPECT_FALSE(std::isfinite(values[at - 1]));
        EXPECT_EQ(values[at - 4], 1.0f);
    }
}

TEST(GridSmoothing, GridsWithoutAnInside_OnlyLoseTheirRange) {
    CaughtLog log;
    for (const Cell3& size : {Cell3{2, 9, 9}, Cell3{9, 2, 9}, Cell3{9, 9, 1}, Cell3{1, 1, 1}}) {
        Proxy channel = denseChannel(size, [](int x, int y, int z) { return noiseAt(x, y, z, 1); });
        const Field before = valuesOf(channel);
        channel.minValue = 1;
        channel.maxValue = 2;
        smooth(channel, {.threshold = 0});
        EXPECT_TRUE(sameBits(valuesOf(channel), before));
        EXPECT_EQ(channel.minValue, std::numeric_limits<float>::max());
        EXPECT_EQ(channel.maxValue, -std::numeric_limits<float>::min());
        const std::string line = log.take();
        float seconds = -1;
        EXPECT_EQ(std::sscanf(line.c_str(), "Grid Smooth: %f\n", &seconds), 1) << line;
    }
}

TEST(SmoothingNoise, DependsOnThePlaceInObjectSpaceAlone) {
    const Cell3 size = {12, 9, 7};
    const auto noisy = [&](const Matrix34& gridToObject, float randomize, bool tree) {
        Proxy channel = tree ? treeChannel(kDoubleTree, size, everywhere(2), {})
                             : denseChannel(size, everywhere(2));
        smooth(channel, {1e30f, randomize, gridToObject, 3});
        return channel;
    };
    const Matrix34 here{{{0.25f, 0, 0}, {0, 0.25f, 0}, {0, 0, 0.25f}}, {5, 6, 7}};
    Matrix34 there = here;
    there.offset = {5 + 0.25f * 2, 6 + 0.25f * 3, 7 - 0.25f};
    const Proxy a = noisy(here, 0.5f, false), b = noisy(there, 0.5f, true);
    float low = 9, high = 0;
    forEachCell({10, 6, 6}, [&](int x, int y, int z) {
        const float v = a.read((z * 9 + y + 3) * 12 + x + 2);
        ASSERT_EQ(v, b.read(((z + 1) * 9 + y) * 12 + x));
        low = std::min(low, v);
        high = std::max(high, v);
    });
    // 360 numbers spread over the interval; both bounds are of the formula.
    EXPECT_TRUE(low >= 1.5f && low < 1.52f) << low;
    EXPECT_TRUE(high <= 2.5f && high > 2.48f) << high;
    // The least noise that counts.
    EXPECT_EQ(noisy(here, 1e-5f, false).read(40), 2.0f);
    EXPECT_NE(valuesOf(noisy(here, 2e-5f, false)), Field(12 * 9 * 7, 2.0f));
    // Places without an integer are as good as any other.
    for (float far : {1e30f, -1e30f, std::nanf("")}) {
        const float r = noiseAtPosition({far, 0, 0});
        EXPECT_TRUE(r >= 0 && r <= 1) << far;
    }
}

TEST(GridSmoothing, WithoutMemory_TheChannelIsSmoothedOrStaysAsItWas) {
    const Cell3 size = {9, 9, 9};
    const CellField field = [](int x, int y, int z) { return noiseAt(x, y, z, 4); };
    const Field before = valuesOf(denseChannel(size, field));
    for (bool tree : {false, true}) {
        int untouched = 0, whole = 0;
        for (int n = 1; n <= 12; ++n) {
            Proxy channel = tree ? treeChannel(kFloatTree, size, field) : denseChannel(size, field);
            MTSmooth job;
            job.SplitRange(1);  // so that the failures meet the stores
            getGlobalMemoryTracker()->failAllocation(static_cast<std::uint64_t>(n));
            job.smoothChannel(3, channel, channel.storage->size, {}, 0.1f, 0, 0);
            getGlobalMemoryTracker()->failAllocation(0);
            const Field after = valuesOf(channel);
            EXPECT_EQ(after[0], before[0]);
            untouched += sameBits(after, before);
            whole += sameBits(after, plainlySmoothed(before, size, 0.1f));
        }
        EXPECT_GE(untouched, 1);
        EXPECT_GE(whole, 1);
    }
}

TEST(GridSmoothing, Stopped_NoHalfStepIsStored) {
    const Cell3 size = {9, 9, 9};
    const CellField field = [](int x, int y, int z) { return noiseAt(x, y, z, 4); };
    Proxy channel = denseChannel(size, field);
    const Field before = valuesOf(channel);
    Stop stop(4);  // in the middle of the first step
    smooth(channel, {}, &stop);
    EXPECT_TRUE(sameBits(valuesOf(channel), before));
    EXPECT_FALSE(channel.rangeKnown());
}

/// A frame that holds noise in some channels.
struct HolderOfNoise : NimbraFrame {
    static constexpr Cell3 kSize = {8, 7, 6};

    explicit HolderOfNoise(std::initializer_list<int> channels) {
        data = frameDataArray.acquireFrame(new NimbraFrameData, true);
        std::copy_n(kSize.data(), 3, data->gridSize);
        for (int c : channels)
            data->channels[c] =
                denseChannel(kSize, [c](int x, int y, int z) { return noiseAt(x, y, z, c); });
    }
};

TEST(SmoothFrame, TakesTheChannelsOfTheMaskWithTheirOwnSettings) {
    HolderOfNoise holder{1, 2, 10, 22, 23, 31};
    float values[kChannelSlots][3] = {};
    values[2][0] = 0.2f;
    values[22][0] = 2.0f;
    values[10][2] = 0.5f;
    values[1][0] = 7;
    // Bits of absent channels, and those behind the last one that is smoothed, have no effect.
    holder.storeSmoothSettings(1u << 2 | 1u << 5 | 1u << 10 | 1u << 22 | 1u << 23 | 1u << 31,
                               values[0]);
    EXPECT_EQ(holder.smoothRandomize[10], 0.5f);
    EXPECT_EQ(holder.smoothThreshold[1], 0) << "not in the mask";
    EXPECT_EQ(holder.smoothSimilarity[1], 0.5f);
    std::vector<Field> before(kChannelSlots);
    for (int c : {1, 2, 10, 22, 23, 31})
        before[static_cast<std::size_t>(c)] = valuesOf(holder.data->channels[c]);
    smoothFrame(holder);
    const auto after = [&](int c) { return valuesOf(holder.data->channels[c]); };
    for (int c : {1, 23, 31})
        EXPECT_TRUE(sameBits(after(c), before[static_cast<std::size_t>(c)])) << c;
    for (int c : {2, 22})
        EXPECT_TRUE(sameBits(after(c), plainlySmoothed(before[static_cast<std::size_t>(c)],
                                                       HolderOfNoise::kSize, values[c][0])))
            << c;
    EXPECT_NE(after(10)[0], before[10][0]) << "noise reaches the outer shell";
    EXPECT_FALSE(holder.data->channels[5].loaded);
}

}  // namespace
}  // namespace nimbra
