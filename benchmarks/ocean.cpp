// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Points per second of a sea of ten bands, on one and two threads, by the plain code and by
// the vector code of each instruction set, whose values are compared first. Behind the times stand
// the ratios to the plain code.
#include "textures/ocean.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {

using nimbra::Ocean;
using nimbra::WaveletKernel;

constexpr int kSide = 256;        // points of a grid
constexpr float kSpacing = 0.5f;  // metres

const Ocean& sea(bool vector) {
    static const auto make = [](Ocean& ocean, bool vectorMode) {
        nimbra::OceanSettings settings;
        settings.vector = vectorMode;
        ocean.setup(settings);
        return true;
    };
    static Ocean seas[2];
    static const bool made = make(seas[0], false) && make(seas[1], true);
    benchmark::DoNotOptimize(made);
    return seas[vector];
}

template <class Use>
void forGrid(const Ocean& ocean, WaveletKernel kernel, const Use& use) {
    for (int j = 0; j < kSide; ++j)
        for (int i = 0; i < kSide; ++i)
            use(ocean.evaluateBy(kernel, static_cast<float>(i) * kSpacing,
                                 static_cast<float>(j) * kSpacing, 1.5f, 0));
}

void points(benchmark::State& state, bool vector, WaveletKernel kernel) {
    const Ocean& ocean = sea(vector);
    for (auto _ : state)
        forGrid(ocean, kernel, [](const TessUtils::Vector& v) { benchmark::DoNotOptimize(v); });
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

bool sameValues(bool vector, WaveletKernel kernel) {
    const Ocean& ocean = sea(vector);
    for (int i = 0; i < kSide * kSide; ++i) {
        const float x = static_cast<float>(i % kSide) * kSpacing;
        const float y = static_cast<float>(i / kSide) * kSpacing;
        const TessUtils::Vector a = ocean.evaluateBy(nimbra::sumWaveletsPlain, x, y, 1.5f, 0);
        const TessUtils::Vector b = ocean.evaluateBy(kernel, x, y, 1.5f, 0);
        if (std::memcmp(&a, &b, sizeof a) != 0)
            return false;
    }
    return true;
}

/// Keeps the best rates, for the ratios: by the clock, and by the processor time of a thread, which
/// doesn't suffer from what else runs on the machine.
class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration)
                keep(run);
    }
    void printRatios() const {
        for (const auto& [name, rate] : rates_) {
            std::printf("%-36s %6.3f million points a second by the clock, %6.3f per core",
                        name.c_str(), rate.byClock * 1e-6, rate.perCore * 1e-6);
            const std::size_t from = name.find('/'), to = name.find('/', from + 1);
            const auto plain = rates_.find(name.substr(0, from) + "/plain" + name.substr(to));
            if (plain != rates_.end() && plain->first != name)
                std::printf(", %.2f times the plain code", rate.perCore / plain->second.perCore);
            std::printf("\n");
        }
    }

private:
    struct Rate {
        double byClock = 0, perCore = 0;
    };
    void keep(const Run& run) {
        Rate& best = rates_[run.benchmark_name()];
        best.byClock = std::max(best.byClock, double(run.counters.at("items_per_second")));
        const double points = static_cast<double>(run.iterations) * kSide * kSide;
        best.perCore = std::max(best.perCore, points / run.cpu_accumulated_time);
    }
    std::map<std::string, Rate> rates_;
};

void enlist(bool vector, const std::string& name, WaveletKernel kernel) {
    const std::string full = (vector ? "vectors/" : "heights/") + name;
    for (const int threads : {1, 2})
        benchmark::RegisterBenchmark(full.c_str(), points, vector, kernel)
            ->Threads(threads)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (const bool vector : {false, true}) {
        enlist(vector, "plain", nimbra::sumWaveletsPlain);
        for (const nimbra::WaveletCode& code : nimbra::waveletCodes()) {
            if (!sameValues(vector, code.kernel)) {
                std::printf("%s gives other values than the plain code\n", code.name);
                return 1;
            }
            enlist(vector, code.name, code.kernel);
        }
    }
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}
