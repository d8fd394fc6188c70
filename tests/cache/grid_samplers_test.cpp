// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/grid_samplers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "cache/test_grids.h"
#include "support/golden.h"

namespace nimbra {
namespace {

using test::Cell3;
using test::denseChannel;
using test::noiseAt;
using test::treeChannel;

constexpr float kUntouched = -12345.0f;

float sampleAt(const test::Proxy& proxy, int type, int wrap, std::array<float, 3> position) {
    float out = kUntouched;
    kSampleKernels[type * 8 + wrap](&proxy, position.data(), &out, 1, 1, 0);
    return out;
}

/// Positions all over a grid and a little beyond, with many on borders and cell centres.
std::vector<std::array<float, 3>> testPositions(const Cell3& size, int count) {
    std::mt19937 random(11);
    std::vector<std::array<float, 3>> positions;
    for (int i = 0; i < count; ++i) {
        std::array<float, 3> p{};
        for (int a = 0; a < 3; ++a) {
            std::uniform_real_distribution<float> inside(-1.5f, static_cast<float>(size[a]) + 0.5f);
            p[a] = inside(random);
            if (random() % 4 == 0)
                p[a] = std::round(p[a]);
        }
        positions.push_back(p);
    }
    return positions;
}

/// Half an ulp of the position moves a weight by that much; 27 products and sums of values up to
/// `largest` round.
double roundingOf(double largest, double span) {
    return largest * (64 + 8 * span) * std::numeric_limits<float>::epsilon();
}

TEST(GridSamplers, GoldenValues) {
    for (const test::GoldenCase& golden : test::goldenNamed("kernels")) {
        for (const auto& grid : golden.json["grids"]) {
            const Cell3 size = grid["size"];
            const std::vector<float> voxels = test::floatsOf(grid["voxels"]);
            const test::Proxy proxy = denseChannel(
                size, [&](int x, int y, int z) { return voxels[(z * size[1] + y) * size[0] + x]; });
            const test::Tolerance tolerance(test::numberOf(grid["tolerance"]), 0);
            for (std::size_t i = 0; i < grid["positions"].size(); ++i) {
                const std::array<float, 3> p = grid["positions"][i];
                for (int wrap = 0; wrap < 8; ++wrap) {
                    const std::string key = std::to_string(wrap);
                    const std::string what =
                        golden.name() + " position " + std::to_string(i) + " wrap " + key;
                    const auto expect = [&](int type, const nlohmann::json& value) {
                        test::expectGolden(golden, tolerance, sampleAt(proxy, type, wrap, p),
                                           test::numberOf(value),
                                           what + " type " + std::to_string(type));
                    };
                    expect(kBoxSampler, grid["box"][i]);
                    expect(kLinearSampler, grid["linear"][key][i]);
                    expect(kSphericalSampler, grid["spherical"][key][i]);
                }
            }
        }
    }
}

TEST(GridSamplers, Trees_SampleLikeTheDenseGrid) {
    // Several leaves and tiles on each axis; the origin puts leaf borders off the patches' own.
    const Cell3 size{37, 26, 33};
    test::TreeOptions options;
    options.origin = {-5, 3, -11};
    options.scale = -0.5f;
    for (int kind = kFloatTree; kind <= kVec3dTree; ++kind) {
        options.component = kind >= kVec3fTree ? 2 : 1;
        const test::Proxy tree = treeChannel(kind, size, test::patchyNoise, options);
        ASSERT_TRUE(tree.loaded);
        const test::Proxy dense = denseChannel(
            size, [](int x, int y, int z) { return test::patchyNoise(x, y, z) * -0.5f; });
        for (const auto& p : testPositions(size, 1500))
            for (int kernel = 0; kernel < 24; ++kernel)
                ASSERT_NEAR(sampleAt(tree, kernel / 8, kernel % 8, p),
                            sampleAt(dense, kernel / 8, kernel % 8, p), roundingOf(10, 0))
                    << "kind " << kind << ", kernel " << kernel << ", at " << p[0] << " " << p[1]
                    << " " << p[2];
    }
}

TEST(GridSamplers, ACellBeyondReach_DoesNotSpreadWhatIsNotANumber) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // All cells but a block of 3 are NaN; what the filters read in the block must be clean.
    const auto field = [nan](int x, int y, int z) {
        const auto in = [](int v) { return v >= 4 && v <= 6; };
        return in(x) && in(y) && in(z) ? 1.0f : nan;
    };
    const Cell3 size{11, 11, 11};
    test::TreeOptions unpruned;  // pruning takes a leaf with NaN for constant
    unpruned.prune = false;
    for (const auto& proxy :
         {denseChannel(size, field), treeChannel(kFloatTree, size, field, unpruned)}) {
        EXPECT_FLOAT_EQ(sampleAt(proxy, kSphericalSampler, 0, {5.2f, 4.8f, 5.4f}), 1.0f);
        EXPECT_FLOAT_EQ(sampleAt(proxy, kLinearSampler, 0, {4.2f, 5.8f, 5.4f}), 1.0f);
        EXPECT_FLOAT_EQ(sampleAt(proxy, kBoxSampler, 0, {4.2f, 5.8f, 6.4f}), 1.0f);
    }
    // At the very end of a grid the last cell counts alone.
    const auto end = denseChannel(
        {4, 4, 4}, [nan](int x, int y, int z) { return x == 3 && y == 3 && z == 3 ? 2.0f : nan; });
    EXPECT_EQ(sampleAt(end, kLinearSampler, 0, {3, 3, 3}), 2.0f);
}

TEST(GridSamplers, PositionsThatAreNoPlace_ReadACellOfTheGrid) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Cell3 size{5, 6, 7};
    const auto field = [](int x, int y, int z) { return noiseAt(x, y, z, 4); };
    for (const auto& proxy : {denseChannel(size, field), treeChannel(kFloatTree, size, field)})
        for (int kernel = 0; kernel < 24; ++kernel)
            for (const float a : {inf, -inf, nan, 1e38f, -1e38f, 4e9f, -4e9f, -1e-30f})
                for (const float b : {inf, -inf, nan, 3.25f}) {
                    const float v = sampleAt(proxy, kernel / 8, kernel % 8, {a, b, a});
                    EXPECT_GE(v, -20.001f);
                    EXPECT_LE(v, 20.001f);
                }
    const auto dense = denseChannel(size, field);
    for (int type = 0; type < 3; ++type)
        EXPECT_EQ(sampleAt(dense, type, 0, {nan, nan, nan}), dense.read(0)) << type;
}

TEST(GridSamplers, Masks_ChooseEntriesAndLeaveTheOthersAlone) {
    const Cell3 size{4, 5, 6};
    std::vector<test::Proxy> proxies(35);
    for (int i = 0; i < 35; ++i)
        if (i != 0 && i != 5)
            proxies[i] = denseChannel(size, [i](int, int, int) { return float(i); });
    proxies[7] = treeChannel(kDoubleTree, size, test::everywhere(70));
    proxies[8] = proxies[6];                                       // shared
    proxies[9] = denseChannel({4, 4, 4}, test::everywhere(99));    // a smaller grid
    proxies[10] = denseChannel({60, 2, 1}, test::everywhere(99));  // another shape
    const float position[3] = {1.25f, 2.5f, 3};
    using Set = std::vector<std::pair<int, float>>;
    const struct {
        int count;
        std::uint32_t scalars, vectors;
        Set set;
    } cases[] = {{8, 0xB, 0x70, {{1, 1}, {3, 3}, {4, 4}, {6, 6}}},
                 {11, 0, 0x7C0, {{6, 6}, {7, 70}, {8, 6}}},
                 {4, 0x8, 0, {{3, 3}}},
                 {3, 0x8, 0, {}},
                 {35, 1u << 2, 0, {{2, 2}, {34, 34}}},
                 {35, 0, 0, {}},
                 {0, ~0u, ~0u, {}},
                 {-1, ~0u, ~0u, {}}};
    for (int kernel : {0, 8, 15, 16, 23})
        for (const auto& c : cases) {
            std::vector<float> out(35, kUntouched);
            kSampleKernels[kernel](proxies.data(), position, out.data(), c.count, c.scalars,
                                   c.vectors);
            for (const auto& [i, v] : c.set)
                EXPECT_FLOAT_EQ(out[i], v) << "kernel " << kernel << ", entry " << i;
            EXPECT_EQ(std::count(out.begin(), out.end(), kUntouched), 35 - std::ssize(c.set));
        }
    // Entries without cells are left alone as well.
    test::Proxy none[3];
    none[2] = denseChannel({0, 5, 5}, test::everywhere(1));
    float out[3] = {kUntouched, kUntouched, kUntouched};
    const float position4[4] = {1, 1, 1, 0};
    for (const SampleKernel kernel : kSampleKernels)
        kernel(none, position, out, 3, 7, 0);
    for (const RunKernel kernel : kRunKernels)
        for (const test::Proxy& proxy : none)
            kernel(proxy, &position4, 1, out);
    EXPECT_EQ(std::count(out, out + 3, kUntouched), 3);
    const __m128 lanes = _mm_loadu_ps(position4);
    for (const ThreeKernel kernel : kThreeKernels)
        EXPECT_EQ(_mm_movemask_ps(_mm_cmpeq_ps(kernel(none, lanes), _mm_setzero_ps())) & 7, 7);
    for (const FourKernel kernel : kFourKernels)
        EXPECT_EQ(_mm_cvtss_f32(kernel(none[2], 4, lanes, lanes, lanes, lanes)), 0.0f);
}

TEST(GridSamplers, ManyEntriesAndRuns_EqualOneByOne) {
    const Cell3 size{9, 8, 7};
    test::Proxy proxies[7];
    for (int i = 0; i < 7; ++i) {
        const auto field = [i](int x, int y, int z) { return noiseAt(x, y, z, i); };
        proxies[i] = i % 2 ? treeChannel(kFloatTree, size, field) : denseChannel(size, field);
    }
    for (const auto& p : testPositions(size, 200))
        for (int k = 0; k < 24; ++k) {
            const float run[2][4] = {{p[0], p[1], p[2], 7}, {3.25f, p[0], 2.5f, 7}};
            float all[7], single[7], ofRun[3], second = 0;
            kSampleKernels[k](proxies, p.data(), all, 7, 0xF, 0x70);
            for (int i = 0; i < 7; ++i) {
                kSampleKernels[k](proxies, p.data(), single, 7, 1u << i, 0);
                kSampleKernels[k](proxies + i, run[1], &second, 1, 1, 0);
                ofRun[2] = kUntouched;
                kRunKernels[k](proxies[i], run, 2, ofRun);
                ASSERT_EQ(all[i], single[i]);
                ASSERT_EQ(ofRun[0], single[i]);
                ASSERT_EQ(ofRun[1], second);
                ASSERT_EQ(ofRun[2], kUntouched);
            }
        }
}

TEST(GridSamplers, FourPositionsAndThreeChannels_EqualOneByOne) {
    const Cell3 size{9, 8, 7};
    test::Proxy dense[3], mixed[3];
    for (int i = 0; i < 3; ++i) {
        const auto field = [i](int x, int y, int z) { return noiseAt(x, y, z, i); };
        dense[i] = denseChannel(size, field);
        mixed[i] = i == 1 ? treeChannel(kFloatTree, size, field) : denseChannel(size, field);
    }
    const auto positions = testPositions({7, 6, 5}, 400);
    for (std::size_t n = 0; n + 4 <= positions.size(); n += 4)
        for (int k = 0; k < 24; ++k) {
            __m128 at[4];
            // Shifted, nearly all lie away from the borders.
            const float shift = n % 8 == 0 ? 1.6f : 0.0f;
            for (int i = 0; i < 4; ++i) {
                const auto& p = positions[n + i];
                at[i] = _mm_setr_ps(p[0] + shift, p[1] + shift, p[2] + shift, 7);
            }
            const int count = n % 3 == 0 ? 3 : 4;
            const __m128 four = kFourKernels[k](mixed[n % 2], count, at[0], at[1], at[2], at[3]);
            for (int i = 0; i < 4; ++i) {
                const std::array<float, 3> p{at[i][0], at[i][1], at[i][2]};
                if (i < count) {
                    ASSERT_EQ(four[i], sampleAt(mixed[n % 2], k / 8, k % 8, p));
                }
                for (const test::Proxy* three : {dense, mixed})
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(kThreeKernels[k](three, at[i])[c],
                                  sampleAt(three[c], k / 8, k % 8, p));
            }
        }
}

TEST(VectorKernels, ThreeEntriesByTheSmoothFilter) {
    const Cell3 size{6, 7, 8};
    test::Proxy proxies[8];
    for (int i = 2; i < 8; ++i)
        proxies[i] = denseChannel(size, [i](int x, int y, int z) { return noiseAt(x, y, z, i); });
    for (const auto& p : testPositions(size, 100))
        for (int wrap = 0; wrap < 8; ++wrap) {
            float out[3] = {kUntouched, kUntouched, kUntouched};
            kVectorKernels[wrap](proxies, p.data(), out, 8, ~0u, 0x70);
            for (int k = 0; k < 3; ++k)
                ASSERT_EQ(out[k], sampleAt(proxies[4 + k], kSphericalSampler, wrap, p));
            // Entry 0 isn't loaded, and there are but two bits.
            kVectorKernels[wrap](proxies, p.data(), out, 8, 0, 0x81);
            ASSERT_EQ(out[0], 0.0f);
            ASSERT_EQ(out[1], sampleAt(proxies[7], kSphericalSampler, wrap, p));
            ASSERT_EQ(out[2], 0.0f);
        }
    float out[3] = {1, 1, 1};
    const float position[3] = {1, 1, 1};
    kVectorKernels[0](proxies, position, out, 2, 0, 7);
    EXPECT_TRUE(out[0] == 0 && out[1] == 0 && out[2] == 0);
}

}  // namespace
}  // namespace nimbra
