// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "textures/ocean.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "textures/ocean_math.h"

namespace nimbra {
namespace {

using TessUtils::Vector;
using Change = std::function<void(OceanSettings&)>;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Sea : Ocean {
    explicit Sea(const Change& change) {
        OceanSettings settings;
        change(settings);
        setup(settings);
    }
};

bool sameBits(const Vector& a, const Vector& b) {
    const auto same = [](float x, float y) {
        return (std::isnan(x) && std::isnan(y)) ||
               std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y);
    };
    return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
}

struct Place {
    float x, y, time, filter;
};

/// Near and far, before and after the first moment, with filters around the waves' lengths.
std::vector<Place> places(int count) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> side(-1, 1), scale(-1, 5);
    std::vector<Place> made;
    for (int i = 0; i < count; ++i) {
        const float size = std::pow(10.0f, scale(random));
        made.push_back({side(random) * size, side(random) * size, side(random) * 20,
                        i % 3 ? std::exp(3 * side(random)) - 1 : 0.0f});
    }
    return made;
}

TEST(Ocean, VectorCode_GivesTheBitsOfThePlainCode) {
    const std::pair<const char*, Change> cases[] = {
        {"vectors", [](OceanSettings&) {}},
        {"heights", [](OceanSettings& s) { s.vector = false; }},
        {"many bands", [](OceanSettings& s) { s.lod = 37; }},
        {"one band, blunt", [](OceanSettings& s) { s.lod = 1, s.vector = false, s.sharpness = 0; }},
        {"steep", [](OceanSettings& s) { s.vector = false, s.sharpness = 1.2f; }},
        {"loop", [](OceanSettings& s) { s.animMode = kOceanLoop, s.loopLength = 3; }},
        {"sparse", [](OceanSettings& s) { s.bell = 1.4f, s.velcoh = 0; }},
        {"beyond numbers", [](OceanSettings& s) { s.lod = 500, s.velcoh = -1; }},
        {"no wind", [](OceanSettings& s) { s.wind = 0; }},
    };
    for (const WaveletCode& code : waveletCodes())
        for (const auto& [name, change] : cases) {
            const Sea ocean(change);
            for (const Place& p : places(150)) {
                const Vector plain = ocean.evaluateBy(sumWaveletsPlain, p.x, p.y, p.time, p.filter);
                const Vector fast = ocean.evaluateBy(code.kernel, p.x, p.y, p.time, p.filter);
                ASSERT_TRUE(sameBits(plain, fast))
                    << name << " with " << code.name << " at " << p.x << " " << p.y << ": "
                    << plain.z << " and " << fast.z;
            }
        }
}

TEST(Ocean, Loop_ComesBackAndMovesOnSmoothly) {
    const float length = 2.5f;
    for (const bool vector : {false, true}) {
        const Sea ocean([&](OceanSettings& s) {
            s.vector = vector, s.sharpness = 0.5f;
            s.animMode = kOceanLoop, s.loopLength = length;
        });
        float largestStep = 0, seam = 0;
        for (int i = 0; i < 200; ++i) {
            const float x = static_cast<float>(i) * 0.37f, y = static_cast<float>(i) * -0.11f;
            const auto height = [&](float time) { return ocean.evaluate(x, y, time, 0).z; };
            EXPECT_NEAR(height(0.3f), height(0.3f + 2 * length), 1e-4f);
            EXPECT_NEAR(height(-0.5f), height(length - 0.5f), 2e-4f);
            largestStep = std::max(largestStep, std::fabs(height(1.02f) - height(1.0f)));
            seam = std::max(seam, std::fabs(height(length - 0.01f) - height(length + 0.01f)));
        }
        EXPECT_LT(seam, largestStep * 1.5f);
        EXPECT_GT(largestStep, 0.001f);
    }
}

TEST(Ocean, Filter_FadesBandsOutOneAfterTheOther) {
    const auto sea = [](int lod) {
        return Sea([&](OceanSettings& s) { s.vector = false, s.lod = lod; });
    };
    const Sea full = sea(10);
    const auto lengthOf = [&](int band) { return ocean::kTwoPi / full.waves[band].waveNumber; };
    for (const Place& p : places(50)) {
        const auto at = [&](const Ocean& ocean, float filter) {
            return ocean.evaluate(p.x, p.y, 1, filter).z;
        };
        EXPECT_EQ(at(full, 0), at(full, -1));
        EXPECT_EQ(at(full, 0), at(full, lengthOf(9)));
        // A filter of a band's own length leaves all bands up to it, and no other.
        EXPECT_NEAR(at(full, lengthOf(5)), at(sea(6), 0), 1e-6f);
        // Half way to the band before, half of the band is left.
        const float between = 0.5f * (lengthOf(4) + lengthOf(5));
        EXPECT_NEAR(at(full, between), 0.5f * (at(sea(5), 0) + at(sea(6), 0)), 1e-5f);
        // All but the last eight bands stay, whatever the filter.
        EXPECT_EQ(at(full, 1e9f), at(sea(2), 0));
        EXPECT_NEAR(at(sea(1), 2 * lengthOf(0)), 0.5f * at(sea(1), 0), 1e-7f);
    }
}

TEST(Ocean, Settings_OutOfAllBoundsEndInAFlatSeaOrNone) {
    EXPECT_EQ(Sea([](OceanSettings& s) { s.lod = -5; }).waves.size, 0);
    EXPECT_EQ(Sea([](OceanSettings& s) { s.lod = 2000000000; }).waves.size, 1024);
    const Sea calm([](OceanSettings& s) { s.wind = 0, s.vector = false; });
    const Sea gapless([](OceanSettings& s) { s.bell = 1.5f; });
    const Sea fine([](OceanSettings& s) { s.lod = 1000; });
    EXPECT_EQ(calm.choppiness, 0);
    EXPECT_EQ(gapless.latticeDensity, 0);
    for (const Place& p : places(300)) {
        EXPECT_NEAR(calm.evaluate(p.x, p.y, p.time, 0).z, 0, 1e-12f);
        EXPECT_TRUE(std::isfinite(gapless.evaluate(p.x, p.y, p.time, 0).x));
        EXPECT_TRUE(std::isfinite(fine.evaluate(p.x, p.y, p.time, p.filter).z));
    }
    // No cell is found so far out.
    for (const float far : {1e30f, -kInfinity, NAN})
        EXPECT_EQ(gapless.vectorMode ? fine.evaluate(far, 1, 0, 0).z : 1, 0);
}

}  // namespace
}  // namespace nimbra
