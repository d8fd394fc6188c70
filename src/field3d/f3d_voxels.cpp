// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_voxels.h"

#include <fmt/format.h>

#include <algorithm>

#include "cache/bounded_reader.h"
#include "field3d/scalar_stream.h"

namespace nimbra {

namespace {

using Index3 = std::array<std::int64_t, 3>;

/// Puts runs of cells into the targets. Places count from the window's low corner; what sticks out
/// of the window is dropped.
class CellWriter {
public:
    CellWriter(const F3dLayer& layer, const std::vector<F3dTarget>& targets)
        : components_(layer.components) {
        for (int a = 0; a < 3; ++a)
            size_[a] = layer.window.size(a);
        for (const F3dTarget& t : targets) {
            Place place{t.voxels, t.box.size(0), t.box.size(0) * t.box.size(1), t.component,
                        t.scale};
            place.first += layer.window.low[0] - t.box.low[0] +
                           (layer.window.low[1] - t.box.low[1]) * place.strideY +
                           (layer.window.low[2] - t.box.low[2]) * place.strideZ;
            places_.push_back(place);
        }
    }
    const Index3& size() const { return size_; }

    /// `count` scalars from component `component` of the cell `at` on, along x, as the file has
    /// them: all components of a cell, then the next cell.
    void run(const Index3& at, int component, const float* values, std::int64_t count) const {
        if (at[1] >= size_[1] || at[2] >= size_[2])
            return;
        for (const Place& p : places_) {
            // The first scalar of the wanted component, and its cell.
            const std::int64_t skip = (p.component - component + components_) % components_;
            std::int64_t x = at[0] + (component + skip) / components_;
            float* out = p.row(at[1], at[2]);
            for (std::int64_t i = skip; i < count && x < size_[0]; i += components_, ++x)
                out[x] = values[i] * p.scale;
        }
    }
    /// A box of cells of one value, one float for each component.
    void fill(const Index3& at, const Index3& box, const float* values) const {
        Index3 end;
        for (int a = 0; a < 3; ++a)
            end[a] = std::min(at[a] + box[a], size_[a]);
        for (const Place& p : places_)
            for (std::int64_t z = at[2]; z < end[2]; ++z)
                for (std::int64_t y = at[1]; y < end[1]; ++y)
                    std::fill(p.row(y, z) + at[0], p.row(y, z) + end[0],
                              values[p.component] * p.scale);
    }
    /// One component of one cell.
    void cell(const Index3& at, int component, float value) const {
        for (const Place& p : places_)
            if (p.component == component)
                p.row(at[1], at[2])[at[0]] = value * p.scale;
    }
    bool wants(int component) const {
        return std::any_of(places_.begin(), places_.end(),
                           [&](const Place& p) { return p.component == component; });
    }

private:
    struct Place {
        float* first;
        std::int64_t strideY, strideZ;
        int component;
        float scale;
        float* row(std::int64_t y, std::int64_t z) const {
            return first + y * strideY + z * strideZ;
        }
    };
    int components_;
    Index3 size_;
    std::vector<Place> places_;
};

/// Takes the scalars of a box in order, x fastest, and cuts them into runs.
class BoxStream {
public:
    BoxStream(const CellWriter& writer, F3dElement element, int components)
        : writer_(writer), element_(element), components_(components) {}
    void begin(const Index3& at, const Index3& size) {
        at_ = at;
        size_ = size;
        place_ = 0;
    }
    /// True once the box is full.
    bool full() const { return place_ == size_[0] * size_[1] * size_[2] * components_; }
    /// Takes from the front of the bytes what the box has room for; answers what is left.
    std::span<const std::byte> take(std::span<const std::byte> bytes) {
        const std::uint64_t scalar = elementBytes(element_);
        const auto room =
            static_cast<std::uint64_t>(size_[0] * size_[1] * size_[2] * components_ - place_);
        const auto count = static_cast<std::int64_t>(std::min(room, bytes.size() / scalar));
        const auto taken = static_cast<std::size_t>(count) * scalar;
        toNumbers(element_, bytes.first(taken), numbers_);
        const std::int64_t rowLength = size_[0] * components_;
        for (std::int64_t done = 0; done < count;) {
            const std::int64_t row = place_ / rowLength, inRow = place_ % rowLength;
            const std::int64_t length = std::min(rowLength - inRow, count - done);
            const std::int64_t x = inRow / components_;
            writer_.run({at_[0] + x, at_[1] + row % size_[1], at_[2] + row / size_[1]},
                        static_cast<int>(inRow % components_), numbers_.data() + done, length);
            done += length;
            place_ += length;
        }
        return bytes.subspan(taken);
    }

private:
    const CellWriter& writer_;
    F3dElement element_;
    int components_;
    Index3 at_{}, size_{};
    std::int64_t place_ = 0;
    std::vector<float> numbers_;
};

class VoxelReader {
public:
    VoxelReader(F3dFile& file, const F3dLayer& layer, const std::vector<F3dTarget>& targets)
        : container_(file.container()),
          limit_(largestExpansion(file.bytes())),
          layer_(layer),
          targets_(targets),
          writer_(layer, targets) {}

    bool run() {
        switch (layer_.storage) {
            case F3dClass::Dense:
                return readDense();
            case F3dClass::Sparse:
                return readSparse();
            case F3dClass::Mac:
                return readFaces(0, "u_data") && readFaces(1, "v_data") && readFaces(2, "w_data");
            default:
                return fail("has no values");
        }
    }
    std::string problem;

private:
    bool fail(const std::string& text) {
        problem = text;
        return false;
    }
    bool read(const char* name, std::uint64_t rows, std::uint64_t rowBytes, const F3dSink& sink) {
        const F3dDataset* const data = layer_.body->dataset(name);
        if (!data || data->rows != rows)
            return fail(
                fmt::format("has {} rows of '{}', {} are due", data ? data->rows : 0, name, rows));
        return container_.read(*data, 0, rows, rowBytes, sink) || fail(container_.problem());
    }
    std::uint64_t scalars(std::uint64_t cells) const {
        return cells * static_cast<std::uint64_t>(layer_.components);
    }

    bool readDense() {
        BoxStream stream(writer_, layer_.element, layer_.components);
        stream.begin({0, 0, 0}, writer_.size());
        return read("data", 1, scalars(layer_.voxels()) * elementBytes(layer_.element),
                    [&](std::span<const std::byte> bytes) { stream.take(bytes); });
    }

    /// Which blocks are stored, and the values of those that aren't.
    bool readBlockTable(std::vector<std::uint8_t>& stored, std::vector<float>& values) {
        const std::uint64_t count = layer_.blockCount();
        if (scalars(count) > limit_)
            return fail("has more blocks than the file can hold");
        const auto takeFlags = [&](std::span<const std::byte> bytes) {
            for (const std::byte b : bytes)
                stored.push_back(b != std::byte(0));
        };
        std::vector<float> numbers;
        const auto takeValues = [&](std::span<const std::byte> bytes) {
            toNumbers(layer_.element, bytes, numbers);
            values.insert(values.end(), numbers.begin(), numbers.end());
        };
        if (!read("block_is_allocated_data", 1, count, takeFlags) ||
            !read("block_empty_value_data", 1, scalars(count) * elementBytes(layer_.element),
                  takeValues))
            return false;
        const auto occupied =
            static_cast<std::uint64_t>(std::count(stored.begin(), stored.end(), 1));
        return occupied == layer_.occupiedBlocks ||
               fail(fmt::format("marks {} blocks as stored, {} are due", occupied,
                                layer_.occupiedBlocks));
    }

    Index3 blockPlace(std::uint64_t block) const {
        const auto i = static_cast<std::int64_t>(block);
        const Index3& n = layer_.blocks;
        const std::int64_t edge = std::int64_t(1) << layer_.blockOrder;
        return {i % n[0] * edge, i / n[0] % n[1] * edge, i / n[0] / n[1] * edge};
    }

    bool readSparse() {
        std::vector<std::uint8_t> stored;
        std::vector<float> values;
        if (!readBlockTable(stored, values))
            return false;
        fillOutside(values.data());
        const std::int64_t edge = std::int64_t(1) << layer_.blockOrder;
        const Index3 size = {edge, edge, edge};
        const auto components = static_cast<std::uint64_t>(layer_.components);
        for (std::uint64_t b = 0; b < stored.size(); ++b)
            if (!stored[b])
                writer_.fill(blockPlace(b), size, &values[b * components]);
        if (layer_.occupiedBlocks == 0)
            return true;

        BoxStream stream(writer_, layer_.element, layer_.components);
        std::uint64_t block = 0;
        const auto nextStored = [&] {
            while (block < stored.size() && !stored[block])
                ++block;
            if (block < stored.size())
                stream.begin(blockPlace(block), size);
        };
        nextStored();
        const auto takeBlocks = [&](std::span<const std::byte> bytes) {
            while (!bytes.empty() && block < stored.size()) {
                bytes = stream.take(bytes);
                if (!stream.full())
                    break;
                ++block;
                nextStored();
            }
        };
        const auto blockCells = static_cast<std::uint64_t>(edge * edge * edge);
        return read("data", layer_.occupiedBlocks,
                    scalars(blockCells) * elementBytes(layer_.element), takeBlocks);
    }

    /// A sparse field goes on beyond its window with the value of its corner, which for a signed
    /// distance says outside.
    void fillOutside(const float* values) {
        for (const F3dTarget& t : targets_)
            if (!(t.box == layer_.window)) {
                const std::int64_t cells = t.box.size(0) * t.box.size(1) * t.box.size(2);
                std::fill_n(t.voxels, cells, values[t.component] * t.scale);
            }
    }

    double roundedMean(double a, double b) const {
        const double mean = (a + b) / 2;
        switch (layer_.element) {
            case F3dElement::Float16:
                return static_cast<float>(Imath::half(static_cast<float>(mean)));
            case F3dElement::Float32:
                return static_cast<float>(mean);
            default:
                return mean;
        }
    }

    /// Faces across one axis: one more than there are cells. The last `step` of them are kept, so
    /// that each face meets the one before it along the axis.
    bool readFaces(int axis, const char* name) {
        Index3 faces = writer_.size();
        ++faces[axis];
        const auto step = static_cast<std::size_t>(axis == 0   ? 1
                                                   : axis == 1 ? faces[0]
                                                               : faces[0] * faces[1]);
        const auto total = static_cast<std::uint64_t>(faces[0]) *
                           static_cast<std::uint64_t>(faces[1]) *
                           static_cast<std::uint64_t>(faces[2]);
        if (!writer_.wants(axis))
            return true;
        if (step > limit_ / sizeof(double))
            return fail("has more faces than the file can hold");
        std::vector<double> before(step), numbers;
        Index3 at = {0, 0, 0};
        std::size_t slot = 0;
        const auto takeFaces = [&](std::span<const std::byte> bytes) {
            toNumbers(layer_.element, bytes, numbers);
            for (const double v : numbers) {
                if (at[axis] > 0) {
                    Index3 cell = at;
                    --cell[axis];
                    writer_.cell(cell, axis, static_cast<float>(roundedMean(before[slot], v)));
                }
                before[slot] = v;
                slot = slot + 1 == step ? 0 : slot + 1;
                for (int a = 0; a < 3 && ++at[a] == faces[a] && a < 2; ++a)
                    at[a] = 0;
            }
        };
        return read(name, 1, total * elementBytes(layer_.element), takeFaces);
    }

    F3dContainer& container_;
    std::uint64_t limit_;
    const F3dLayer& layer_;
    const std::vector<F3dTarget>& targets_;
    CellWriter writer_;
};

}  // namespace

std::uint64_t largestExpansion(std::uint64_t fileBytes) {
    constexpr std::uint64_t kAlways = std::uint64_t(64) << 20, kPerByte = 8192;
    std::uint64_t bytes = 0, sum = 0;
    if (!checkedMultiply(fileBytes, kPerByte, bytes) || !checkedAdd(bytes, kAlways, sum))
        return UINT64_MAX;
    return sum;
}

bool readVoxels(F3dFile& file, const F3dLayer& layer, const std::vector<F3dTarget>& targets,
                std::string& problem) {
    VoxelReader reader(file, layer, targets);
    if (reader.run())
        return true;
    problem = reader.problem;
    return false;
}

}  // namespace nimbra
