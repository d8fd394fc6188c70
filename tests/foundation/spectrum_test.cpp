// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/spectrum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tessra/thread_manager.h"

namespace NMBUtils {
namespace {

/// A filter given by a function of the squared frequency.
struct LowPass final : Spectrum<3> {
    float width;
    explicit LowPass(float filterWidth, TessUtils::ThreadManager* manager = nullptr)
        : Spectrum<3>(manager), width(filterWidth) {}
    float response(const float f[3]) const override {
        const float squared = f[0] * f[0] + f[1] * f[1] + f[2] * f[2];
        return width > 0 ? width * width / (squared + width * width) : 1.0f;
    }
};

TEST(CosSpectrum, Line_IsTheCosineSum) {
    SpectrumArray<1> array;
    const int size[1] = {16};
    ASSERT_TRUE(array.resize(size));
    std::vector<double> x(16);
    std::mt19937 engine(1);
    std::uniform_real_distribution<float> uniform(-1, 1);
    for (int i = 0; i < 16; ++i)
        x[std::size_t(i)] = array.data()[i] = uniform(engine);
    CosSpectrum<1> transform(array);
    ASSERT_TRUE(transform.transform(0, 1));
    for (int k = 0; k < 16; ++k) {
        double sum = x[0] + (k % 2 ? -1 : 1) * x[15];
        for (int j = 1; j < 16; ++j)
            sum += 2 * x[std::size_t(j)] * std::cos(M_PI * j * k / 16);
        // The angles are off by 5e-8 of a half turn, some 15 of them in the last terms.
        EXPECT_NEAR(array.data()[k], sum, 2e-5) << k;
    }
}

TEST(Spectrum, UnitResponse_GivesSmoothDataBack) {
    LowPass filter(0);
    const int wanted[3] = {16, 1, 8};
    ASSERT_TRUE(filter.array.resize(wanted));
    const auto value = [](int x, int z) {
        return 2 + std::cos(float(M_PI) * float(x) / 16) * std::cos(float(M_PI) * float(z) / 8);
    };
    for (int z = 0; z < 8; ++z)
        for (int x = 0; x < 16; ++x)
            filter.array.data()[z * 16 + x] = value(x, z);
    ASSERT_TRUE(filter.filter());
    // What is lost is the highest frequency, to which the kink at the mirror gives about 1 /
    // size^2.
    for (int z = 0; z < 8; ++z)
        for (int x = 0; x < 16; ++x)
            EXPECT_NEAR(filter.array.data()[z * 16 + x], value(x, z), 0.03f);
}

TEST(Spectrum, ManyThreads_GiveTheSameValues) {
    const auto filtered = [](TessUtils::ThreadManager* manager) {
        LowPass filter(0.1f, manager);
        const int wanted[3] = {8, 16, 4};
        EXPECT_TRUE(filter.array.resize(wanted));
        std::mt19937 engine(3);
        std::generate_n(filter.array.data(), filter.array.count(),
                        [&] { return static_cast<float>(engine() % 1000); });
        EXPECT_TRUE(filter.filter());
        return std::vector(filter.array.data(), filter.array.data() + filter.array.count());
    };
    TessUtils::ThreadManager* const manager = TessUtils::newThreadManager(3);
    EXPECT_EQ(filtered(manager), filtered(nullptr));
    TessUtils::deleteThreadManager(manager);
}

TEST(SpectrumArray, TooLarge_IsRefused) {
    SpectrumArray<3> array;
    const int huge[3] = {1 << 29, 1 << 29, 1 << 29}, odd[3] = {0x7FFFFFFF, 1, 1};
    EXPECT_FALSE(array.resize(huge));
    EXPECT_FALSE(array.resize(odd));
}

}  // namespace
}  // namespace NMBUtils
