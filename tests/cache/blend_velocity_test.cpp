// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The search for sources, many cells at once, against one cell after the other.
#include "cache/blend_velocity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "cache/grid_samplers.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "foundation/memory.h"
#include "tessra/math.h"

namespace nimbra {
namespace {

using namespace test;
using TessUtils::dot;
using TessUtils::Vector;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Scene {
    Cell3 sizeA, sizeB;
    Cell3 offset;  // of b in cells of a
    float timeStep;
    float noise;  // factor of noise from -20 to 20, beside waves of height 1
    bool hostile = false;
};

/// Two frames of waves, noise and empty space.
class Search {
public:
    explicit Search(const Scene& scene) : scene_(scene) {
        a_.timeStep = scene.timeStep;
        for (int i = 0; i < 3; ++i) {
            blend_.shiftA[i] = std::min(0, scene.offset[i]);
            blend_.shiftB[i] = blend_.shiftA[i] - scene.offset[i];
            dst_.gridSize[i] =
                std::max(scene.sizeA[i], scene.sizeB[i] + scene.offset[i]) - blend_.shiftA[i];
        }
        for (int c : {2, 4, 5, 6})
            a_.channels[c] = channel(scene.sizeA, c);
        b_.channels[kSmoke] = channel(scene.sizeB, 1);
        dst_.channels[kSmoke].allocate(dst_.gridSize);
        blend_.channels = channelBit(kSmoke);
    }
    std::vector<float> sources() {
        std::vector<float> found(static_cast<std::size_t>(voxelCount(dst_.gridSize)) * 3);
        EXPECT_TRUE(MTCalcBlendSource(blend_).search(kSmoke, found.data()));
        return found;
    }
    /// The frames with a weight of 0.3, blended by these sources.
    void blend(bool recompute, float* (&sources)[kChannelSlots], Stop* stop = nullptr) {
        blend_.weight = 0.3f;
        blend_.stop = stop;
        EXPECT_TRUE(blendAlongVelocity(blend_, recompute, sources));
    }
    std::vector<float> plainSources() const {
        std::vector<float> found;
        for (int z = 0; z < dst_.gridSize[2]; ++z)
            for (int y = 0; y < dst_.gridSize[1]; ++y)
                for (int x = 0; x < dst_.gridSize[0]; ++x) {
                    const Vector p = plainSource({x, y, z});
                    found.insert(found.end(), {p.x, p.y, p.z});
                }
        return found;
    }

    /// The blend by these sources with a weight of 0.3.
    std::vector<float> values(std::vector<float>& sources) {
        float* lists[kChannelSlots] = {};
        lists[kSmoke] = sources.data();
        blend_.weight = 0.3f;
        MTInterpUsingVelocity(blend_, lists).interpolate();
        return valuesOf(dst_.channels[kSmoke]);
    }
    std::vector<float> plainValues(const std::vector<float>& sources) const {
        std::vector<float> values;
        const float rest = 1.0f - 0.3f;
        const float* source = sources.data();
        for (int z = 0; z < dst_.gridSize[2]; ++z)
            for (int y = 0; y < dst_.gridSize[1]; ++y)
                for (int x = 0; x < dst_.gridSize[0]; ++x) {
                    float p[3];
                    for (int i = 0; i < 3; ++i)
                        p[i] = *source++ * 0.3f + static_cast<float>((i == 0   ? x
                                                                      : i == 1 ? y
                                                                               : z) +
                                                                     blend_.shiftA[i]) *
                                                      rest;
                    kSampleKernels[kLinearSampler * 8](&a_.channels[kSmoke], p,
                                                       &values.emplace_back(), 1, 1, 0);
                }
        return values;
    }

private:
    Proxy channel(const Cell3& size, int seed) const {
        return denseChannel(size, [&](int x, int y, int z) {
            constexpr float kHostile[] = {kNan, kInfinity, -kInfinity, -0.0f, 3e38f, 1e-40f, 2e9f};
            const int dice = noiseAt(x, y, z, seed + 50);
            if (scene_.hostile && dice >= 14)
                return kHostile[dice - 14];
            const auto wave = [&](int i) { return std::sin(0.4f * static_cast<float>(i + seed)); };
            if (((x / 9 + y / 5 + z / 5) & 3) == 0)
                return 0.0f;
            return wave(x + y) * wave(z) +
                   scene_.noise * static_cast<float>(noiseAt(x, y, z, seed));
        });
    }
    static float valueAt(const Proxy& channel, const Cell3& size, const Cell3& cell) {
        for (int i = 0; i < 3; ++i)
            if (cell[i] < 0 || cell[i] >= size[i])
                return 0;
        return channel.read((std::int64_t(cell[2]) * size[1] + cell[1]) * size[0] + cell[0]);
    }
    Vector plainSource(const Cell3& cell) const {
        Cell3 inA, inB;
        for (int i = 0; i < 3; ++i) {
            inA[i] = cell[i] + blend_.shiftA[i];
            inB[i] = cell[i] + blend_.shiftB[i];
        }
        const Proxy& field = a_.channels[kSmoke];
        const float value = valueAt(b_.channels[kSmoke], scene_.sizeB, inB);
        Vector back, p, slope;
        for (int i = 0; i < 3; ++i) {
            back[i] = valueAt(a_.channels[4 + i], scene_.sizeA, inA) * -a_.timeStep;
            p[i] = static_cast<float>(inA[i]) + back[i] * 0.5f;
        }
        const Vector start = p, unit = back * (1 / std::sqrt(dot(back, back)));
        Vector best = p;
        float least = kInfinity;
        for (int round = 0; round < 20; ++round) {
            const float position[3] = {p.x, p.y, p.z};
            float error = 0;
            kSampleKernels[kLinearSampler * 8](&field, position, &error, 1, 1, 0);
            error -= value;
            if (std::fabs(error) < least) {
                least = std::fabs(error);
                best = p;
            }
            Cell3 near;
            for (int i = 0; i < 3; ++i) {
                const float rounded = std::floor(p[i] + 0.5f);
                if (!(rounded >= 0 && rounded < static_cast<float>(scene_.sizeA[i])))
                    return best;
                near[i] = static_cast<int>(rounded);
            }
            for (int i = 0; i < 3; ++i) {
                Cell3 next = near;
                slope[i] = ++next[i] == scene_.sizeA[i] ? 0
                                                        : valueAt(field, scene_.sizeA, next) -
                                                              valueAt(field, scene_.sizeA, near);
            }
            const float steepness = dot(slope, slope);
            if (steepness >= 0.0001f) {
                const Vector step = slope * (error / steepness * 0.7f);
                const float square = dot(step, step);
                p = p - (square > 1 ? step * (1 / std::sqrt(square)) : step);
            } else if (dot(p - start, p - start) >= dot(back, back)) {
                break;
            } else {
                p += unit;
            }
        }
        return best;
    }

    const Scene scene_;
    NimbraFrameData a_, b_, dst_;
    GridBlend blend_{.dst = dst_, .a = a_, .b = b_};
};

/// Of NaN only that it is one.
void expectSameBits(const std::vector<float>& found, const std::vector<float>& expected) {
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        const bool same = std::memcmp(&found[i], &expected[i], sizeof(float)) == 0 ||
                          (std::isnan(found[i]) && std::isnan(expected[i]));
        ASSERT_TRUE(same) << found[i] << ", not " << expected[i] << " at " << i;
    }
}

TEST(BlendAlongVelocity, DenseChannels_HaveTheBitsOfOneCellAfterTheOther) {
    for (const Scene& scene : {Scene{{270, 6, 5}, {270, 6, 5}, {}, 1, 0},
                               Scene{{37, 9, 11}, {30, 12, 8}, {4, -2, 5}, -2.5f, 0.02f},
                               Scene{{33, 7, 8}, {20, 7, 9}, {-6, 3, -1}, 0.5f, 0.4f, true},
                               Scene{{19, 8, 8}, {19, 8, 8}, {}, 1e30f, 0.1f},
                               Scene{{19, 8, 8}, {19, 8, 8}, {}, kNan, 0.1f, true},
                               Scene{{19, 8, 8}, {19, 8, 8}, {1, 0, 0}, 0, 0.004f},
                               Scene{{2, 60, 9}, {2, 60, 9}, {0, 3, 0}, 1, 0.1f},
                               Scene{{1, 30, 30}, {1, 30, 30}, {}, 1, 0.1f},
                               Scene{{90, 1, 5}, {90, 2, 5}, {0, -1, 0}, 1, 0.1f},
                               Scene{{90, 5, 1}, {90, 5, 2}, {0, 0, -1}, 1, 0.1f},
                               Scene{{3, 3, 3}, {3, 3, 3}, {20, 20, 20}, 1, 0.1f}}) {
        Search search(scene);
        SCOPED_TRACE(testing::Message() << scene.sizeA[0] << " x " << scene.sizeA[1]);
        const std::vector<float> expected = search.plainSources();
        const std::vector<float> expectedValues = search.plainValues(expected);
        for (int threads : {1, 2, 4}) {
            const Threads lent(threads);
            std::vector<float> found = search.sources();
            expectSameBits(found, expected);
            expectSameBits(search.values(found), expectedValues);
        }
    }
}

TEST(BlendAlongVelocity, Sources_AreKeptSearchedAgainOrGivenBack) {
    Search search({{40, 9, 9}, {40, 9, 9}, {}, 1, 0});
    float* sources[kChannelSlots] = {};
    search.blend(true, sources);
    float*& kept = sources[kSmoke];
    ASSERT_NE(kept, nullptr);
    const float found = std::exchange(kept[100], 77.0f);
    search.blend(false, sources);
    EXPECT_EQ(kept[100], 77);
    search.blend(true, sources);
    EXPECT_EQ(kept[100], found);
    for (int questions : {0, 1, 2}) {
        Stop stop(questions);
        search.blend(true, sources, &stop);
        EXPECT_EQ(kept, nullptr) << "a search that was stopped";
        search.blend(false, sources);
        EXPECT_EQ(kept[100], found) << "what is missing is searched";
    }
    NMBUtils::freeMem(kept);
}

}  // namespace
}  // namespace nimbra
