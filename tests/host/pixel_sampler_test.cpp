// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/pixel_sampler.h"

#include <gtest/gtest.h>

#include <vector>

namespace nimbra::host {
namespace {

TEST(PixelSampler, Numbers_AreAFunctionOfPixelSampleAndDimension) {
    PixelSampler a, b;
    a.start(7, 12, 34, 5);
    b.start(7, 12, 34, 5);
    for (int i = 0; i < 100; ++i) {
        const float value = a.next();
        EXPECT_EQ(value, b.next());
        EXPECT_TRUE(value >= 0 && value < 1) << value;
    }
    // Drawing more before a jump changes nothing behind it.
    a.next();
    a.jumpTo(3);
    b.jumpTo(3);
    EXPECT_EQ(a.next(), b.next());
    // Nor do dimensions that are left out, or the sample that the pixel was begun with.
    a.start(7, 12, 34, 6);
    a.next();
    a.startSample(5);
    a.skipPair();
    b.startSample(5);
    b.next();
    b.next();
    EXPECT_EQ(a.next(), b.next());
}

TEST(PixelSampler, EveryPairOfDimensions_IsStratifiedInAllShapes) {
    // 64 points of a (0,2)-sequence fill each 1/64 of the square, whatever its shape, once.
    for (int pixel = 0; pixel < 20; ++pixel)
        for (int pair = 0; pair < 6; ++pair)
            for (int columns = 1; columns <= 64; columns *= 2) {
                const int rows = 64 / columns;
                std::vector<int> counts(64);
                for (int s = 0; s < 64; ++s) {
                    PixelSampler sampler;
                    sampler.start(1, pixel, 3 * pixel, s);
                    float u = 0, v = 0;
                    for (int d = 0; d <= pair; ++d) {
                        u = sampler.next();
                        v = sampler.next();
                    }
                    ++counts[static_cast<int>(u * columns) * rows + static_cast<int>(v * rows)];
                }
                for (const int count : counts)
                    ASSERT_EQ(count, 1)
                        << "pixel " << pixel << " pair " << pair << " columns " << columns;
            }
}

}  // namespace
}  // namespace nimbra::host
