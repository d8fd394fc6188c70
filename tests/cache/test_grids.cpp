// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/test_grids.h"

#include <openvdb/openvdb.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>

namespace nimbra::test {
namespace {

template <class Grid>
Proxy makeTree(std::int32_t kind, const Cell3& size, const CellField& field,
               const TreeOptions& options) {
    using Value = typename Grid::ValueType;
    const auto toValue = [&options](float v) -> Value {
        if constexpr (std::is_arithmetic_v<Value>) {
            return static_cast<Value>(v);
        } else {
            Value value(1000, 2000, 3000);
            value[options.component - 1] = static_cast<typename Value::ValueType>(v);
            return value;
        }
    };
    auto grid = Grid::create(toValue(options.background));
    auto accessor = grid->getAccessor();
    forEachCell(size, [&](int x, int y, int z) {
        const float v = field(x, y, z);
        if (v != options.background)
            accessor.setValue({x + options.origin[0], y + options.origin[1], z + options.origin[2]},
                              toValue(v));
    });
    if (options.prune)
        grid->pruneGrid();

    TreeSource source;
    source.grid = grid;
    source.kind = kind;
    std::copy_n(options.origin.data(), 3, source.origin);
    std::copy_n(size.data(), 3, source.size);
    source.component = options.component;
    source.scale = options.scale;
    Proxy proxy;
    proxy.attach(newTreeHolder(source), size.data());
    return proxy;
}

}  // namespace

Proxy denseChannel(const Cell3& size, const CellField& field, int spare) {
    Proxy proxy;
    if (!proxy.allocate(size.data(), spare))
        return proxy;
    std::int64_t i = 0;
    forEachCell(size, [&](int x, int y, int z) { proxy.write(i++, field(x, y, z)); });
    return proxy;
}

Proxy treeChannel(std::int32_t kind, const Cell3& size, const CellField& field,
                  const TreeOptions& options) {
    switch (kind) {
        case kFloatTree:
            return makeTree<openvdb::FloatGrid>(kind, size, field, options);
        case kDoubleTree:
            return makeTree<openvdb::DoubleGrid>(kind, size, field, options);
        case kInt32Tree:
            return makeTree<openvdb::Int32Grid>(kind, size, field, options);
        case kInt64Tree:
            return makeTree<openvdb::Int64Grid>(kind, size, field, options);
        case kVec3fTree:
            return makeTree<openvdb::Vec3SGrid>(kind, size, field, options);
        case kVec3dTree:
            return makeTree<openvdb::Vec3DGrid>(kind, size, field, options);
        default:
            throw std::invalid_argument("no such kind of tree");
    }
}

std::vector<float> valuesOf(const Proxy& channel) {
    std::vector<float> values(static_cast<std::size_t>(channel.storage->cells));
    channel.readRun(0, channel.storage->cells, values.data());
    return values;
}

float noiseAt(int x, int y, int z, int seed, int low) {
    std::uint32_t h =
        static_cast<std::uint32_t>(x) * 73856093u ^ static_cast<std::uint32_t>(y) * 19349663u ^
        static_cast<std::uint32_t>(z) * 83492791u ^ static_cast<std::uint32_t>(seed) * 2654435761u;
    h = (h ^ h >> 15) * 0x2C1B3C6Du;
    h = (h ^ h >> 12) * 0x297A2D39u;
    h ^= h >> 15;
    return static_cast<float>(static_cast<int>(h % static_cast<std::uint32_t>(2 * low + 1)) - low);
}

float patchyNoise(int x, int y, int z) {
    const int cube = static_cast<int>(noiseAt(x >> 4, y >> 4, z >> 4, 7, 1));
    return cube == 0 ? noiseAt(x, y, z, 3) : cube < 0 ? 0.0f : 5.0f;
}

}  // namespace nimbra::test
