// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The sampling kernels against plain triple loops over the same voxels, at positions along rays:
// dense arrays against loops over the array, trees against loops over OpenVDB's own accessor.
// Behind the times stand the ratios to the plain loop of the same filter and store.
#include "cache/grid_samplers.h"

#include <benchmark/benchmark.h>
#include <openvdb/openvdb.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cache/tree_access.h"

namespace {

using namespace nimbra;
using Position = std::array<float, 3>;

constexpr int kSize = 100;
constexpr float kStep = 0.8f;

float smokeAt(int x, int y, int z) {
    const float fx = 0.1f * static_cast<float>(x), fy = 0.13f * static_cast<float>(y),
                fz = 0.07f * static_cast<float>(z);
    return 1.5f + std::sin(fx) * std::cos(fy) + 0.5f * std::sin(fz + fx);
}

/// Samples along random rays through the grid, as a march makes them.
const std::vector<Position>& marchPositions() {
    static const std::vector<Position> positions = [] {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> inside(0.5f, float(kSize) - 1.5f), side(-1, 1);
        std::vector<Position> made;
        while (made.size() < 1 << 16) {
            Position p{inside(random), inside(random), inside(random)};
            Position d{side(random), side(random), side(random)};
            const float longest = std::max({std::fabs(d[0]), std::fabs(d[1]), std::fabs(d[2])});
            const auto inGrid = [](float v) { return v > 0.5f && v < float(kSize) - 1.5f; };
            while (inGrid(p[0]) && inGrid(p[1]) && inGrid(p[2])) {
                made.push_back(p);
                for (int a = 0; a < 3; ++a)
                    p[a] += d[a] / longest * kStep;
            }
        }
        return made;
    }();
    return positions;
}

struct Grids {
    GridChannelProxy<float> dense[3], tree[3];
    openvdb::FloatGrid::Ptr vdb[3];

    Grids() {
        const int size[3] = {kSize, kSize, kSize};
        for (int c = 0; c < 3; ++c) {
            dense[c].allocate(size);
            vdb[c] = openvdb::FloatGrid::create(0.0f);
            auto accessor = vdb[c]->getAccessor();
            std::int64_t i = 0;
            for (int z = 0; z < kSize; ++z)
                for (int y = 0; y < kSize; ++y)
                    for (int x = 0; x < kSize; ++x) {
                        const float v = smokeAt(x + 5 * c, y, z);
                        dense[c].write(i++, v);
                        accessor.setValue({x, y, z}, v);
                    }
            TreeSource source;
            source.grid = vdb[c];
            std::copy_n(size, 3, source.size);
            tree[c].attach(newTreeHolder(source), size);
        }
    }
};

Grids& grids() {
    static Grids all;
    return all;
}

// ---- Plain loops --------------------------------------------------------------------------------

/// `n` cells on each axis.
template <class Read>
float plainLinear(const Position& p, int n, Read read) {
    int cell[3];
    float weight[3][2];
    for (int a = 0; a < 3; ++a) {
        const float q = std::clamp(p[a], 0.0f, float(n - 1));
        cell[a] = static_cast<int>(q);
        const float t = q - static_cast<float>(cell[a]);
        weight[a][0] = 1 - t;
        weight[a][1] = t;
    }
    float sum = 0;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i)
                sum += weight[0][i] * weight[1][j] * weight[2][k] *
                       read(std::min(cell[0] + i, n - 1), std::min(cell[1] + j, n - 1),
                            std::min(cell[2] + k, n - 1));
    return sum;
}

template <class Read>
float plainSpherical(const Position& p, int n, Read read) {
    int cell[3];
    float weight[3][3];
    for (int a = 0; a < 3; ++a) {
        const int c = std::clamp(static_cast<int>(std::floor(p[a] + 0.5f)), 1, n - 2);
        cell[a] = c - 1;
        const float t = p[a] - (static_cast<float>(c) - 0.5f);
        weight[a][0] = t * t / 2 - t + 0.5f;
        weight[a][1] = t - t * t + 0.5f;
        weight[a][2] = t * t / 2;
    }
    float sum = 0;
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i)
                sum += weight[0][i] * weight[1][j] * weight[2][k] *
                       read(cell[0] + i, cell[1] + j, cell[2] + k);
    return sum;
}

template <bool Spherical, class Read>
void plainLoop(benchmark::State& state, Read read) {
    int n = kSize;
    benchmark::DoNotOptimize(n);  // a size that the compiler doesn't know, as with real grids
    for (auto _ : state)
        for (const Position& p : marchPositions())
            benchmark::DoNotOptimize(Spherical ? plainSpherical(p, n, read)
                                               : plainLinear(p, n, read));
    state.SetItemsProcessed(state.iterations() * std::ssize(marchPositions()));
}

template <bool Spherical>
void plainDense(benchmark::State& state) {
    const GridStorage& s = *grids().dense[0].storage;
    plainLoop<Spherical>(state, [&s, v = s.voxels.data](int x, int y, int z) {
        return v[(std::int64_t(z) * s.size[1] + y) * s.size[0] + x];
    });
}

template <bool Spherical>
void plainTree(benchmark::State& state) {
    const auto accessor = grids().vdb[0]->getConstAccessor();
    plainLoop<Spherical>(state, [&](int x, int y, int z) { return accessor.getValue({x, y, z}); });
}

// ---- Kernels ------------------------------------------------------------------------------------

template <int Type, bool Tree, int Channels>
void kernel(benchmark::State& state) {
    const GridChannelProxy<float>* const proxies = Tree ? grids().tree : grids().dense;
    const SampleKernel sample = kSampleKernels[Type * 8];
    const std::uint32_t mask = (1u << Channels) - 1;
    float out[3] = {};
    for (auto _ : state)
        for (const Position& p : marchPositions()) {
            sample(proxies, p.data(), out, Channels, mask, 0);
            benchmark::DoNotOptimize(out);
        }
    state.SetItemsProcessed(state.iterations() * std::ssize(marchPositions()));
}

BENCHMARK(plainDense<false>)->Name("linear/dense/plain");
BENCHMARK(kernel<kLinearSampler, false, 1>)->Name("linear/dense/kernel");
BENCHMARK(kernel<kLinearSampler, false, 3>)->Name("linear/dense/kernel of 3 channels");
BENCHMARK(plainTree<false>)->Name("linear/tree/plain");
BENCHMARK(kernel<kLinearSampler, true, 1>)->Name("linear/tree/kernel");
BENCHMARK(kernel<kLinearSampler, true, 3>)->Name("linear/tree/kernel of 3 channels");
BENCHMARK(plainDense<true>)->Name("spherical/dense/plain");
BENCHMARK(kernel<kSphericalSampler, false, 1>)->Name("spherical/dense/kernel");
BENCHMARK(kernel<kSphericalSampler, false, 3>)->Name("spherical/dense/kernel of 3 channels");
BENCHMARK(plainTree<true>)->Name("spherical/tree/plain");
BENCHMARK(kernel<kSphericalSampler, true, 1>)->Name("spherical/tree/kernel");
BENCHMARK(kernel<kSphericalSampler, true, 3>)->Name("spherical/tree/kernel of 3 channels");
BENCHMARK(kernel<kBoxSampler, false, 1>)->Name("box/dense/kernel");
BENCHMARK(kernel<kBoxSampler, true, 1>)->Name("box/tree/kernel");

/// Keeps the times, for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration)
                keep(run.run_name.function_name, run.GetAdjustedCPUTime());
    }
    void printRatios() const {
        for (const auto& [name, time] : times_) {
            const std::string group = name.substr(0, name.rfind('/'));
            const auto plain = times_.find(group + "/plain");
            std::printf("%-40s %6.2f ns a sample", name.c_str(),
                        time / static_cast<double>(marchPositions().size()));
            if (plain != times_.end())
                std::printf(", %.2f of the plain loop", time / plain->second);
            std::printf("\n");
        }
    }

private:
    void keep(const std::string& name, double time) {
        const auto [at, isNew] = times_.try_emplace(name, time);
        if (!isNew)
            at->second = std::min(at->second, time);
    }
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}
