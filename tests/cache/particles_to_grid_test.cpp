// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Liquid surfaces out of particles: golden values, a slow reference, colours, and what happens
// without particles, channels or memory.
#include "cache/particles_to_grid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "cache/liquid_fit.h"
#include "cache/prt_group.h"
#include "cache/test_grids.h"
#include "cache/test_jobs.h"
#include "support/golden.h"
#include "tessra/allocator.h"
#include "tessra/math.h"

namespace nimbra {
namespace {

using namespace test;
using Field = std::vector<float>;
using TessUtils::dot;
using TessUtils::length;
using TessUtils::Vector;

constexpr std::uint32_t kSurface = channelBit(kTemperature);
constexpr std::uint32_t kColors = 7u << kColorR;

/// A frame of these sizes with a surface channel full of 9 and some particles.
struct LiquidFrame : NimbraFrameData {
    explicit LiquidFrame(const Cell3& cells, const Field& positions,
                         const char* groupName = "Liquid") {
        std::copy_n(cells.data(), 3, gridSize);
        addChannel(kTemperature);
        liquid = addGroup(groupName);
        liquid->count = static_cast<std::int32_t>(positions.size() / 3);
        liquid->setChannel(kPrtPosition, positions.data());
    }
    void addChannel(int channel) {
        channels[channel] = denseChannel({gridSize[0], gridSize[1], gridSize[2]}, everywhere(9));
    }
    void addColors(const Field& colors) {
        liquid->setChannel(kPrtColor, colors.data());
        for (int c = kColorR; c <= kColorB; ++c)
            addChannel(c);
    }
    Field values(int channel = kTemperature) const {
        const float* const v = channels[channel].denseVoxels();
        return {v, v + voxelCount(gridSize)};
    }
    PGroup* liquid;
};

/// The surface's values on a grid, with a number of threads.
Field surfaceOf(const Cell3& size, const Field& positions, int threads = 0) {
    const Threads lent(threads);
    LiquidFrame frame(size, positions);
    EXPECT_EQ(liquidParticlesToGrid(frame), kSurface);
    return frame.values();
}

TEST(ParticlesToGrid, GoldenValues_WhateverTheThreads) {
    for (const GoldenCase& golden : goldenCases("liquid")) {
        SCOPED_TRACE(golden.name());
        const nlohmann::json& j = golden.json;
        const Field positions = readNpy<float>(golden.file(j["positions"]["file"])).values;
        const Field got = surfaceOf(j["size"], positions);
        EXPECT_TRUE(areNear(got, readNpy<float>(golden.file(j["expected"]["file"])).values,
                            Tolerance(j["tolerance"])));
        EXPECT_EQ(surfaceOf(j["size"], positions, 4), got);
    }
}

/// One voxel's value out of the offsets of the particles in reach.
float referenceValue(const std::vector<Vector>& near) {
    if (near.size() < 2)
        return near.empty() ? 0 : std::max(1 - length(near[0]), 0.0f);
    Vector u;
    for (const Vector& d : near)
        u = u - d;
    if (length(u) == 0)
        return 1;
    u = u * (1 / length(u));
    float t = 0;
    for (int i = 0; i < 10; ++i) {
        float a = 0, b = 0;
        for (const Vector& d : near) {
            const float q = dot(d - u * t, u);
            const float w = 1 / (q * q + 0.0625f);
            a += w * (q + 0.5f);
            b += w;
        }
        t += a / b;
        if (std::fabs(a / b) < 0.01f)
            break;
    }
    const float value = t + 0.5f;
    const auto inCube = [](const Vector& d) {
        return std::min({d.x, d.y, d.z}) >= 0 && std::max({d.x, d.y, d.z}) < 0.5f;
    };
    if (value < 0 && std::any_of(near.begin(), near.end(), inCube))
        return 0;
    return std::min(value, 1.0f);
}

/// The whole grid, each voxel from all particles around it.
Field reference(const Cell3& size, const Field& positions) {
    const Cell3 half = {(size[0] + 1) / 2, (size[1] + 1) / 2, (size[2] + 1) / 2};
    std::map<Cell3, std::vector<Vector>> cells;
    for (std::size_t i = positions.size(); i > 0; i -= 3) {
        const Vector p = Vector{positions[i - 3], positions[i - 2], positions[i - 1]} * 0.5f;
        cells[{int(std::floor(p.x)), int(std::floor(p.y)), int(std::floor(p.z))}].push_back(p);
    }
    Field out;
    forEachCell(size, [&](int vx, int vy, int vz) {
        const Cell3 h = {vx / 2, vy / 2, vz / 2};
        bool allFull = true, allEmpty = true;
        std::vector<Vector> near;
        forEachCell({3, 3, 3}, [&](int nx, int ny, int nz) {
            const Cell3 place = {h[0] + nx - 1, h[1] + ny - 1, h[2] + nz - 1};
            Cell3 cell;
            Vector corner;  // of the voxel, where the clamped cell seems to lie
            for (std::size_t a = 0; a < 3; ++a) {
                cell[a] = std::clamp(place[a], 0, half[a] - 1);
                corner[int(a)] = float(h[a]) - float(place[a] - cell[a]);
            }
            const std::vector<Vector>& list = cells[cell];
            if (place == cell) {
                allFull = allFull && list.size() >= 6;
                allEmpty = allEmpty && list.empty();
            }
            for (const Vector& p : list) {
                const Vector d =
                    p - corner - Vector{float(vx & 1), float(vy & 1), float(vz & 1)} * 0.5f;
                if (!(dot(d, d) > 1))
                    near.push_back(d);
            }
        });
        out.push_back(allFull ? 1 : allEmpty ? 0 : referenceValue(near));
    });
    return out;
}

Field scattered(const Cell3& size, int count, std::uint32_t seed) {
    std::mt19937 random(seed);
    Field positions;
    for (int i = 0; i < count; ++i)
        for (std::size_t a = 0; a < 3; ++a)
            positions.push_back(static_cast<float>(random() % 4096) / 4096.0f *
                                    static_cast<float>(size[a] + 2) -
                                1);
    return positions;
}

// Odd and small sizes, from a few particles to lists that outgrow their first room.
TEST(ParticlesToGrid, Values_AreThoseOfEachVoxelForItself) {
    for (const auto& [size, count] : {std::pair<Cell3, int>{{9, 7, 8}, 12},
                                      {{9, 7, 8}, 300},
                                      {{11, 5, 6}, 1500},
                                      {{1, 1, 1}, 3},
                                      {{2, 1, 5}, 9},
                                      {{3, 4, 3}, 9000},
                                      {{13, 12, 11}, 900}}) {
        // A half-filled box and crowded corners, so that full, partial and empty cells meet.
        Field positions = scattered(size, count, 7);
        for (std::size_t i = 2; i < positions.size(); i += 3)
            positions[i] *= 0.5f;
        const Field expected = reference(size, positions);
        for (int threads : {0, 3}) {
            const Field got = surfaceOf(size, positions, threads);
            ASSERT_EQ(got.size(), expected.size());
            // Both add up in single precision, in different orders.
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_NEAR(got[i], expected[i], 2e-5f)
                    << size[0] << " x " << size[1] << ", " << count << ", voxel " << i;
        }
    }
}

// Reading by groups must not leave a list that is full to its last place.
TEST(ParticlesToGrid, Lists_OfAllLengths) {
    using namespace ParticlesToGrid;
    const float origin[3] = {0, 0, 0};
    for (std::int64_t n = 2; n < 300; ++n) {
        const Field coordinates(static_cast<std::size_t>(n + kGroup), 0.25f);
        const float* const positions[3] = {coordinates.data(), coordinates.data(),
                                           coordinates.data()};
        OffsetLists lists;
        lists.add(positions, n, origin, origin);
        float values[kVoxels];
        surfaceValues(lists, values);
        const std::vector<Vector> near(static_cast<std::size_t>(n), {0.125f, 0.125f, 0.125f});
        ASSERT_EQ(lists.list(0).count, n);
        ASSERT_NEAR(values[0], referenceValue(near), 1e-5f) << n;
    }
}

TEST(ParticlesToGrid, ParticlesOutside_AreDropped) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float odd[] = {-0.001f, 10, 1e30f, -1e30f, kInfinity, -kInfinity, std::nanf("")};
    Field positions;
    for (float v : odd)
        positions.insert(positions.end(), {v, 4, 4, 4, v, 4, 4, 4, v});
    EXPECT_EQ(surfaceOf({9, 9, 9}, positions), Field(729, 0.0f));
}

TEST(ParticlesToGrid, NothingToDo_LeavesTheFrameAsItIs) {
    const Field positions = {2, 2, 2};
    for (const char* name : {"liquid", "Liquid ", "Foam"}) {
        LiquidFrame frame({5, 5, 5}, positions, name);
        EXPECT_EQ(liquidParticlesToGrid(frame), 0u) << name;
        EXPECT_EQ(frame.values(), Field(125, 9.0f));
    }
    LiquidFrame empty({5, 5, 5}, {}), withoutChannel({5, 5, 5}, positions);
    withoutChannel.freeChannel(kTemperature);
    NimbraFrameData bare;
    for (NimbraFrameData* frame :
         std::initializer_list<NimbraFrameData*>{&empty, &withoutChannel, &bare})
        EXPECT_EQ(liquidParticlesToGrid(*frame), 0u);
    EXPECT_EQ(empty.values(), Field(125, 9.0f));
}

// A voxel's colour spreads one voxel up on each axis, then over two faces; beyond that there is
// none.
TEST(ParticlesToGrid, Colours_ReachTwoVoxelsBeyondTheSpread) {
    for (int threads : {0, 3}) {
        const Threads lent(threads);
        // Just 1 above the half cell's corner is still the lower voxel, more is the upper one.
        LiquidFrame frame({11, 11, 11}, {5.0f, 5.001f, 4.5f});
        frame.addColors({1, 2, 4});
        liquidParticlesToGrid(frame);
        const int low[3] = {4, 5, 4};
        for (int channel = 0; channel < 3; ++channel) {
            const Field values = frame.values(kColorR + channel);
            for (int i = 0; i < 1331; ++i) {
                const int cell[3] = {i % 11, i / 11 % 11, i / 121};
                int faces = 0;
                for (int a = 0; a < 3; ++a)
                    faces += std::max({low[a] - cell[a], cell[a] - low[a] - 1, 0});
                ASSERT_EQ(values[static_cast<std::size_t>(i)], faces <= 2 ? 1 << channel : 0) << i;
            }
        }
    }
}

// Worked out by hand on a row of voxels, where steps along y and z are never taken.
TEST(ParticlesToGrid, ChannelValues_AreMeansOfTheFlaggedVoxels) {
    using namespace ParticlesToGrid;
    // Voxels 0, 1 and 6 of nine; the last one of an odd row has no upper voxel.
    const Field positions = {0.5f, 0, 0, 0.75f, 0, 0, 1.5f, 0, 0, 6, 0, 0, 9.5f, 0, 0};
    const Field values = {2, 4, 7, 16, 32};
    const int size[3] = {9, 1, 1};
    for (auto mode : {ParticleChannelToGridMT::kVectors, ParticleChannelToGridMT::kFloats}) {
        const int components = mode == ParticleChannelToGridMT::kVectors ? 3 : 1;
        Field entries;
        for (float v : values)
            for (int c = 1; c <= components; ++c)
                entries.push_back(v * static_cast<float>(c));
        const BasePrtHolder particles(positions.data(), entries.data(), components);
        HalfGrid grid;
        ASSERT_TRUE(grid.allocate(size, 5));
        ParticlesToHalfGridMT(particles, grid).start(nullptr);
        Field out(static_cast<std::size_t>(9 * components));
        std::vector<std::uint8_t> flags(9);
        ParticleChannelToGridMT(mode, particles, grid, out.data(), flags.data()).Start();
        // Splat 3 7 - - - - 16 - 32; spread 3 5 7 - - - 16 16 32; then from the sides.
        const Field expected = {3, 5, 7, 7, 11.5f, 16, 16, 16, 32};
        for (std::size_t i = 0; i < 9; ++i)
            for (std::size_t c = 0; c < static_cast<std::size_t>(components); ++c)
                EXPECT_EQ(out[i * static_cast<std::size_t>(components) + c],
                          expected[i] * static_cast<float>(c + 1))
                    << i << ", " << c;
        EXPECT_EQ(flags, std::vector<std::uint8_t>(9, 1));
    }
}

TEST(ParticlesToGrid, Stopped_WritesNoFurther) {
    const Threads lent(3);
    LiquidFrame frame({9, 9, 9}, {2, 2, 2});
    frame.addColors({1, 2, 4});
    Stop stop;
    liquidParticlesToGrid(frame, &stop);
    for (const int channel : {kTemperature, kColorR})
        EXPECT_EQ(frame.values(channel), Field(729, 9.0f));
}

TEST(ParticlesToGrid, WithoutMemory_WhatIsFilledIsTold) {
    const Cell3 size = {7, 7, 7};
    const Field positions = scattered(size, 600, 3), colors(1800, 2.0f);
    const Field whole = surfaceOf(size, positions);
    int none = 0, surface = 0, all = 0;
    for (std::uint64_t n = 1; n <= 60; ++n) {
        LiquidFrame frame(size, positions);
        frame.addColors(colors);
        std::uint32_t filled = 0;
        getGlobalMemoryTracker()->failAllocation(n);
        try {
            filled = liquidParticlesToGrid(frame);
        } catch (const std::bad_alloc&) {  // of the threads themselves
        }
        getGlobalMemoryTracker()->failAllocation(0);
        none += filled == 0;
        surface += filled == kSurface;
        all += filled == (kSurface | kColors) && frame.values() == whole;
        EXPECT_TRUE((filled & kColors) || frame.values(kColorR) == Field(343, 9.0f)) << n;
    }
    EXPECT_GE(none, 2);     // the cells, the lists
    EXPECT_GE(surface, 4);  // the vectors, the flags, a job's buffers
    EXPECT_GE(all, 1);
}

}  // namespace
}  // namespace nimbra
