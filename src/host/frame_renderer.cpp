// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/frame_renderer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

#include "tessra/allocator.h"
#include "tessra/renderer.h"

namespace nimbra::host {

using TessUtils::Color;

namespace {

/// Place of cell `index` on a Hilbert curve that fills a square of `size` (a power of two):
/// neighbours on the curve are neighbours in the picture, so that threads share what they read.
void hilbertCell(std::uint64_t index, std::uint32_t size, std::uint32_t& x, std::uint32_t& y) {
    x = y = 0;
    for (std::uint32_t s = 1; s < size; s *= 2) {
        const auto right = static_cast<std::uint32_t>(1 & (index / 2));
        const auto up = static_cast<std::uint32_t>(1 & (index ^ right));
        if (up == 0) {
            if (right == 1) {
                x = s - 1 - x;
                y = s - 1 - y;
            }
            std::swap(x, y);
        }
        x += s * right;
        y += s * up;
        index /= 4;
    }
}

struct Tile {
    int x0, y0, x1, y1;
};

/// A strip of tiles is cut into squares, each with a curve of its own: one curve around all of it
/// would run almost everywhere outside.
std::vector<Tile> makeTiles(const CropWindow& window, int tileSize) {
    const auto count = [tileSize](int pixels) {
        return static_cast<std::uint32_t>((pixels + tileSize - 1) / tileSize);
    };
    const std::uint32_t columns = count(window.x1 - window.x0), rows = count(window.y1 - window.y0);
    std::uint32_t size = 1;
    while (size < std::min(columns, rows))
        size *= 2;
    const std::uint32_t squares = (std::max(columns, rows) + size - 1) / size;
    const std::uint64_t cells = std::uint64_t(size) * size;
    std::vector<Tile> tiles;
    tiles.reserve(std::size_t(columns) * std::size_t(rows));
    for (std::uint64_t i = 0; i < cells * squares; ++i) {
        std::uint32_t column, row;
        hilbertCell(i % cells, size, column, row);
        (columns > rows ? column : row) += static_cast<std::uint32_t>(i / cells) * size;
        if (column >= columns || row >= rows)
            continue;
        const int x = window.x0 + static_cast<int>(column) * tileSize;
        const int y = window.y0 + static_cast<int>(row) * tileSize;
        tiles.push_back(
            {x, y, std::min(x + tileSize, window.x1), std::min(y + tileSize, window.y1)});
    }
    return tiles;
}

/// Offsets from a pixel's centre, in pixels, whose density is the filter: all samples then weigh
/// the same, and no pixel needs its neighbours' samples.
class FilterOffsets {
public:
    FilterOffsets(PixelFilter filter, float width)
        : filter_(filter),
          half_(width * 0.5f),
          scale_(half_ / 2.5f * kLogisticScale),
          tail_(1 / (1 + std::exp(2.5f / kLogisticScale))) {}

    float at(float u) const {
        switch (filter_) {
            case PixelFilter::Box:
                return (2 * u - 1) * half_;
            case PixelFilter::Triangle:
                return u < 0.5f ? (std::sqrt(2 * u) - 1) * half_
                                : (1 - std::sqrt(2 - 2 * u)) * half_;
            case PixelFilter::Gaussian: {
                const float inside = tail_ + u * (1 - 2 * tail_);
                return std::clamp(scale_ * std::log(inside / (1 - inside)), -half_, half_);
            }
        }
        return 0;
    }

private:
    // A logistic density stands in for the Gaussian of the same deviation, since its inverse has a
    // closed form; sqrt(3)/pi is its scale for deviation 1. It is cut at 2.5 deviations.
    static constexpr float kLogisticScale = 0.5513289f;

    PixelFilter filter_;
    float half_;
    float scale_;
    float tail_;  // what lies beyond the cut on either side
};

bool isFinite(const SampleValue& value) {
    return std::isfinite(value.color.r) && std::isfinite(value.color.g) &&
           std::isfinite(value.color.b) && std::isfinite(value.alpha);
}

/// The threads of one frame and what they share.
class TileCrew {
public:
    TileCrew(const FrameRenderJob& job, const CropWindow& window,
             const std::vector<std::string>& layers, FrameBuffer& out)
        : job_(job),
          out_(out),
          tiles_(makeTiles(window, std::max(1, job.settings.tileSize))),
          offsets_(job.settings.pixelFilter, job.settings.filterWidth),
          layers_(layers.size()),
          depthLayer_(static_cast<std::size_t>(std::find(layers.begin(), layers.end(), "Z") -
                                               layers.begin())) {}

    void run(FrameRenderResult& result) {
        runThreads();
        result.cameraSamples = samples_.load();
        result.invalidSamples = invalid_.load();
        if (failed_.load()) {
            result.status = RenderStatus::Failed;
            result.error = error_.empty() ? kOutOfMemory : error_;
            result.outOfMemory = outOfMemory_;
        } else if (done_.load() < tiles_.size()) {
            result.status = RenderStatus::Aborted;
        }
    }

private:
    static constexpr const char* kOutOfMemory = "out of memory while rendering";

    void runThreads() {
        std::vector<std::jthread> threads;
        try {
            startThreads(threads);
            wait(static_cast<int>(threads.size()));
        } catch (...) {
            // No use to go on; the threads are waited for on the way out.
            failed_.store(true);
            throw;
        }
    }

    void startThreads(std::vector<std::jthread>& threads) {
        const int wanted = std::clamp(job_.threadCount, 1, TessUtils::kMaxRenderThreads);
        threads.reserve(static_cast<std::size_t>(wanted));
        for (int i = 0; i < wanted; ++i) {
            try {
                threads.emplace_back([this, i] { work(i); });
            } catch (const std::system_error& error) {
                // Fewer threads render the same picture.
                if (threads.empty())
                    fail("no render thread could be started: ", error.what(), false);
                break;
            }
        }
    }

    /// Reports progress until all threads are through; the last report tells what they did.
    void wait(int count) {
        std::unique_lock lock(mutex_);
        while (finishedThreads_ < count) {
            changed_.wait_for(lock, std::chrono::milliseconds(100));
            lock.unlock();
            reportProgress();
            lock.lock();
        }
        lock.unlock();
        if (toldShare_ != doneShare())
            reportProgress();
    }

    double doneShare() const {
        return tiles_.empty()
                   ? 1.0
                   : static_cast<double>(done_.load()) / static_cast<double>(tiles_.size());
    }

    void reportProgress() {
        toldShare_ = doneShare();
        if (job_.progress)
            job_.progress(toldShare_);
    }

    bool stopped() const {
        return failed_.load(std::memory_order_relaxed) || (job_.abort && job_.abort->requested());
    }

    void work(int threadIndex) {
        vallocInitializeForCurrentThread();
        try {
            renderTiles(threadIndex);
        } catch (const std::bad_alloc&) {
            fail(kOutOfMemory, "", true);
        } catch (const std::exception& error) {
            fail("rendering failed: ", error.what(), false);
        } catch (...) {
            fail("rendering failed", "", false);
        }
        vallocTerminateForCurrentThread();
        std::lock_guard lock(mutex_);
        ++finishedThreads_;
        changed_.notify_one();
    }

    /// Without memory for the text the first failure counts as one of memory.
    void fail(const char* what, const char* why, bool outOfMemory) noexcept {
        std::lock_guard lock(mutex_);
        if (failed_.exchange(true))
            return;
        outOfMemory_ = outOfMemory;
        try {
            error_ = std::string(what) + why;
        } catch (const std::bad_alloc&) {
            error_.clear();
            outOfMemory_ = true;
        }
    }

    void renderTiles(int threadIndex) {
        Scratch scratch;
        scratch.value.layers.resize(layers_);
        scratch.layerSums.resize(layers_);
        while (!stopped()) {
            const std::size_t index = next_.fetch_add(1);
            if (index >= tiles_.size())
                return;
            if (!renderTile(tiles_[index], threadIndex, scratch))
                return;
            keep(tiles_[index], scratch.pixels);
            done_.fetch_add(1);
        }
    }

    /// What one thread needs again for every tile.
    struct Scratch {
        SampleValue value;
        std::vector<double> layerSums;
        std::vector<float> pixels;  // of the tile: colour, alpha and layers of each
    };

    bool renderTile(const Tile& tile, int threadIndex, Scratch& scratch) {
        std::uint64_t invalid = 0;
        scratch.pixels.clear();
        for (int y = tile.y0; y < tile.y1; ++y)
            for (int x = tile.x0; x < tile.x1; ++x) {
                if (!renderPixel(x, y, threadIndex, scratch, invalid))
                    return false;
            }
        samples_.fetch_add(std::uint64_t(tile.x1 - tile.x0) * std::uint64_t(tile.y1 - tile.y0) *
                           std::uint64_t(std::max(1, job_.settings.samples)));
        invalid_.fetch_add(invalid);
        return true;
    }

    /// False when the render is to stop; else the tile has one pixel more. Adds the samples that
    /// were not finite to `invalid`.
    bool renderPixel(int x, int y, int threadIndex, Scratch& scratch, std::uint64_t& invalid) {
        const RenderSettings& settings = job_.settings;
        const int count = std::max(1, settings.samples);
        double sums[4] = {};
        std::fill(scratch.layerSums.begin(), scratch.layerSums.end(), 0.0);
        if (depthLayer_ < layers_)
            scratch.layerSums[depthLayer_] = double(kNoDepth) * count;
        PixelSampler random;
        random.start(settings.seed, x, y, 0);
        SampleValue& value = scratch.value;
        for (int s = 0; s < count; ++s) {
            if (stopped())
                return false;
            random.startSample(s);
            CameraSample sample;
            sample.x = static_cast<float>(x) + 0.5f + offsets_.at(random.next());
            sample.y = static_cast<float>(y) + 0.5f + offsets_.at(random.next());
            sample.sample = s;
            sample.threadIndex = threadIndex;
            sample.random = &random;
            value.color = {};
            value.alpha = 0;
            std::fill(value.layers.begin(), value.layers.end(), 0.0f);
            job_.tracer->radiance(sample, value);
            if (!isFinite(value)) {
                ++invalid;
                continue;
            }
            limitIntensity(value.color);
            for (int c = 0; c < 3; ++c)
                sums[c] += value.color[c];
            sums[3] += value.alpha;
            for (std::size_t c = 0; c < layers_; ++c)
                addLayer(c, value.layers[c], count, scratch.layerSums[c]);
        }
        store(sums, 1.0 / count, scratch);
        return true;
    }

    /// Values are averaged; of depths the least counts, since a mean of two would lie where nothing
    /// is.
    void addLayer(std::size_t channel, float value, int count, double& sum) const {
        if (!std::isfinite(value))
            return;
        sum = channel == depthLayer_ ? std::min(sum, double(value) * count) : sum + value;
    }

    void limitIntensity(Color& color) const {
        const float limit = job_.settings.maxRayIntensity;
        const float most = color.maxComponent();
        if (limit > 0 && most > limit)
            color = color * (limit / most);
    }

    static void store(const double* sums, double weight, Scratch& scratch) {
        for (int c = 0; c < 4; ++c)
            scratch.pixels.push_back(static_cast<float>(sums[c] * weight));
        for (const double sum : scratch.layerSums)
            scratch.pixels.push_back(static_cast<float>(sum * weight));
    }

    /// Puts a finished tile into the picture.
    void keep(const Tile& tile, const std::vector<float>& pixels) {
        std::lock_guard lock(mutex_);
        const std::size_t stride = 4 + layers_;
        for (std::size_t c = 0; c < out_.channels.size(); ++c) {
            const float* value = pixels.data() + c;
            for (int y = tile.y0; y < tile.y1; ++y)
                for (int x = tile.x0; x < tile.x1; ++x, value += stride)
                    out_.channels[c].set(out_.index(x, y), *value);
        }
    }

    const FrameRenderJob& job_;
    FrameBuffer& out_;
    const std::vector<Tile> tiles_;
    const FilterOffsets offsets_;
    const std::size_t layers_;
    const std::size_t depthLayer_;
    std::atomic<std::size_t> next_{0}, done_{0};
    double toldShare_ = -1;
    std::atomic<std::uint64_t> samples_{0}, invalid_{0};
    std::atomic<bool> failed_{false};

    std::mutex mutex_;
    std::condition_variable changed_;
    int finishedThreads_ = 0;
    std::string error_;
    bool outOfMemory_ = false;
};

CropWindow wholeOrCrop(const FrameRenderJob& job) {
    const CropWindow whole{0, 0, job.settings.width, job.settings.height};
    if (job.crop.empty())
        return whole;
    return {std::max(job.crop.x0, 0), std::max(job.crop.y0, 0), std::min(job.crop.x1, whole.x1),
            std::min(job.crop.y1, whole.y1)};
}

}  // namespace

FrameRenderResult renderFrame(const FrameRenderJob& job, FrameBuffer& out) {
    FrameRenderResult result;
    const auto start = std::chrono::steady_clock::now();
    const CropWindow window = wholeOrCrop(job);
    if (window.empty()) {
        result.status = RenderStatus::Failed;
        result.error = "the part of the picture to render is empty";
        return result;
    }
    try {
        const std::vector<std::string> layers = job.tracer->layerNames();
        out.resize(job.settings.width, job.settings.height, window.x0, window.y0,
                   window.x1 - window.x0, window.y1 - window.y0,
                   job.needs.layers ? layers : std::vector<std::string>(), job.needs.colors);
        TileCrew(job, window, layers, out).run(result);
    } catch (const std::bad_alloc&) {
        result.status = RenderStatus::Failed;
        result.outOfMemory = true;
        result.error = "out of memory for a picture of " + std::to_string(job.settings.width) +
                       " x " + std::to_string(job.settings.height) + " pixels";
    }
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

}  // namespace nimbra::host
