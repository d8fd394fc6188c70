// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frames of .kol files: from packed channels to floats, against zlib on the same channel and
// against plain copies; loading without voxels by the size of the payload; memory of a frame of
// which one channel is used. Bytes per second are those of the floats that come out.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "kol_writer/kol_writer.h"
#include "tessra/thread_manager.h"

namespace {

using namespace nimbra;
using Bytes = std::vector<std::uint8_t>;

constexpr int kSide = 256;
constexpr std::int64_t kCells = std::int64_t(kSide) * kSide * kSide;

enum Content : std::int64_t {
    kPlume,  // a third of the box has smoke, as in most caches
    kFilled  // no empty cell
};

float noiseAt(std::uint32_t x) {
    x = (x ^ x >> 16) * 0x7FEB352Du;
    x = (x ^ x >> 15) * 0x846CA68Bu;
    return static_cast<float>(x >> 8) * 0x1p-24f;
}

/// Billows with some grain, 0 to 2.
std::vector<float> makeSmoke(Content content) {
    std::vector<float> voxels(kCells);
    const auto wave = [](float v) { return std::sin(v); };
    std::size_t i = 0;
    for (int z = 0; z < kSide; ++z)
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x, ++i) {
                const auto fx = static_cast<float>(x), fy = static_cast<float>(y);
                const auto fz = static_cast<float>(z);
                const float swirl = wave(fx * 0.05f + 2 * wave(fz * 0.031f)) +
                                    wave(fy * 0.043f + wave(fx * 0.07f)) +
                                    0.4f * wave(fx * 0.21f + fy * 0.17f + 2 * wave(fz * 0.19f)) +
                                    0.1f * noiseAt(static_cast<std::uint32_t>(i));
                const float r = std::hypot(fx - 128, fy - 128) / (40 + fz * 0.25f);
                const float body = content == kFilled ? 1.3f : 1.6f * (1 - r);
                voxels[i] = std::max(0.0f, body + 0.25f * swirl);
            }
    return voxels;
}

const std::vector<float>& smoke(Content content) {
    static const std::vector<float> made[] = {makeSmoke(kPlume), makeSmoke(kFilled)};
    return made[content];
}

Bytes packed(Content content, int bits, int zones, NMBUtils::SymbolForm form) {
    NMBUtils::ZoneEncoding encoding;
    encoding.bits = bits;
    encoding.form = form;
    Bytes out;
    NMBUtils::encodeStream(smoke(content).data(), smoke(content).size(), zones, encoding, out);
    return out;
}

void countFloats(benchmark::State& state, std::size_t packedBytes) {
    state.SetBytesProcessed(state.iterations() * kCells * 4);
    state.counters["packed_share"] = static_cast<double>(packedBytes) / (kCells * 4.0);
}

void decode(benchmark::State& state, const Bytes& stream, TessUtils::ThreadManager* threads) {
    NMBUtils::SGCompressor<1> decoder(-1, threads);
    std::vector<float> out(kCells + 4);
    for (auto _ : state)
        if (!decoder.Decode(stream.data(), stream.size(), out.data(), out.size()))
            state.SkipWithError("can't be decoded");
    countFloats(state, stream.size());
}

/// Content, bits, 1 for the table form.
void BM_Quantised(benchmark::State& state) {
    using NMBUtils::SymbolForm;
    decode(state,
           packed(static_cast<Content>(state.range(0)), static_cast<int>(state.range(1)), 1,
                  state.range(2) ? SymbolForm::Table : SymbolForm::Direct),
           nullptr);
}

/// Content, zones; two threads.
void BM_QuantisedZones(benchmark::State& state) {
    const std::unique_ptr<TessUtils::ThreadManager, void (*)(TessUtils::ThreadManager*)> threads(
        TessUtils::newThreadManager(2), TessUtils::deleteThreadManager);
    decode(state,
           packed(static_cast<Content>(state.range(0)), 10, static_cast<int>(state.range(1)),
                  NMBUtils::SymbolForm::Table),
           threads.get());
}

void BM_Raw(benchmark::State& state) {
    decode(state, packed(kFilled, 20, 1, {}), nullptr);
}

void BM_Memcpy(benchmark::State& state) {
    const std::vector<float>& from = smoke(kFilled);
    std::vector<float> out(kCells + 4);
    for (auto _ : state) {
        std::memcpy(out.data(), from.data(), kCells * 4);
        benchmark::ClobberMemory();
    }
    countFloats(state, kCells * 4);
}

/// The floats that a quantised channel gives, deflated and inflated again. Content, bits.
void BM_Inflate(benchmark::State& state) {
    const Bytes stream = packed(static_cast<Content>(state.range(0)),
                                static_cast<int>(state.range(1)), 1, NMBUtils::SymbolForm::Table);
    std::vector<float> out(kCells + 4);
    NMBUtils::SGCompressor<1>().Decode(stream.data(), stream.size(), out.data(), out.size());
    uLongf size = compressBound(kCells * 4);
    Bytes deflated(size);
    compress(deflated.data(), &size, reinterpret_cast<const Bytef*>(out.data()), kCells * 4);
    for (auto _ : state) {
        uLongf inflated = kCells * 4;
        if (uncompress(reinterpret_cast<Bytef*>(out.data()), &inflated, deflated.data(), size) !=
            Z_OK)
            state.SkipWithError("can't be inflated");
    }
    countFloats(state, size);
}

/// A file in the temporary folder, gone with the object.
class KolFile {
public:
    explicit KolFile(const KolWriter& writer)
        : path_("/tmp/bench_kol_" + std::to_string(getpid()) + ".kol") {
        std::string problem;
        if (!writer.writeFile(path_, problem))
            std::fprintf(stderr, "%s\n", problem.c_str());
    }
    ~KolFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

constexpr float kUnit[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};

/// MB of grid payload.
void BM_HeaderOnly(benchmark::State& state) {
    KolWriter writer;
    const std::int32_t size[3] = {kSide, kSide, kSide};
    writer.setGrid(size, kUnit);
    writer.addRecord(kSmoke, Bytes(static_cast<std::size_t>(state.range(0)) << 20));
    const KolFile file(writer);
    for (auto _ : state) {
        NimbraFrameData frame;
        if (frame.load(file.path(), "", 0, -1, true, true) != kLoadOk)
            state.SkipWithError("can't be loaded");
    }
}

/// Memory of this process, in MB.
double residentMegabytes() {
    std::ifstream in("/proc/self/statm");
    std::int64_t total = 0, resident = 0;
    in >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

/// 20 channels, of which one is used.
void BM_OneChannelOfTwenty(benchmark::State& state) {
    KolWriter writer;
    const std::int32_t size[3] = {kSide, kSide, kSide};
    writer.setGrid(size, kUnit);
    const Bytes stream = packed(kPlume, 10, 1, NMBUtils::SymbolForm::Table);
    for (int c = 1; c <= 21; ++c)
        if (c != kPackedColor) {
            writer.addRecord(c, stream);
            writer.setMaskBit(c, true);
        }
    const KolFile file(writer);
    const double before = residentMegabytes();
    for (auto _ : state) {
        NimbraFrameData frame;
        if (frame.load(file.path(), "", 0, -1, true, false) != kLoadOk ||
            !frame.getChannelData(kSmoke))
            state.SkipWithError("can't be loaded");
        state.counters["grown_MB"] = residentMegabytes() - before;
    }
    state.counters["packed_MB"] = static_cast<double>(writer.gridBytes()) / (1 << 20);
    state.counters["channel_MB"] = kCells * 4.0 / (1 << 20);
}

BENCHMARK(BM_Quantised)
    ->ArgNames({"content", "bits", "table"})
    ->ArgsProduct({{kPlume, kFilled}, {8, 10, 14}, {1}})
    ->Args({kPlume, 10, 0})
    ->Args({kFilled, 10, 0})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuantisedZones)
    ->ArgNames({"content", "zones"})
    ->ArgsProduct({{kPlume, kFilled}, {1, 2, 4}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_Raw)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Inflate)
    ->ArgNames({"content", "bits"})
    ->ArgsProduct({{kPlume, kFilled}, {10}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeaderOnly)->ArgName("MB")->Arg(0)->Arg(16)->Arg(512)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OneChannelOfTwenty)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
