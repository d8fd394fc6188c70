// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_info.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <set>

#include "cache/bounded_reader.h"
#include "field3d/f3d_file.h"
#include "field3d/f3d_voxels.h"

namespace nimbra {

namespace {

/// Gathers what is told of the values of a window.
class Statistics {
public:
    explicit Statistics(int components) : components_(components) {
        min_.fill(INFINITY);
        max_.fill(-INFINITY);
    }
    void add(const std::array<float, 3>& v, const std::array<std::int64_t, 3>& at,
             F3dLayerInfo& info) {
        bool nonzero = false;
        for (int c = 0; c < components_; ++c) {
            info.nanCount += std::isnan(v[c]);
            info.infiniteCount += std::isinf(v[c]);
            nonzero = nonzero || v[c] != 0;
            if (!std::isfinite(v[c]))
                continue;
            min_[c] = std::min(min_[c], double(v[c]));
            max_[c] = std::max(max_[c], double(v[c]));
            sum_[c] += v[c];
            ++finite_[c];
        }
        if (!nonzero)
            return;
        const bool first = info.nonzeroVoxels++ == 0;
        for (int a = 0; a < 3; ++a) {
            info.nonzeroLow[a] = first ? at[a] : std::min(info.nonzeroLow[a], at[a]);
            info.nonzeroHigh[a] = first ? at[a] : std::max(info.nonzeroHigh[a], at[a]);
        }
    }
    void tell(F3dLayerInfo& info) const {
        info.hasValues = true;
        for (int c = 0; c < components_; ++c) {
            if (finite_[c] == 0)
                continue;
            info.min[c] = min_[c];
            info.max[c] = max_[c];
            info.mean[c] = sum_[c] / double(finite_[c]);
            // Zeros add nothing to the sum.
            info.nonzeroMean[c] = sum_[c] / double(std::max<std::int64_t>(info.nonzeroVoxels, 1));
        }
    }

private:
    int components_;
    std::array<double, 3> min_{}, max_{}, sum_{};
    std::array<std::int64_t, 3> finite_{};
};

void describeStorage(const F3dPartition& partition, const F3dLayer& layer, F3dLayerInfo& info) {
    info.valueType = elementName(layer.element);
    info.components = layer.components;
    info.mappingType = partition.mapping.type;
    info.timeSamples = partition.mapping.timeSamples;
    info.extentsLow = layer.extents.low;
    info.extentsHigh = layer.extents.high;
    info.windowLow = layer.window.low;
    info.windowHigh = layer.window.high;
    if (layer.storage == F3dClass::Sparse) {
        info.blockEdge = 1 << layer.blockOrder;
        info.blocks = layer.blockCount();
        info.occupiedBlocks = layer.occupiedBlocks;
    }
    const auto components = static_cast<std::uint64_t>(layer.components);
    info.voxels = layer.voxels();
    info.bytesUnpacked = info.voxels * components * elementBytes(layer.element);
    info.bytesInMemory = info.voxels * components * sizeof(float);
    const F3dAffine m = partition.mapping.voxelToWorld(layer.extents);
    for (int a = 0; a < 3; ++a) {
        info.toWorld[a] = m[a];
        info.voxelSize[a] = std::hypot(m[a][0], m[a][1], m[a][2]);
    }
    info.toWorld[3] = transformed(m, {0.5, 0.5, 0.5});
}

void describeValues(F3dFile& file, const F3dLayer& layer, F3dLayerInfo& info) {
    const std::uint64_t most = largestExpansion(file.bytes());
    if (info.bytesInMemory > most) {
        info.problem = fmt::format("needs {} bytes of memory, a file of {} bytes gets at most {}",
                                   info.bytesInMemory, file.bytes(), most);
        info.readable = info.mappable = false;
        return;
    }
    std::array<std::vector<float>, 3> values;
    std::vector<F3dTarget> targets;
    for (int c = 0; c < layer.components; ++c) {
        values[c].resize(info.voxels);
        targets.push_back({values[c].data(), layer.window, c, 1});
    }
    if (!readVoxels(file, layer, targets, info.problem)) {
        info.readable = info.mappable = false;
        return;
    }
    Statistics statistics(layer.components);
    std::array<std::int64_t, 3> at = layer.window.low;
    for (std::uint64_t i = 0; i < info.voxels; ++i) {
        std::array<float, 3> v{};
        for (int c = 0; c < layer.components; ++c)
            v[c] = values[c][i];
        statistics.add(v, at, info);
        for (int a = 0; a < 3 && ++at[a] > layer.window.high[a]; ++a)
            at[a] = layer.window.low[a];
    }
    statistics.tell(info);
}

void describeFile(F3dFile& file, bool values, F3dFileInfo& info) {
    info.container = file.isHdf5() ? "HDF5" : "Ogawa";
    info.version = file.version();
    info.metadata = file.metadata();
    std::set<std::string> names;
    for (const F3dPartition& p : file.partitions())
        for (const F3dLayer& layer : p.layers) {
            F3dLayerInfo& out = info.layers.emplace_back();
            out.partition = p.diskName;
            out.name = layer.name;
            out.className = layer.className;
            out.metadata = layer.metadata;
            out.readable = layer.readable();
            out.problem = layer.readable() ? p.mapping.problem : layer.problem;
            if (!out.readable)
                continue;
            out.mappable = p.mapping.problem.empty();
            if (out.mappable && !names.insert(layer.name).second) {
                out.mappable = false;
                out.problem = "another layer of this name stands before it";
            }
            describeStorage(p, layer, out);
            if (values)
                describeValues(file, layer, out);
        }
}

}  // namespace

F3dFileInfo readF3dInfo(const std::string& path, bool values) {
    F3dFileInfo info;
    info.path = path;
    try {
        F3dFile file;
        info.readable = file.open(path);
        info.problem = file.problem();
        info.bytes = file.bytes();
        if (info.readable)
            describeFile(file, values, info);
    } catch (const std::bad_alloc&) {
        info.problem = "there isn't enough memory";
        info.readable = false;
    } catch (const std::exception& e) {
        info.problem = printable(e.what());
        info.readable = false;
    }
    return info;
}

}  // namespace nimbra
